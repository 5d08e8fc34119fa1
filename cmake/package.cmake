# Debian packages, made by `make package`: the runtime library, the files to build against it, the tools.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "libhbbtv_ryn maintainers <root@localhost>"
  CACHE STRING "Maintainer named by the packages")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(HBBTV_RYN_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(runtime_package libhbbtv-ryn${PROJECT_VERSION_MAJOR})
set(same_runtime "${runtime_package} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "The library: requests, notifications and queries between the browser of a set and the
process that holds its application-manager plug-in, over message queues.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libhbbtv-ryn-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_runtime}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Headers, CMake package and pkg-config file of the library, to build hosts against it.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME hbbtv-ryn-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_runtime}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "The command-line tool rynctl, which shows, drives and checks the traffic of the bridge, and
ryn_torture, which proves on a set what the library promises.")

include(CPack)
