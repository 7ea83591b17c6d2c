# SPDX-License-Identifier: Apache-2.0
find_package(GTest REQUIRED)
include(GoogleTest)

# lum_emulator_script(PROGRAM VARIABLE): writes a script that runs the program, which is for another
# processor, in its emulator (QEMU's), under the same process number and the script's own name, which
# it can start again; sets the variable to the script's path.
function(lum_emulator_script program variable)
  set(script ${PROJECT_BINARY_DIR}/run/${program})
  set(words ${CMAKE_CROSSCOMPILING_EMULATOR} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${program})
  list(TRANSFORM words REPLACE "'" "'\\\\''")
  list(TRANSFORM words REPLACE "(.+)" "'\\1'")
  list(POP_BACK words path)
  list(JOIN words " " emulator)
  file(WRITE ${script} "#!/bin/sh\nexec ${emulator} -0 \"$0\" ${path} \"$@\"\n")
  file(CHMOD ${script} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  set(${variable} ${script} PARENT_SCOPE)
endfunction()

# lum_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label] [TIMEOUT seconds]
#          [ARGUMENTS argument...] [LONG | BUSY] [TOGETHER | UNGUARDED_TOO]): one GoogleTest program;
# every case of it becomes a CTest test in a process of its own, named <prefix><program>.<suite>.<case>.
# LONG: some cases wait or run so long that all are started before the other tests. BUSY: these compute
# all the time, too, and take the place of four that mostly wait. TOGETHER: all cases run in one process,
# as the test <prefix><program>: for many that leave nothing behind and are over sooner than a process
# starts. UNGUARDED_TOO: if LUM_ALSO_UNGUARDED, all but the suites named Guarded... are run once more, as
# <prefix><program>_unguarded.<suite>.<case>, with the unguarded liblum_sdf_sdk.so in the place of the
# other, for the test and what it starts.
function(lum_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "LONG;BUSY;TOGETHER;UNGUARDED_TOO" "TIMEOUT"
                        "SOURCES;LIBRARIES;LABELS;ARGUMENTS")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} lum_tree GTest::gtest GTest::gtest_main)
  if(NOT arg_SOURCES MATCHES "\\.c(;|$)")  # CMake wants one for each language
    target_precompile_headers(${name} REUSE_FROM lum_test_headers)
  endif()
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    # Some death tests start the program anew, by the name it was started under: the script's.
    lum_emulator_script(${name} script)
    set_target_properties(
      ${name} PROPERTIES CROSSCOMPILING_EMULATOR "${CMAKE_CROSSCOMPILING_EMULATOR};-0;${script}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 600)
  endif()
  if(arg_LABELS)
    list(LENGTH arg_LABELS count)
    if(count GREATER 1)
      # A list does not get through it whole: the second would be taken for a property's name.
      message(FATAL_ERROR "lum_test(${name}): gtest_discover_tests() can give one label only")
    endif()
    set(labels LABELS ${arg_LABELS})
  endif()
  set(properties TIMEOUT ${arg_TIMEOUT} ${labels})
  # So that the others fill the places beside it.
  if(arg_LONG OR arg_BUSY)
    list(APPEND properties COST 1000)
  endif()
  if(arg_BUSY)
    list(APPEND properties PROCESSORS 4)
  endif()
  if(arg_TOGETHER)
    add_test(NAME ${LUM_TEST_PREFIX}${name} COMMAND ${name} ${arg_ARGUMENTS})
    set_tests_properties(${LUM_TEST_PREFIX}${name} PROPERTIES ${properties})
    return()
  endif()
  gtest_discover_tests(
    ${name}
    TEST_PREFIX "${LUM_TEST_PREFIX}${name}."
    EXTRA_ARGS ${arg_ARGUMENTS}
    DISCOVERY_TIMEOUT 60
    PROPERTIES ${properties})
  if(arg_UNGUARDED_TOO AND LUM_ALSO_UNGUARDED)
    add_dependencies(${name} lum_sdf_sdk_unguarded)
    add_custom_target(${name}_unguarded DEPENDS ${name})
    gtest_discover_tests(
      ${name}
      TEST_PREFIX "${LUM_TEST_PREFIX}${name}_unguarded."
      TEST_FILTER "-Guarded*"
      EXTRA_ARGS ${arg_ARGUMENTS}
      DISCOVERY_TIMEOUT 60
      PROPERTIES ${properties}
                 ENVIRONMENT LD_LIBRARY_PATH=${CMAKE_LIBRARY_OUTPUT_DIRECTORY}_unguarded)
  endif()
endfunction()

# lum_test_starts(TEST [MACRO PROGRAM]...): the test starts these programs of this tree; each macro
# is its program's path, or that of a script which runs it in its emulator.
function(lum_test_starts test)
  while(ARGN)
    list(POP_FRONT ARGN macro program)
    set(path $<TARGET_FILE:${program}>)
    if(CMAKE_CROSSCOMPILING_EMULATOR)
      lum_emulator_script(${program} path)
    endif()
    target_compile_definitions(${test} PRIVATE ${macro}="${path}")
    add_dependencies(${test} ${program})
  endwhile()
endfunction()

# lum_program_test(NAME COMMAND word... [NEEDS target...] [LABELS label...] [TIMEOUT seconds]): a test
# that is a command, judged by its exit status; building NAME builds what it needs.
function(lum_program_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "COMMAND;NEEDS;LABELS")
  add_custom_target(${name})
  if(arg_NEEDS)
    add_dependencies(${name} ${arg_NEEDS})
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 600)
  endif()
  add_test(NAME ${LUM_TEST_PREFIX}${name} COMMAND ${arg_COMMAND})
  set_tests_properties(
    ${LUM_TEST_PREFIX}${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
