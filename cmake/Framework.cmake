# tks_make_framework(TARGET IDENTIFIER MODULE_MAP HEADER...)
# Makes a shared library a versioned framework for macOS, with its public headers, which lose their folders, its module map,
# its symbols in a bundle beside it, and a seal over all of it. To be called in the folder that makes the target.
function(tks_make_framework target identifier module_map)
  target_sources(${target} PRIVATE ${ARGN} ${module_map})
  set_source_files_properties(${module_map} PROPERTIES MACOSX_PACKAGE_LOCATION Modules)
  set_target_properties(${target} PROPERTIES
    FRAMEWORK TRUE
    FRAMEWORK_VERSION A
    PUBLIC_HEADER "${ARGN}"
    MACOSX_FRAMEWORK_INFO_PLIST ${PROJECT_SOURCE_DIR}/cmake/framework/Info.plist.in
    MACOSX_FRAMEWORK_IDENTIFIER ${identifier}
    MACOSX_FRAMEWORK_BUNDLE_VERSION ${PROJECT_VERSION}
    MACOSX_FRAMEWORK_SHORT_VERSION_STRING ${PROJECT_VERSION}
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
    # Whoever loads it says where frameworks are.
    INSTALL_NAME_DIR "@rpath"
    BUILD_WITH_INSTALL_NAME_DIR ON
    SKIP_BUILD_RPATH ON)
  # The layout's links to what is not of CMake's own making.
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
                     COMMAND ${CMAKE_COMMAND} -E create_symlink Versions/Current/Modules
                             "$<TARGET_BUNDLE_DIR:${target}>/Modules")
  # Names and lines for reports of crashes lie in a bundle beside the framework, which itself is delivered without them.
  find_program(TKS_DSYMUTIL NAMES dsymutil-${TKS_MACOS_LLVM} dsymutil)
  if(TKS_DSYMUTIL)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
                       # It looks for lipo under its own name.
                       COMMAND ${CMAKE_COMMAND} -E env "PATH=${TKS_MACOS_STAGING}/bin:$ENV{PATH}"
                               ${TKS_DSYMUTIL} "$<TARGET_FILE:${target}>" -o "$<TARGET_BUNDLE_DIR:${target}>.dSYM"
                       COMMAND ${CMAKE_STRIP} -S "$<TARGET_FILE:${target}>")
  endif()
  tks_seal(${target} "$<TARGET_BUNDLE_DIR:${target}>")
endfunction()

# tks_export_only(TARGET LIST): exports the symbols of a list in the form of Apple's linker, and no others.
function(tks_export_only target list)
  target_link_options(${target} PRIVATE LINKER:-exported_symbols_list,${list})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${list})
endfunction()
