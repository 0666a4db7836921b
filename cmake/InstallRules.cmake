# What is installed, in four components: runtime (the library and what it starts), dev, tools, doc.
include(CMakePackageConfigHelpers)
set(tks_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tksinterface)

# tks_install_library(TARGET PART): a library and the file of the package that describes it.
function(tks_install_library target part)
  install(TARGETS ${target} EXPORT tksinterface-${part}
          FRAMEWORK DESTINATION Library/Frameworks COMPONENT runtime
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  install(EXPORT tksinterface-${part} NAMESPACE tksinterface:: FILE tksinterface-${part}.cmake
          DESTINATION ${tks_package_folder} COMPONENT dev)
endfunction()

if(tks_kind STREQUAL "SHARED")
  set(tks_default_part shared)
  tks_install_library(tksinterface shared)
  if(APPLE)
    install(TARGETS TKSInterfaceKit EXPORT tksinterface-shared FRAMEWORK DESTINATION Library/Frameworks COMPONENT runtime)
  else()
    tks_install_library(tksinterface_static static)
  endif()
else()
  set(tks_default_part static)
  set_target_properties(tksinterface PROPERTIES EXPORT_NAME static)
  tks_install_library(tksinterface static)
endif()
if(NOT APPLE OR tks_kind STREQUAL "STATIC")
  install(TARGETS tks_dependencies EXPORT tksinterface-static)
  # The headers of a framework lie in it.
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tksinterface DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/StaticDependencies.cmake DESTINATION ${tks_package_folder} COMPONENT dev)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tksinterfaceConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfig.cmake
                              INSTALL_DESTINATION ${tks_package_folder} PATH_VARS CMAKE_INSTALL_BINDIR)
configure_file(${PROJECT_SOURCE_DIR}/cmake/tksinterfaceConfigVersion.cmake.in
               ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfigVersion.cmake @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfig.cmake
              ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/FakeLauncher.cmake
        DESTINATION ${tks_package_folder} COMPONENT dev)

# Seen from the file itself, so that an installation may be moved, or made under another prefix than the one configured.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(tks_pc_prefix ${CMAKE_INSTALL_PREFIX})
  set(tks_pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
  set(tks_pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH tks_pc_way_up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" tks_pc_prefix "\${pcfiledir}/${tks_pc_way_up}")
  set(tks_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(tks_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
# What a host is compiled and linked with. A framework is looked for in its folder, when the host runs as well.
set(tks_pc_cflags "-I\${includedir}")
set(tks_pc_libs "-L\${libdir} -ltksinterface")
set(tks_pc_private_libs "-lsimdjson -lpugixml -lcrypto -ldl -pthread -lstdc++")
if(APPLE)
  get_target_property(tks_pc_frameworks tks_dependencies INTERFACE_LINK_LIBRARIES)
  list(JOIN tks_pc_frameworks " " tks_pc_private_libs)
  if(tks_kind STREQUAL "SHARED")
    set(tks_pc_cflags "-F\${prefix}/Library/Frameworks")
    set(tks_pc_libs "-F\${prefix}/Library/Frameworks -framework tksinterface -Wl,-rpath,\${prefix}/Library/Frameworks")
    set(tks_pc_private_libs "")
  endif()
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/tksinterface.pc.in ${PROJECT_BINARY_DIR}/generated/tksinterface.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/generated/tksinterface.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)

# The pages, where they have been built: cmake --build ... --target site.
if(PROJECT_IS_TOP_LEVEL)  # other projects have sites of their own
  add_custom_target(site COMMAND ${PROJECT_SOURCE_DIR}/scripts/site ${PROJECT_BINARY_DIR}/site USES_TERMINAL)
endif()
install(DIRECTORY ${PROJECT_BINARY_DIR}/site DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc OPTIONAL)
if(NOT APPLE AND PROJECT_IS_TOP_LEVEL)
  include(Packages)
endif()
