include(CMakePackageConfigHelpers)

install(TARGETS tksinterface EXPORT tksinterfaceTargets
        FRAMEWORK DESTINATION Library/Frameworks
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(NOT APPLE)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tksinterface DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
install(EXPORT tksinterfaceTargets NAMESPACE tksinterface::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tksinterface)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tksinterfaceConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tksinterface)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/generated/tksinterfaceConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfig.cmake
              ${PROJECT_BINARY_DIR}/generated/tksinterfaceConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tksinterface)
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
configure_file(${PROJECT_SOURCE_DIR}/cmake/tksinterface.pc.in ${PROJECT_BINARY_DIR}/generated/tksinterface.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/generated/tksinterface.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
