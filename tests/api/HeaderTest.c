// SPDX-License-Identifier: Apache-2.0
// The public header as C11, included first and twice.
#include "tests/api/HeaderTest.h"

#include <arpa/inet.h>
#include <lum_sdf_sdk.h>
#include <netinet/in.h>
#include <string.h>

// As in C++, wherever the compiler has enumerations of a fixed type. gcc 12 has none in C.
#if defined(__clang__) || __STDC_VERSION__ >= 202311L
_Static_assert((enum SdfStatusV2) - 1 < 0 && (status_e)-1 < 0 && (SdfSlotID)-1 < 0 &&
                   (SdfLatencyLvl)-1 < 0 && (SdfOod)-1 < 0 && (SdfProtocol)-1 < 0 &&
                   (SdfFilterAppType)-1 < 0 && (SdfFilterStatus)-1 < 0,
               "enumerations are signed");
#endif

#pragma GCC diagnostic ignored "-Wunused-parameter"
static void onStatus(int status) {}
static void onLegacy(status_e status) {}
static void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {}
static void onFilterStatus(unsigned int filter, SdfFilterStatus status) {}
static void onFilter(unsigned int filter, SdfFilterStatus status, SdfLatencyLvl first,
                     SdfLatencyLvl second, SdfOod ood, unsigned int pdcpTimer) {}
static void onReport(unsigned int key, uint64_t first, uint64_t second) {}
static void onAuto(unsigned int filter, SdfAddFilterInfo info) {}

static SdfAddFilterInfo makeFlow(void) {
    struct sockaddr_in address = {0};
    SdfAddFilterInfo info = {0};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    memcpy(&info.src_addr, &address, sizeof address);
    memcpy(&info.dest_addr, &address, sizeof address);
    info.first_level = SDF_LATENCY_LVL_1;
    info.second_level = SDF_LATENCY_LVL_6;
    info.ood = SDF_OOD_DISABLED_LVL;
    return info;
}

long long callFromC(int which, unsigned int filter) {
    const SdfLatencyLvl level = SDF_LATENCY_LVL_1;
    switch (which) {
        case 0: return createSdfClient(onStatus);
        case 1: return destroySdfClient();
        case 2: return lum_sdf_enable(onLegacy);
        case 3: return lum_sdf_disable();
        case 4: return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, level, level, true, onLevels);
        case 5: return sdfUpdateLatencyLvl(filter, level, level);
        case 6: return sdfUpdateOod(filter, SDF_OOD_ENABLED_LVL);
        case 7: return sdfUpdatePdcpTimer(filter, 1);
        case 8: return sdfUpdateTargetDscp(filter, 1);
        case 9: return sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL);
        case 10: return sdfUpdateDdsPdcpTimer(1);
        case 11: return sdfEnHighPerfGaming(true);
        case 12: return sdfPrioritizeData(SDF_SLOT_ID_UNSPECIFIED, true);
        case 13: return sdfPrioritizeDds(true);
        case 14: return sdfRegPriorityQueueReports(true, 1, onReport);
        case 15: return sdfGetPriorityQueueReport(onReport);
        case 16: return sdfRegAutoFilterInfo(onAuto);
        case 17: return sdfRegFilterStatus(onFilterStatus);
        case 18: return sdfAddFilter(makeFlow(), onFilterStatus);
        case 19: return sdfAddFilterV2(makeFlow(), 255, onFilterStatus);
        case 20: return sdfGetFilters(onFilter);
        case 21: return sdfDeleteFilter(filter);
        default: return sdfDeleteAllFilter();
    }
}

const char* textFromC(int which, int value) {
    return textOf(which, value);
}
