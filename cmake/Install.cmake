# SPDX-License-Identifier: MIT
include(CMakePackageConfigHelpers)

# Components: runtime (the libraries), development (headers and what links them), tools (programs, man pages).
set(velk_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/velkcantransport)

install(TARGETS velkcantransport velkcanclient EXPORT velkcantransport-targets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development)
install(DIRECTORY include/velk platform/include/velk client/include/velk
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(EXPORT velkcantransport-targets NAMESPACE velk:: DESTINATION ${velk_package_dir}
        COMPONENT development)
configure_package_config_file(cmake/velkcantransportConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velkcantransportConfig.cmake INSTALL_DESTINATION ${velk_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velkcantransportConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velkcantransportConfig.cmake
              ${PROJECT_BINARY_DIR}/velkcantransportConfigVersion.cmake
        DESTINATION ${velk_package_dir} COMPONENT development)

# Relative to the .pc file itself: an installed tree may be moved, and the prefix may be set as late as at the
# installation. Only below /usr absolute: pkg-config leaves out the compiler's own paths if it recognises them.
set(velk_pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  set(VELK_PC_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR})
  set(VELK_PC_INCLUDEDIR ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
  file(RELATIVE_PATH velk_from_pc ${velk_pc_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
  set(VELK_PC_LIBDIR "\${pcfiledir}/..")
  set(VELK_PC_INCLUDEDIR "\${pcfiledir}/${velk_from_pc}")
endif()
foreach(library velkcantransport velkcanclient)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT development)
endforeach()

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} -D FOLDER=${PROJECT_BINARY_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake
    COMMENT "Removing what the last installation has installed" VERBATIM)
endif()
