// SPDX-License-Identifier: Apache-2.0
// The public header as C11, included first and twice.
#include "tests/api/HeaderTest.h"

#include <stddef.h>

#include "api/lum_sdf_sdk.h"

#define EXPECTED(what) _Static_assert(what, #what)

EXPECTED(sizeof(status_e) == 4);
EXPECTED(sizeof(SdfSlotID) == 4);
EXPECTED(sizeof(SdfLatencyLvl) == 4);
EXPECTED(sizeof(SdfOod) == 4);
EXPECTED(sizeof(SdfProtocol) == 4);
EXPECTED(sizeof(SdfFilterAppType) == 4);
EXPECTED(sizeof(SdfFilterStatus) == 4);

const size_t kLayoutInC[SDF_LAYOUT_SIZE] = {SDF_LAYOUT};

static void onStatus(int status) {
    (void)status;
}
static void onLegacy(status_e status) {
    (void)status;
}
static void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    (void)id;
    (void)first;
    (void)second;
}

long long callFromC(int which) {
    switch (which) {
        case 0: return createSdfClient(onStatus);
        case 1: return destroySdfClient();
        case 2: return lum_sdf_enable(onLegacy);
        case 3: return lum_sdf_disable();
        default:
            return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6, true,
                                    onLevels);
    }
}
