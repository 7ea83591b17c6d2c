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

// textOf() as C.
const char* textFromC(int which, int value);

#ifdef __cplusplus
}
#endif
