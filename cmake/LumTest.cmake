# SPDX-License-Identifier: Apache-2.0
find_package(GTest REQUIRED)
include(GoogleTest)

# lum_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...] [TIMEOUT seconds]
#          [ARGUMENTS argument...]): one GoogleTest program; every case of it becomes a CTest test in a
# process of its own, named <prefix><program>.<suite>.<case>.
function(lum_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS;ARGUMENTS")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} lum_warnings GTest::gtest GTest::gtest_main)
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  gtest_discover_tests(
    ${name}
    TEST_PREFIX "${LUM_TEST_PREFIX}${name}."
    EXTRA_ARGS ${arg_ARGUMENTS}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
