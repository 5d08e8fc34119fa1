# What `cmake --install` puts where: the library, its headers, the CMake package, the pkg-config file and the
# tools.
include(CMakePackageConfigHelpers)

install(TARGETS hbbtv_ryn EXPORT hbbtv_ryn_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/hbbtv_ryn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/hbbtv_ryn)
install(EXPORT hbbtv_ryn_targets NAMESPACE hbbtv_ryn:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(packaging/hbbtv_ryn-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

# Where the queue size is set by other means, leave it out: -DHBBTV_RYN_INSTALL_SYSCTL=OFF.
option(HBBTV_RYN_INSTALL_SYSCTL "Install a sysctl.d file that lets the largest message fit a queue" ON)
if(HBBTV_RYN_INSTALL_SYSCTL)
  install(FILES packaging/60-hbbtv-ryn.conf DESTINATION lib/sysctl.d COMPONENT runtime)
endif()

configure_file(packaging/hbbtv_ryn.pc.in ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hbbtv_ryn.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(TARGET rynctl)
  install(TARGETS rynctl ryn_torture RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES examples/rynctl/slow_browser.json examples/rynctl/evening.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/rynctl COMPONENT tools)
  install(FILES packaging/rynctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME rynctl COMPONENT tools)
endif()
# The pages hold what the tools say of themselves, so the tools must run here.
if(TARGET rynctl AND (NOT CMAKE_CROSSCOMPILING OR CMAKE_CROSSCOMPILING_EMULATOR))
  set(make_page ${PROJECT_SOURCE_DIR}/packaging/make_man_page.sh)
  foreach(tool IN ITEMS rynctl ryn_torture)
    set(page ${PROJECT_SOURCE_DIR}/packaging/${tool}.1.in)
    add_custom_command(OUTPUT ${tool}.1
      COMMAND ${make_page} ${page} ${tool}.1 ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${tool}>
      DEPENDS ${tool} ${make_page} ${page} VERBATIM)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endforeach()
  add_custom_target(man_page ALL DEPENDS rynctl.1 ryn_torture.1)
endif()
