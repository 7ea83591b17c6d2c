// SPDX-License-Identifier: Apache-2.0
#include "tests/api/RequestTable.h"

// Function, arguments, event, whether it draws an id, slots.
#define REQUESTS(X)                                                                                \
    X(sdfSetLatencyLvl, (SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_6, SDF_LATENCY_LVL_3, true, onLevels), \
      "5: 08 01 10 07 1A 0A 1A 08 08 01 10 05 18 02 20 01", true, "latencyCbs")                    \
    X(sdfUpdateLatencyLvl, (kFilterId, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_6),                      \
      "5: 08 06 1A 09 3A 07 08 AC 02 10 01 18 05", false, "")                                      \
    X(sdfUpdateOod, (kFilterId, SDF_OOD_DISABLED_LVL), "5: 08 07 1A 07 42 05 08 AC 02 10 02",      \
      false, "")                                                                                   \
    X(sdfUpdatePdcpTimer, (kFilterId, 100), "5: 08 08 1A 07 4A 05 08 AC 02 10 64", false, "")      \
    X(sdfUpdateTargetDscp, (kFilterId, 46), "5: 08 12 1A 08 82 01 05 08 AC 02 10 2E", false, "")   \
    X(sdfUpdateDdsOod, (SDF_OOD_ENABLED_LVL), "5: 08 0B 1A 04 5A 02 08 01", false, "")             \
    X(sdfUpdateDdsPdcpTimer, (100), "5: 08 0C 1A 04 62 02 08 64", false, "")                       \
    X(sdfEnHighPerfGaming, (true), "5: 08 0D 1A 04 6A 02 08 01", false, "")                        \
    X(sdfPrioritizeData, (SDF_SLOT_ID_SECOND, true), "5: 08 0E 1A 06 72 04 08 02 10 01", false,    \
      "")                                                                                          \
    X(sdfPrioritizeDds, (true), "5: 08 02 1A 04 22 02 08 01", false, "")                           \
    X(sdfRegPriorityQueueReports, (true, 300, onReports), "5: 08 0F 1A 07 7A 05 08 01 10 AC 02",   \
      false, "reports")                                                                            \
    X(sdfGetPriorityQueueReport, (onReport), "5: 08 10", false, "getReport")                       \
    X(sdfRegAutoFilterInfo, (onAuto), "", false, "autoFilter")                                     \
    X(sdfRegFilterStatus, (onFilterStatus), "5: 08 03 1A 04 2A 02 08 01", false, "filterStatus")   \
    X(sdfAddFilter, (makePlainFlow(), onAdded),                                                    \
      "5: 08 04 10 07 1A 16 32 14 0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 60 01",    \
      true, "filterCbs")                                                                           \
    X(sdfAddFilterV2, (makePlainFlow(), 0, onAdded),                                               \
      "5: 08 04 10 07 1A 19 32 17 0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 60 01"     \
      " 90 01 00",                                                                                 \
      true, "filterCbs")                                                                           \
    X(sdfGetFilters, (onFilter), "5: 08 05", false, "getFilters")                                  \
    X(sdfDeleteFilter, (kFilterId), "5: 08 09 1A 05 52 03 08 AC 02", false, "")                    \
    X(sdfDeleteAllFilter, (), "5: 08 0A", false, "")

#define CALL(FUNCTION, ARGUMENTS, ...)                    \
    _Static_assert(_Generic(FUNCTION ARGUMENTS, long long \
                            : true, default               \
                            : false),                     \
                   #FUNCTION " returns 64 bits, signed"); \
    static long long call_##FUNCTION(void) {              \
        return FUNCTION ARGUMENTS;                        \
    }
#define ROW(FUNCTION, ARGUMENTS, ...) {#FUNCTION, call_##FUNCTION, __VA_ARGS__},

REQUESTS(CALL)
const struct Request kRequests[] = {REQUESTS(ROW)};
const size_t kRequestCount = sizeof kRequests / sizeof kRequests[0];
