# SPDX-License-Identifier: Apache-2.0
# Stands in for a device's toolchain file where there is none: clang compiles for 32-bit Android, under
# CMake's rules for Android, with the headers and libraries of Debian's armhf in LUM_SYSROOT: the C
# library is not a device's, the C++ library is of the same kind. What comes of it runs under qemu-arm.

# 1 is for toolchain files that settle everything themselves: CMake asks for no NDK.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
if(NOT ANDROID_ABI STREQUAL "armeabi-v7a")
  message(FATAL_ERROR "ANDROID_ABI is '${ANDROID_ABI}'; this file knows armeabi-v7a only")
endif()

# Also for the small projects by which CMake tries the compiler.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LUM_SYSROOT ANDROID_ABI)
set(CMAKE_SYSROOT "${LUM_SYSROOT}")
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET armv7a-linux-androideabi31)
set(CMAKE_CXX_COMPILER_TARGET armv7a-linux-androideabi31)
set(CMAKE_AR arm-linux-gnueabihf-ar)
set(CMAKE_RANLIB arm-linux-gnueabihf-ranlib)
set(CMAKE_STRIP arm-linux-gnueabihf-strip)

# As both of a device's build systems compile.
set(lum_android_device "-mthumb -ffunction-sections -fdata-sections")
# As Debian's libraries are compiled, with which a device's objects could not be linked: floating point
# numbers are passed in registers of their own, and thread-local variables are the loader's. The
# option that says the former is refused for this system, but only there where options are read.
set(lum_android_debian "-Xclang -mfloat-abi -Xclang hard -D__ARM_PCS_VFP -fno-emulated-tls")
# For this system, neither clang nor lld looks where Debian has headers, start files and libraries. The
# paths are from the sysroot, whose own may have blanks.
set(lum_android_triple ${CMAKE_LIBRARY_ARCHITECTURE})
set(lum_android_cxx_headers "-iwithsysroot /usr/lib/llvm-14/include/c++/v1")
set(lum_android_headers "-iwithsysroot /usr/include/${lum_android_triple} -iwithsysroot /usr/include")
string(APPEND lum_android_headers " -iwithsysroot /usr/include/android")
set(lum_android_none "--start-no-unused-arguments -nostdlibinc --end-no-unused-arguments")
set(lum_android_none_cxx
    "--start-no-unused-arguments -nostdlibinc -nostdinc++ --end-no-unused-arguments")
set(CMAKE_C_FLAGS_INIT
    "${lum_android_device} ${lum_android_debian} ${lum_android_none} ${lum_android_headers}")
# A platform tree compiles without type information, and only this library with exceptions.
set(CMAKE_CXX_FLAGS_INIT "${lum_android_device} -fno-rtti ${lum_android_debian}")
string(APPEND CMAKE_CXX_FLAGS_INIT
       " ${lum_android_none_cxx} ${lum_android_cxx_headers} ${lum_android_headers}")

set(lum_android_linker "-fuse-ld=lld -nostdlib -L=/usr/lib/gcc/${lum_android_triple}/12")
string(APPEND lum_android_linker " -L=/usr/lib/${lum_android_triple} -L=/lib/${lum_android_triple}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${lum_android_linker} -l:crti.o -l:crtbeginS.o")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${lum_android_linker} -l:Scrt1.o -l:crti.o -l:crtbeginS.o")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--dynamic-linker=/lib/ld-linux-armhf.so.3")
set(CMAKE_CXX_STANDARD_LIBRARIES "-lc++ -lm -lgcc_s -lc -lgcc -l:crtendS.o -l:crtn.o")
set(CMAKE_C_STANDARD_LIBRARIES ${CMAKE_CXX_STANDARD_LIBRARIES})

# Programs are this machine's, everything else the other's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${LUM_SYSROOT}")
