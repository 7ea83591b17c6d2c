# SPDX-License-Identifier: Apache-2.0
# C++ code generated from .aidl files at build time.

set(LUM_AIDL_COMPILER "" CACHE FILEPATH
    "The platform's interface compiler, where the host has it; empty: the one in tools/aidl")

# lum_aidl_library(NAME PACKAGE package TYPES type...): a static library of the code of each type,
# generated from <package as directories>/<type>.aidl in the current directory. Its headers are included
# as "aidl/<package as directories>/<type>.h".
function(lum_aidl_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PACKAGE" "TYPES")
  string(REPLACE "." "/" directory ${arg_PACKAGE})
  set(header_dir ${CMAKE_CURRENT_BINARY_DIR}/${name}/include)
  set(source_dir ${CMAKE_CURRENT_BINARY_DIR}/${name}/src)

  # Toolchain files may have variables of the same names.
  set(inputs "")
  set(sources "")
  set(headers "")
  foreach(type IN LISTS arg_TYPES)
    string(REGEX REPLACE "^I([A-Z])" "\\1" stem ${type})
    list(APPEND inputs ${CMAKE_CURRENT_SOURCE_DIR}/${directory}/${type}.aidl)
    list(APPEND sources ${source_dir}/${directory}/${type}.cpp)
    list(APPEND headers ${header_dir}/aidl/${directory}/${type}.h
         ${header_dir}/aidl/${directory}/Bp${stem}.h ${header_dir}/aidl/${directory}/Bn${stem}.h)
  endforeach()

  if(LUM_AIDL_COMPILER)
    set(compiler ${LUM_AIDL_COMPILER})
    set(compiler_files ${LUM_AIDL_COMPILER})
  else()
    # Debian's own interpreter, the one that has Debian's modules.
    set(compiler /usr/bin/python3 ${PROJECT_SOURCE_DIR}/tools/aidl/aidlc.py)
    file(GLOB_RECURSE compiler_files CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/tools/aidl/*.py ${PROJECT_SOURCE_DIR}/tools/aidl/*.lark
         ${PROJECT_SOURCE_DIR}/tools/aidl/*.j2)
  endif()
  add_custom_command(
    OUTPUT ${sources} ${headers}
    COMMAND ${compiler} --lang=ndk --structured -I ${CMAKE_CURRENT_SOURCE_DIR}
            -o ${source_dir} -h ${header_dir} ${inputs}
    DEPENDS ${inputs} ${compiler_files}
    COMMENT "Generating the code of ${arg_PACKAGE}"
    VERBATIM)

  add_library(${name} STATIC ${sources} ${headers})
  target_include_directories(${name} PRIVATE ${header_dir})
  target_include_directories(${name} SYSTEM INTERFACE ${header_dir})
  set_target_properties(${name} PROPERTIES CXX_CLANG_TIDY "")
  target_link_libraries(${name} PUBLIC binder_ndk PRIVATE lum_sections)
  if(NOT LUM_AIDL_COMPILER)
    target_link_libraries(${name} PRIVATE lum_warnings)
  endif()
endfunction()
