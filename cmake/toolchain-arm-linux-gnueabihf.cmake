# SPDX-License-Identifier: Apache-2.0
# 32-bit ARM Linux with Debian's cross compiler, on libraries of its own: LUM_SYSROOT is a directory
# with Debian's armhf packages unpacked in it (`./dev sysroot` makes one). What is built runs here
# under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

if(NOT IS_DIRECTORY "${LUM_SYSROOT}/usr/lib")
  message(FATAL_ERROR "LUM_SYSROOT (${LUM_SYSROOT}) has no Debian packages; ./dev sysroot makes one")
endif()

# Also for the small projects by which CMake tries the compiler.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LUM_SYSROOT)
set(CMAKE_SYSROOT ${LUM_SYSROOT})
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# g++ before 7 passed some arguments differently; nothing here was built by one.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# Programs are this machine's, everything else the other's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${LUM_SYSROOT})

# qemu-arm looks up files below its -L directory, but not directories: this one, of liblog, by its real name.
set(CMAKE_BUILD_RPATH ${LUM_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
