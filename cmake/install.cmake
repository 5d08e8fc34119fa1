# What `cmake --install` puts where: the library, its headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS hbbtv_ryn EXPORT hbbtv_ryn_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/hbbtv_ryn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/hbbtv_ryn)
install(EXPORT hbbtv_ryn_targets NAMESPACE hbbtv_ryn:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(cmake/hbbtv_ryn-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

# Where the queue size is set by other means, leave it out: -DHBBTV_RYN_INSTALL_SYSCTL=OFF.
option(HBBTV_RYN_INSTALL_SYSCTL "Install a sysctl.d file that lets the largest message fit a queue" ON)
if(HBBTV_RYN_INSTALL_SYSCTL)
  install(FILES cmake/60-hbbtv-ryn.conf DESTINATION lib/sysctl.d COMPONENT runtime)
endif()

configure_file(cmake/hbbtv_ryn.pc.in ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
