# SPDX-License-Identifier: Apache-2.0
# What every target of the tree shares: language, warnings, sanitizers, visibility, outside packages.

find_package(Threads REQUIRED)

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

# Backtraces and what the sanitizers report need line numbers, no more; variables and types would add
# a quarter to every build, and double the sanitizers'.
set(LUM_DEBUG_INFO -g1 CACHE STRING "How much debug information to make; -g to look at variables, too")
add_compile_options($<$<CONFIG:RelWithDebInfo>:${LUM_DEBUG_INFO}>)

if(LUM_SANITIZE)
  add_compile_options(-fsanitize=${LUM_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${LUM_SANITIZE})
  if(LUM_SANITIZE MATCHES "undefined")
    # Without vptr: that check opens pipes, and fails falsely where a test uses up the descriptors. Nor
    # clang's function, of which programs in C lack the runtime.
    add_compile_options(-fno-sanitize-recover=undefined -fno-sanitize=vptr
                        $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fno-sanitize=function>)
  endif()
endif()

option(LUM_COVERAGE "Count how often each line runs, with gcc" OFF)
if(LUM_COVERAGE)
  # Unoptimised, so that each line stays what it is; atomic, as many threads count the same lines.
  add_compile_options(--coverage -fprofile-abs-path -fprofile-update=atomic -O0 -g1)
  add_link_options(--coverage)
endif()

# lum_hardened: for the programs and libraries that users run, as Debian builds them: the C library's
# functions check what the compiler knows of a buffer (which takes an optimised build), and the tables
# of addresses are read-only from the start. A device's build systems have options of their own, and a
# sanitizer checks more.
add_library(lum_hardened INTERFACE)
if(NOT LUM_SANITIZE AND NOT LUM_COVERAGE AND NOT ANDROID)
  target_compile_definitions(
    lum_hardened INTERFACE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:_FORTIFY_SOURCE=2>)
  add_link_options(LINKER:-z,relro,-z,now)
endif()

# The library is always compiled as users compile it. The tests' own sources need no optimiser, and
# those of the tools that include the most get little of it: they wait for the service.
set(LUM_TEST_OPTIONS "" CACHE STRING "Options that go after the build type's for the tests' sources")
set(LUM_TOOL_OPTIONS -O1 CACHE STRING "The same for lum_tool")

# lum_tool: for the tools' sources that include the most.
add_library(lum_tool INTERFACE)
target_compile_options(lum_tool INTERFACE ${LUM_TOOL_OPTIONS})
if(NOT "-O0" IN_LIST LUM_TOOL_OPTIONS)
  target_link_libraries(lum_tool INTERFACE lum_hardened)
endif()

# lum_warnings: for our own sources; generated ones are built without it.
add_library(lum_warnings INTERFACE)
target_compile_options(lum_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Werror)

# lum_tree: the same for those that include headers from the top of the tree ("utils/LumTimer.h"), and
# the public ones as their users do. Examples do not.
add_library(lum_tree INTERFACE)
target_include_directories(
  lum_tree INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/api/include
                     ${PROJECT_SOURCE_DIR}/session/include)
target_link_libraries(lum_tree INTERFACE lum_warnings)

# lum_locks: Clang checks who holds which lock (utils/Mutex.h). Not in tests, which look at what is
# guarded when no other thread is there.
add_library(lum_locks INTERFACE)
target_compile_options(lum_locks INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>)

# lum_sections: for what liblum_sdf_sdk.so is made of. Each function and variable has a section of its
# own, so that the linker can drop those that nobody needs.
add_library(lum_sections INTERFACE)
target_compile_options(lum_sections INTERFACE -ffunction-sections -fdata-sections)
target_link_libraries(lum_sections INTERFACE lum_hardened)

# clang-tidy, run with each compilation of our own sources; generated ones switch it off. For the time
# it would take, tools/ and tests/ go without it, and the analyzer gives up sooner in a long function:
# `./dev tidy` checks all, and in full.
option(LUM_TIDY "Check with clang-tidy while compiling" OFF)
if(LUM_TIDY)
  find_program(LUM_CLANG_TIDY clang-tidy-14 REQUIRED)
  set(CMAKE_CXX_CLANG_TIDY ${LUM_CLANG_TIDY} --quiet)
  foreach(word -analyzer-config max-nodes=50000)
    list(APPEND CMAKE_CXX_CLANG_TIDY --extra-arg=-Xclang --extra-arg=${word})
  endforeach()
  set(CMAKE_C_CLANG_TIDY ${CMAKE_CXX_CLANG_TIDY})
endif()

# liblog lies beside the system's own directories on Debian: headers and library are found by hand.
find_path(LIBLOG_INCLUDE_DIR android/log.h PATHS /usr/include/android REQUIRED)
find_library(LIBLOG_LIBRARY log PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED)
add_library(lum_liblog INTERFACE)
target_include_directories(lum_liblog SYSTEM INTERFACE ${LIBLOG_INCLUDE_DIR})
if(NOT ANDROID)
  # Debian's liblog exports functions of std::string that, on ARM, no exception gets through. The C++
  # library's have to be found before them.
  target_link_libraries(lum_liblog INTERFACE $<$<LINK_LANGUAGE:CXX>:stdc++>)
endif()
target_link_libraries(lum_liblog INTERFACE ${LIBLOG_LIBRARY})

# lum_each_variant(FUNCTION): calls it with "", what to add to the names of the targets that have
# LUM_SDF_GUARDED as it was asked for, and with "_guarded" and "_unguarded" if LUM_ALSO_GUARDED and
# LUM_ALSO_UNGUARDED ask for those.
function(lum_each_variant function)
  cmake_language(CALL ${function} "")
  if(LUM_ALSO_GUARDED)
    cmake_language(CALL ${function} _guarded)
  endif()
  if(LUM_ALSO_UNGUARDED)
    cmake_language(CALL ${function} _unguarded)
  endif()
endfunction()

# lum_library(NAME SOURCES...): a static module of the library.
function(lum_library name)
  add_library(${name} STATIC ${ARGN})
  target_link_libraries(${name} PRIVATE lum_tree lum_locks lum_sections)
endfunction()
