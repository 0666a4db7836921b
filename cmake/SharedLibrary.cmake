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
  target_sources(tksinterface PRIVATE ${PROJECT_BINARY_DIR}/generated/framework.cpp)
  # Public headers lose their folders; this one keeps its own.
  set(tks_c_header ${PROJECT_SOURCE_DIR}/include/tksinterface/c/tksinterface.h)
  target_sources(tksinterface PRIVATE ${tks_c_header})
  set_source_files_properties(${tks_c_header} PROPERTIES MACOSX_PACKAGE_LOCATION Headers/c)
  target_compile_options(tks_objects PRIVATE $<$<CONFIG:Release>:-gline-tables-only>)
  include(Framework)
  tks_make_framework(tksinterface com.tarvo.kovra.tksinterface ${PROJECT_SOURCE_DIR}/cmake/framework/module.modulemap
                     ${tks_public_headers})
  tks_export_only(tksinterface ${tks_export_list})
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
