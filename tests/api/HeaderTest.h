// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

// What one of the text functions returns, in C and in C++.
static inline const char* textOf(int which, int value) {
    switch (which) {
        case 0: return sdfStatusV2Text(value);
        case 1: return sdfStatusText((status_e)value);
        case 2: return sdfSlotIdText((SdfSlotID)value);
        case 3: return sdfLatencyLvlText((SdfLatencyLvl)value);
        case 4: return sdfOodText((SdfOod)value);
        case 5: return sdfProtocolText((SdfProtocol)value);
        case 6: return sdfFilterAppTypeText((SdfFilterAppType)value);
        default: return sdfFilterStatusText((SdfFilterStatus)value);
    }
}

#ifdef __cplusplus
extern "C" {
#endif

// Calls one of the exported functions from C, with valid arguments, in the order of the header:
// 0 createSdfClient, 1 destroySdfClient, 2 lum_sdf_enable, 3 lum_sdf_disable, 4 sdfSetLatencyLvl to
// 22 sdfDeleteAllFilter. Those that take a filter's id are given `filter`.
#define SDF_FUNCTIONS_SIZE 23
long long callFromC(int which, unsigned int filter);

// textOf() as C.
const char* textFromC(int which, int value);

#ifdef __cplusplus
}
#endif
