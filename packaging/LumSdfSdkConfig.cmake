# SPDX-License-Identifier: Apache-2.0
# The prefix is found from where the files lie, which is not where a link to their directory leads from:
# on systems where /lib is one to /usr/lib, they may have been found through it.
file(REAL_PATH "${CMAKE_CURRENT_LIST_DIR}" LumSdfSdk_folder)
include("${LumSdfSdk_folder}/LumSdfSdkTargets.cmake")
unset(LumSdfSdk_folder)
