// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/Sdf.h"
#include "tests/api/FakeTransport.h"
#include "tests/api/ScriptedRand.h"

// What the library keeps, as it is when this is made; of use after the call that may have changed
// it.
struct ClientState {
    std::shared_ptr<Sdf> instance = Sdf::current();
    SdfStatusV2Cb v2 = nullptr;
    SdfLegacyStatusCb legacy = nullptr;
    std::shared_ptr<SdkClientBase> transport;
    std::vector<unsigned int> usedIds;
    std::vector<unsigned int> filterIds;
    SdfFilterStatusCb filterStatus = nullptr;
    SdfGetFiltersCb getFilters = nullptr;
    SdfPriorityQueueReportCb reports = nullptr;
    SdfPriorityQueueReportCb getReport = nullptr;
    SdfAutoFilterInfoCb autoFilter = nullptr;
    std::map<unsigned int, SdfEffectiveLevelsCb> latencyCbs;
    std::map<unsigned int, SdfFilterStatusCb> filterCbs;
    bool serviceUp = false;
    size_t obtained = FakeSdkClient::get().obtained.size();
    size_t destroyed = FakeSdkClient::get().destroyed.size();
    size_t randLeft = scriptedRandLeft();

    ClientState() {
        if (!instance) return;
        v2 = instance->mStatusCbV2;
        legacy = instance->mLegacyStatusCb;
        transport = instance->transport();
        usedIds = instance->mUsedIds;
        filterIds = instance->mFilterIds;
        filterStatus = instance->mFilterStatusCb;
        getFilters = instance->mGetFiltersCb;
        reports = instance->mPriorityQueueReportsCb;
        getReport = instance->mGetPriorityQueueReportCb;
        autoFilter = instance->mAutoFilterInfoCb;
        latencyCbs = instance->mLatencyCbs;
        filterCbs = instance->mFilterCbs;
        serviceUp = instance->mServiceUp;
    }

    // The names of what differs, empty when nothing does.
    std::string differences(const ClientState& other) const {
        std::string names;
        const auto compare = [&names](const char* name, const auto& mine, const auto& theirs) {
            if (mine != theirs) names += std::string(names.empty() ? "" : " ") + name;
        };
        compare("instance", instance, other.instance);
        compare("v2", v2, other.v2);
        compare("legacy", legacy, other.legacy);
        compare("transport", transport, other.transport);
        compare("usedIds", usedIds, other.usedIds);
        compare("filterIds", filterIds, other.filterIds);
        compare("filterStatus", filterStatus, other.filterStatus);
        compare("getFilters", getFilters, other.getFilters);
        compare("reports", reports, other.reports);
        compare("getReport", getReport, other.getReport);
        compare("autoFilter", autoFilter, other.autoFilter);
        compare("latencyCbs", latencyCbs, other.latencyCbs);
        compare("filterCbs", filterCbs, other.filterCbs);
        compare("serviceUp", serviceUp, other.serviceUp);
        compare("obtained", obtained, other.obtained);
        compare("destroyed", destroyed, other.destroyed);
        compare("rand", randLeft, other.randLeft);
        return names;
    }
};
