# The shared library that hosts load. It exports exactly the committed list of symbols; on macOS it is a framework.
if(APPLE)
  set(tks_exported_symbols ${PROJECT_SOURCE_DIR}/cmake/exported_symbols/macos.txt)
else()
  set(tks_exported_symbols ${PROJECT_SOURCE_DIR}/cmake/exported_symbols/linux.txt)
endif()
# The C interface: the same functions everywhere.
set(tks_exported_c_symbols ${PROJECT_SOURCE_DIR}/cmake/exported_symbols/c.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${tks_exported_symbols} ${tks_exported_c_symbols})

# Before 1.0 a minor version may break what was there. The name of the library says so, as the package's version does.
set(tks_soversion ${PROJECT_VERSION_MAJOR})
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(tks_soversion 0.${PROJECT_VERSION_MINOR})
endif()
set_target_properties(tksinterface PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${tks_soversion})

file(STRINGS ${tks_exported_symbols} tks_symbols REGEX "^[^#]")
file(STRINGS ${tks_exported_c_symbols} tks_c_symbols REGEX "^[^#]")
if(APPLE)
  # The framework bundle, and the list in the form of Apple's linker: one underscore more.
  list(APPEND tks_symbols ${tks_c_symbols})
  list(TRANSFORM tks_symbols PREPEND "_")
  list(JOIN tks_symbols "\n" tks_symbol_lines)
  set(tks_export_list ${PROJECT_BINARY_DIR}/generated/tksinterface.exports)
  file(CONFIGURE OUTPUT ${tks_export_list} CONTENT "@tks_symbol_lines@\n" @ONLY)
  file(GLOB tks_public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/tksinterface/*.h)
  # A source of its own: headers and modules are laid out before a target's first source is compiled.
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/framework.cpp CONTENT "// The framework's code lies in its objects.\n")
  target_sources(tksinterface PRIVATE ${PROJECT_BINARY_DIR}/generated/framework.cpp ${tks_public_headers}
                                      ${PROJECT_SOURCE_DIR}/cmake/framework/module.modulemap)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/cmake/framework/module.modulemap
                              PROPERTIES MACOSX_PACKAGE_LOCATION Modules)
  # Public headers lose their folders; this one keeps its own.
  set(tks_c_header ${PROJECT_SOURCE_DIR}/include/tksinterface/c/tksinterface.h)
  target_sources(tksinterface PRIVATE ${tks_c_header})
  set_source_files_properties(${tks_c_header} PROPERTIES MACOSX_PACKAGE_LOCATION Headers/c)
  set_target_properties(tksinterface PROPERTIES
    FRAMEWORK TRUE
    FRAMEWORK_VERSION A
    PUBLIC_HEADER "${tks_public_headers}"
    MACOSX_FRAMEWORK_INFO_PLIST ${PROJECT_SOURCE_DIR}/cmake/framework/Info.plist.in
    MACOSX_FRAMEWORK_IDENTIFIER com.tarvo.kovra.tksinterface
    MACOSX_FRAMEWORK_BUNDLE_VERSION ${PROJECT_VERSION}
    MACOSX_FRAMEWORK_SHORT_VERSION_STRING ${PROJECT_VERSION}
    INSTALL_NAME_DIR "@rpath"
    BUILD_WITH_INSTALL_NAME_DIR ON)
  # The layout's links to what is not of CMake's own making.
  add_custom_command(TARGET tksinterface POST_BUILD VERBATIM
                     COMMAND ${CMAKE_COMMAND} -E create_symlink Versions/Current/Modules
                             "$<TARGET_BUNDLE_DIR:tksinterface>/Modules")
  # Names and lines for reports of crashes lie in a bundle beside the framework, which itself is delivered without them.
  find_program(TKS_DSYMUTIL NAMES dsymutil-${TKS_MACOS_LLVM} dsymutil)
  if(TKS_DSYMUTIL)
    target_compile_options(tks_objects PRIVATE $<$<CONFIG:Release>:-gline-tables-only>)
    add_custom_command(TARGET tksinterface POST_BUILD VERBATIM
                       # It looks for lipo under its own name.
                       COMMAND ${CMAKE_COMMAND} -E env "PATH=${TKS_MACOS_STAGING}/bin:$ENV{PATH}"
                               ${TKS_DSYMUTIL} "$<TARGET_FILE:tksinterface>" -o "$<TARGET_BUNDLE_DIR:tksinterface>.dSYM"
                       COMMAND ${CMAKE_STRIP} -S "$<TARGET_FILE:tksinterface>")
  endif()
  tks_seal(tksinterface "$<TARGET_BUNDLE_DIR:tksinterface>")
  target_link_options(tksinterface PRIVATE LINKER:-exported_symbols_list,${tks_export_list})
  set_property(TARGET tksinterface APPEND PROPERTY LINK_DEPENDS ${tks_export_list})
else()
  # Each name carries the version of its interface: a program made for another one is refused at its start, not later.
  list(JOIN tks_symbols ";\n    " tks_symbol_lines)
  list(JOIN tks_c_symbols ";\n    " tks_c_symbol_lines)
  set(tks_version_script ${PROJECT_BINARY_DIR}/generated/tksinterface.map)
  file(CONFIGURE OUTPUT ${tks_version_script} @ONLY CONTENT
"TKSINTERFACE_@tks_soversion@ {
  global:
    @tks_symbol_lines@;
  local:
    *;
};
TKSINTERFACE_C_1 {
  global:
    @tks_c_symbol_lines@;
};
")
  target_link_options(tksinterface PRIVATE LINKER:--version-script=${tks_version_script} LINKER:--exclude-libs,ALL)
  set_property(TARGET tksinterface APPEND PROPERTY LINK_DEPENDS ${tks_version_script})
  # Threads of background work end when they are idle, and nobody waits for them: the library stays mapped when a host
  # that had loaded it lets go of it.
  target_link_options(tksinterface PRIVATE LINKER:-z,nodelete)
  if(NOT TKS_SANITIZE)
    target_link_options(tksinterface PRIVATE LINKER:-z,defs)
  endif()
endif()
