# What `cmake --install` lays down: headers, libraries, program, and the two ways to find them.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KVFobLink)

install(DIRECTORY include/KVFobLink include/KVFobSimulator DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN *.h)
install(TARGETS KVFobLink_shared KVFobLink_static KVFobSimulator EXPORT KVFobLinkTargets)
install(TARGETS kvfob)
include(cmake/InstallHelp.cmake)
install(EXPORT KVFobLinkTargets NAMESPACE KVFobLink:: DESTINATION ${package_dir})

configure_package_config_file(cmake/KVFobLinkConfig.cmake.in KVFobLinkConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(KVFobLinkConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/KVFobLink.pc.in KVFobLink.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/KVFobLinkConfig.cmake ${PROJECT_BINARY_DIR}/KVFobLinkConfigVersion.cmake
  cmake/MbedCrypto.cmake DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/KVFobLink.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
