// SPDX-License-Identifier: Apache-2.0
//
// Wants latency levels and prints those in force. Exits with status 0 if they are those asked for.
#include <lum_sdf_session.h>
#include <stdio.h>

static void onLevels(SdfSession* session, SdfSlotID slot, int error, SdfLatencyLvl first,
                     SdfLatencyLvl second, void* user) {
    int* const wrong = user;
    *wrong = slot != SDF_SLOT_ID_SECOND || error != 0 || first != SDF_LATENCY_LVL_3 ||
             second != SDF_LATENCY_LVL_4;
    printf("%d %d\n", first, second);
    sdfSessionStop(session);
}

int main(void) {
    int wrong = 1;
    SdfSession* session = NULL;
    if (sdfSessionOpen(NULL, NULL, &session) != 0) return 2;
    sdfSessionSetLevels(session, SDF_SLOT_ID_SECOND, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, true,
                        onLevels, &wrong);
    sdfSessionRun(session);
    sdfSessionClose(session, 30000);
    return wrong;
}
