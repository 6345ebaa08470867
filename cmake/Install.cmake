# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` lays down: headers, libraries, program, documents, and the two ways to find the libraries.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KVFobLink)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# kv_install_pc(NAME): the pkg-config file, which finds its tree from where it lies itself, so that the tree can be moved.
function(kv_install_pc name)
  file(RELATIVE_PATH up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" up "${up}")
  set(prefix "\${pcfiledir}/${up}")
  foreach(kind LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
      set(${kind} "${CMAKE_INSTALL_${kind}}")
    else()
      set(${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
    endif()
  endforeach()
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_dir})
endfunction()

install(DIRECTORY include/KVFobLink DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
set(static_needs MbedTLS::mbedcrypto PkgConfig::SYSTEMD PkgConfig::ICU)
set(simulator_needs MbedTLS::mbedcrypto PkgConfig::SYSTEMD)
set(library_needs "")
if(KVFOB_FORMS STREQUAL "KVFobLink_static")
  set(library_needs ${static_needs})
endif()
list(POP_FRONT KVFOB_FORMS chosen)
install(TARGETS ${chosen} EXPORT KVFobLinkTargets)
install(EXPORT KVFobLinkTargets NAMESPACE KVFobLink:: DESTINATION ${package_dir})
if(KVFOB_FORMS)
  install(TARGETS ${KVFOB_FORMS} EXPORT KVFobLinkStaticTargets)
  install(EXPORT KVFobLinkStaticTargets NAMESPACE KVFobLink:: DESTINATION ${package_dir})
endif()
kv_install_pc(KVFobLink)
configure_package_config_file(cmake/KVFobLinkConfig.cmake.in ${PROJECT_BINARY_DIR}/KVFobLinkConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KVFobLinkConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KVFobLinkConfig.cmake ${PROJECT_BINARY_DIR}/KVFobLinkConfigVersion.cmake
  cmake/MbedCrypto.cmake DESTINATION ${package_dir})

if(KVFOB_SIMULATOR)
  install(DIRECTORY include/KVFobSimulator DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
  install(TARGETS KVFobSimulator EXPORT KVFobSimulatorTargets)
  install(EXPORT KVFobSimulatorTargets NAMESPACE KVFobLink:: DESTINATION ${package_dir})
  kv_install_pc(KVFobSimulator)
endif()
if(KVFOB_PROGRAM)
  install(TARGETS kvfob)
  include(cmake/InstallHelp.cmake)
endif()

install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN CMakeLists.txt EXCLUDE)
