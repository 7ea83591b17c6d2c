# SPDX-License-Identifier: Apache-2.0
# Components: the targets without LumSdfSdk::, lum_sdf_sdk and lum_sdf_session. All that is installed is
# there in any case; a component that is asked for and was not built makes this package not found.
#
# The prefix is found from where the files lie, which is not where a link to their directory leads from:
# on systems where /lib is one to /usr/lib, they may have been found through it.
file(REAL_PATH "${CMAKE_CURRENT_LIST_DIR}" LumSdfSdk_folder)
include("${LumSdfSdk_folder}/LumSdfSdkTargets.cmake")
unset(LumSdfSdk_folder)

foreach(component IN LISTS LumSdfSdk_FIND_COMPONENTS)
  if(TARGET LumSdfSdk::${component})
    set(LumSdfSdk_${component}_FOUND TRUE)
  elseif(LumSdfSdk_FIND_REQUIRED_${component})
    set(LumSdfSdk_FOUND FALSE)
    string(CONCAT LumSdfSdk_NOT_FOUND_MESSAGE
                  "The installed LumSdfSdk was built without ${component} (lum_sdf_session needs LUM_SDF_GUARDED)")
  endif()
endforeach()
