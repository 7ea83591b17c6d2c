# SPDX-License-Identifier: Apache-2.0
# C++ glue made from .aidl files at build time.

set(LUM_AIDL_COMPILER "" CACHE FILEPATH
    "The platform's interface compiler, where the host has it; empty: the one in tools/aidl")

# lum_aidl_library(NAME PACKAGE package TYPES type...): a static library of the glue of each type,
# made from <package as folders>/<type>.aidl in the current folder. Its headers are included as
# "aidl/<package as folders>/<type>.h".
function(lum_aidl_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PACKAGE" "TYPES")
  string(REPLACE "." "/" folder ${arg_PACKAGE})
  set(header_dir ${CMAKE_CURRENT_BINARY_DIR}/${name}/include)
  set(source_dir ${CMAKE_CURRENT_BINARY_DIR}/${name}/src)

  # Toolchain files may have variables of the same names.
  set(inputs "")
  set(sources "")
  set(headers "")
  foreach(type IN LISTS arg_TYPES)
    string(REGEX REPLACE "^I([A-Z])" "\\1" stem ${type})
    list(APPEND inputs ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/${type}.aidl)
    list(APPEND sources ${source_dir}/${folder}/${type}.cpp)
    list(APPEND headers ${header_dir}/aidl/${folder}/${type}.h
         ${header_dir}/aidl/${folder}/Bp${stem}.h ${header_dir}/aidl/${folder}/Bn${stem}.h)
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
    COMMENT "Making the glue of ${arg_PACKAGE}"
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
