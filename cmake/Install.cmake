include(CMakePackageConfigHelpers)

set(velk_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/velkcantransport)

install(TARGETS velkcantransport velkcanclient EXPORT velkcantransport-targets)
install(DIRECTORY include/velk platform/include/velk client/include/velk
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT velkcantransport-targets NAMESPACE velk:: DESTINATION ${velk_package_dir})
configure_package_config_file(cmake/velkcantransportConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velkcantransportConfig.cmake INSTALL_DESTINATION ${velk_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velkcantransportConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velkcantransportConfig.cmake
              ${PROJECT_BINARY_DIR}/velkcantransportConfigVersion.cmake
        DESTINATION ${velk_package_dir})

# Relative to the .pc file itself: an installed tree may be moved, and the prefix may be set as late as
# at the installation.
set(velk_pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VELK_PC_PREFIX ${velk_pc_dir} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH VELK_PC_INCLUDEDIR ${velk_pc_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
string(REGEX REPLACE "/$" "" VELK_PC_PREFIX ${VELK_PC_PREFIX})
foreach(library velkcantransport velkcanclient)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
