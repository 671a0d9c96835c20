# A handheld's 32-bit ARM chip: Debian's cross compiler, the libraries that cmake/armhf_sysroot has unpacked, and an
# emulator for what is built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# GCC tells of each call that GCC 6 would make another way.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# The C and C++ libraries are the compiler's own, headers and stubs alike; all others come from here.
get_filename_component(KX_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot" ABSOLUTE)
set(CMAKE_SYSROOT ${KX_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${KX_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${KX_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${KX_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${KX_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/armhf_run;${KX_SYSROOT})
