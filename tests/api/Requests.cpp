// SPDX-License-Identifier: Apache-2.0
#include "tests/api/Requests.h"

#include <sys/socket.h>

#include "api/ClientSdfUtils.h"

namespace {

sockaddr_storage makeAddress(const std::string& text, int port) {
    const int family = ClientSdfUtils::ipVersion(text) == 4 ? AF_INET : AF_INET6;
    return ClientSdfUtils::convertToSockAddrStorage(family, text, port);
}

}  // namespace

SdfAddFilterInfo makeFlow(const std::string& source, int sourcePort, const std::string& destination,
                          int destinationPort) {
    SdfAddFilterInfo info{};
    info.src_addr = makeAddress(source, sourcePort);
    info.dest_addr = makeAddress(destination, destinationPort);
    info.first_level = SDF_LATENCY_LVL_1;
    info.second_level = SDF_LATENCY_LVL_1;
    info.ood = SDF_OOD_UNSPECIFIED_LVL;
    return info;
}

long long setLatency(SdfEffectiveLevelsCb cb) {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false, cb);
}

const std::vector<Request>& everyRequest() {
    static const std::vector<Request> requests = {
        {"sdfSetLatencyLvl",
         [] {
             return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_6, SDF_LATENCY_LVL_3, true,
                                     app::onLevels);
         },
         "5: 08 01 10 07 1A 0A 1A 08 08 01 10 05 18 02 20 01", true, "latencyCbs"},
        {"sdfUpdateLatencyLvl",
         [] { return sdfUpdateLatencyLvl(kFilterId, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_6); },
         "5: 08 06 1A 09 3A 07 08 AC 02 10 01 18 05", false, ""},
        {"sdfUpdateOod", [] { return sdfUpdateOod(kFilterId, SDF_OOD_DISABLED_LVL); },
         "5: 08 07 1A 07 42 05 08 AC 02 10 02", false, ""},
        {"sdfUpdatePdcpTimer", [] { return sdfUpdatePdcpTimer(kFilterId, 100); },
         "5: 08 08 1A 07 4A 05 08 AC 02 10 64", false, ""},
        {"sdfUpdateTargetDscp", [] { return sdfUpdateTargetDscp(kFilterId, 46); },
         "5: 08 12 1A 08 82 01 05 08 AC 02 10 2E", false, ""},
        {"sdfUpdateDdsOod", [] { return sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL); },
         "5: 08 0B 1A 04 5A 02 08 01", false, ""},
        {"sdfUpdateDdsPdcpTimer", [] { return sdfUpdateDdsPdcpTimer(100); },
         "5: 08 0C 1A 04 62 02 08 64", false, ""},
        {"sdfEnHighPerfGaming", [] { return sdfEnHighPerfGaming(true); },
         "5: 08 0D 1A 04 6A 02 08 01", false, ""},
        {"sdfPrioritizeData", [] { return sdfPrioritizeData(SDF_SLOT_ID_SECOND, true); },
         "5: 08 0E 1A 06 72 04 08 02 10 01", false, ""},
        {"sdfPrioritizeDds", [] { return sdfPrioritizeDds(true); }, "5: 08 02 1A 04 22 02 08 01",
         false, ""},
        {"sdfRegPriorityQueueReports",
         [] { return sdfRegPriorityQueueReports(true, 300, app::onReports); },
         "5: 08 0F 1A 07 7A 05 08 01 10 AC 02", false, "reports"},
        {"sdfGetPriorityQueueReport", [] { return sdfGetPriorityQueueReport(app::onReport); },
         "5: 08 10", false, "getReport"},
        {"sdfRegAutoFilterInfo", [] { return sdfRegAutoFilterInfo(app::onAuto); }, "", false,
         "autoFilter"},
        {"sdfRegFilterStatus", [] { return sdfRegFilterStatus(app::onFilterStatus); },
         "5: 08 03 1A 04 2A 02 08 01", false, "filterStatus"},
        {"sdfAddFilter", [] { return sdfAddFilter(makeFlow(), app::onAdded); },
         "5: 08 04 10 07 1A 16 32 14 0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 60 01",
         true, "filterCbs"},
        {"sdfAddFilterV2", [] { return sdfAddFilterV2(makeFlow(), 0, app::onAdded); },
         "5: 08 04 10 07 1A 19 32 17 0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 60 01"
         " 90 01 00",
         true, "filterCbs"},
        {"sdfGetFilters", [] { return sdfGetFilters(app::onFilter); }, "5: 08 05", false,
         "getFilters"},
        {"sdfDeleteFilter", [] { return sdfDeleteFilter(kFilterId); },
         "5: 08 09 1A 05 52 03 08 AC 02", false, ""},
        {"sdfDeleteAllFilter", [] { return sdfDeleteAllFilter(); }, "5: 08 0A", false, ""},
    };
    return requests;
}
