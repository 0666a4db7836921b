# Launchers for tests of hosts, made by tksctl while a project is built.
#
# tksinterface_add_fake_launcher(NAME [BEHAVIOUR file] [VERSION version] [IDENTITY folder] [FOLDER folder])
# Adds a target NAME, built with all others, that makes "Tarvo Kovra Start.app" in FOLDER, which is the folder NAME of the
# current binary folder unless it is said. BEHAVIOUR is a script for tksctl fake-launcher; without one the launcher has no
# faults. VERSION is the launcher's, IDENTITY a folder made by tksctl sign --make-identity. The target's property TKS_BUNDLE
# holds the path of the bundle: $<TARGET_PROPERTY:NAME,TKS_BUNDLE>.
function(tksinterface_add_fake_launcher name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BEHAVIOUR;VERSION;IDENTITY;FOLDER" "")
  if(arg_UNPARSED_ARGUMENTS OR arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "tksinterface_add_fake_launcher(${name}): what is ${arg_UNPARSED_ARGUMENTS}${arg_KEYWORDS_MISSING_VALUES}?")
  endif()
  if(NOT TARGET tksinterface::tksctl)
    message(FATAL_ERROR "tksinterface_add_fake_launcher(${name}) needs tksctl, which is not installed with the library "
                        "(Debian: tksinterface-tools) or not built with it (TKS_BUILD_TOOLS).")
  endif()
  if(NOT arg_FOLDER)
    set(arg_FOLDER ${name})
  endif()
  cmake_path(ABSOLUTE_PATH arg_FOLDER BASE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  set(words "${arg_FOLDER}")
  set(inputs "")
  if(arg_BEHAVIOUR)
    cmake_path(ABSOLUTE_PATH arg_BEHAVIOUR)
    list(APPEND words --behaviour "${arg_BEHAVIOUR}")
    list(APPEND inputs "${arg_BEHAVIOUR}")
  endif()
  if(arg_IDENTITY)
    cmake_path(ABSOLUTE_PATH arg_IDENTITY)
    list(APPEND words --identity "${arg_IDENTITY}")
    list(APPEND inputs "${arg_IDENTITY}/chain.pem")
  endif()
  if(arg_VERSION)
    list(APPEND words --version "${arg_VERSION}")
  endif()
  set(made "${CMAKE_CURRENT_BINARY_DIR}/${name}.fake-launcher")
  add_custom_command(OUTPUT "${made}" VERBATIM
                     COMMAND "$<TARGET_FILE:tksinterface::tksctl>" --quiet fake-launcher ${words}
                     COMMAND ${CMAKE_COMMAND} -E touch "${made}"
                     DEPENDS tksinterface::tksctl ${inputs}
                     COMMENT "Making the fake launcher ${name}")
  add_custom_target(${name} ALL DEPENDS "${made}")
  set_target_properties(${name} PROPERTIES TKS_BUNDLE "${arg_FOLDER}/Tarvo Kovra Start.app")
endfunction()
