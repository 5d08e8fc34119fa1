# 32-bit ARM with hardware floating point, from Debian's cross compiler and multiarch libraries. Programs
# of the build run under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
# g++ notes at each use of a standard template that its version 7 passed certain arguments otherwise.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# The libraries are those of the running system's other architecture: only their names tell them apart.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:/usr/share/pkgconfig)
set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)

# The root of the running system, and not that of the cross compiler: threads crash when the emulated
# program mixes the C libraries of the two.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /)
