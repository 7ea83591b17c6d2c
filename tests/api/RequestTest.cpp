// SPDX-License-Identifier: Apache-2.0
// The request functions from their checks to the event that they post; those that add filters see
// AddFilterTest.cpp too, sdfSetLatencyLvl() LatencyTest.cpp.
#include <gtest/gtest.h>

#include <functional>

#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"

namespace {

using Ids = std::vector<unsigned int>;
using Texts = std::vector<std::string>;
using Call = std::function<long long()>;

constexpr unsigned int kUnknownId = 301;

// A call with arguments that are not valid.
struct Refused {
    std::string what;
    Call call;
};

// Values that no enumeration has among its valid ones, first those at their ends.
template <typename E>
std::vector<E> outside(int32_t below, int32_t above) {
    std::vector<E> values;
    for (const int32_t value : {below, above, INT32_MIN, INT32_MAX, -2, 33}) {
        values.push_back(static_cast<E>(value));
    }
    return values;
}

const SdfLatencyLvl kL1 = SDF_LATENCY_LVL_1;
const SdfOod kOod = SDF_OOD_UNSPECIFIED_LVL;

// Each argument wrong on its own, and all pairs of wrong ones.
std::vector<Refused> refusedCalls() {
    std::vector<Refused> calls;
    const auto add = [&calls](const std::string& what, const auto& call) {
        calls.push_back({what, call});
    };
    for (const auto level : outside<SdfLatencyLvl>(0, 7)) {
        const std::string text = std::to_string(level);
        add("sdfSetLatencyLvl: first level " + text,
            [=] { return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, level, kL1, false, app::onLevels); });
        add("sdfSetLatencyLvl: second level " + text,
            [=] { return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, kL1, level, false, app::onLevels); });
        add("sdfSetLatencyLvl: both levels " + text, [=] {
            return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, level, level, false, app::onLevels);
        });
        add("sdfSetLatencyLvl: no callback, first level " + text,
            [=] { return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, level, kL1, false, nullptr); });
        add("sdfSetLatencyLvl: no callback, second level " + text,
            [=] { return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, kL1, level, false, nullptr); });
        add("sdfUpdateLatencyLvl: first level " + text,
            [=] { return sdfUpdateLatencyLvl(kFilterId, level, kL1); });
        add("sdfUpdateLatencyLvl: second level " + text,
            [=] { return sdfUpdateLatencyLvl(kFilterId, kL1, level); });
        add("sdfUpdateLatencyLvl: both levels " + text,
            [=] { return sdfUpdateLatencyLvl(kFilterId, level, level); });
        add("sdfUpdateLatencyLvl: unknown filter, first level " + text,
            [=] { return sdfUpdateLatencyLvl(kUnknownId, level, kL1); });
        add("sdfUpdateLatencyLvl: unknown filter, second level " + text,
            [=] { return sdfUpdateLatencyLvl(kUnknownId, kL1, level); });
    }
    for (const auto slot : outside<SdfSlotID>(-2, 2)) {
        const std::string text = std::to_string(slot);
        add("sdfSetLatencyLvl: slot " + text,
            [=] { return sdfSetLatencyLvl(slot, kL1, kL1, false, app::onLevels); });
        add("sdfSetLatencyLvl: no callback, slot " + text,
            [=] { return sdfSetLatencyLvl(slot, kL1, kL1, false, nullptr); });
        add("sdfSetLatencyLvl: first level 0, slot " + text,
            [=] { return sdfSetLatencyLvl(slot, SdfLatencyLvl{}, kL1, false, app::onLevels); });
        add("sdfSetLatencyLvl: second level 0, slot " + text,
            [=] { return sdfSetLatencyLvl(slot, kL1, SdfLatencyLvl{}, false, app::onLevels); });
        add("sdfPrioritizeData: slot " + text, [=] { return sdfPrioritizeData(slot, true); });
    }
    for (const auto ood : outside<SdfOod>(0, 4)) {
        const std::string text = std::to_string(ood);
        add("sdfUpdateOod: " + text, [=] { return sdfUpdateOod(kFilterId, ood); });
        add("sdfUpdateOod: unknown filter, " + text, [=] { return sdfUpdateOod(kUnknownId, ood); });
        add("sdfUpdateDdsOod: " + text, [=] { return sdfUpdateDdsOod(ood); });
    }
    for (const unsigned int id : {kUnknownId, 0U, UINT32_MAX}) {
        const std::string text = ": filter " + std::to_string(id);
        add("sdfUpdateLatencyLvl" + text, [=] { return sdfUpdateLatencyLvl(id, kL1, kL1); });
        add("sdfUpdateOod" + text, [=] { return sdfUpdateOod(id, kOod); });
        add("sdfUpdatePdcpTimer" + text, [=] { return sdfUpdatePdcpTimer(id, 1); });
        add("sdfUpdateTargetDscp" + text, [=] { return sdfUpdateTargetDscp(id, 1); });
        add("sdfDeleteFilter" + text, [=] { return sdfDeleteFilter(id); });
    }
    add("sdfSetLatencyLvl: no callback",
        [] { return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, kL1, kL1, false, nullptr); });
    add("sdfRegPriorityQueueReports: no callback",
        [] { return sdfRegPriorityQueueReports(false, 1, nullptr); });
    add("sdfGetPriorityQueueReport: no callback",
        [] { return sdfGetPriorityQueueReport(nullptr); });
    add("sdfRegAutoFilterInfo: no callback", [] { return sdfRegAutoFilterInfo(nullptr); });
    add("sdfRegFilterStatus: no callback", [] { return sdfRegFilterStatus(nullptr); });
    add("sdfGetFilters: no callback", [] { return sdfGetFilters(nullptr); });
    return calls;
}

// Calls of the functions that add filters with arguments that are not valid: these look for the
// service first.
std::vector<Refused> refusedAdds() {
    return {
        {"sdfAddFilter: no callback", [] { return sdfAddFilter(makeFlow(), nullptr); }},
        {"sdfAddFilter: empty", [] { return sdfAddFilter(SdfAddFilterInfo{}, app::onAdded); }},
        {"sdfAddFilter: empty, no callback",
         [] { return sdfAddFilter(SdfAddFilterInfo{}, nullptr); }},
        {"sdfAddFilterV2: no callback", [] { return sdfAddFilterV2(makeFlow(), 1, nullptr); }},
        {"sdfAddFilterV2: empty", [] { return sdfAddFilterV2({}, 1, app::onAdded); }},
        {"sdfAddFilterV2: empty, no callback", [] { return sdfAddFilterV2({}, 1, nullptr); }},
    };
}

class RequestTest : public ClientTest {
  protected:
    // The service up, kFilterId confirmed, the next id to draw is 7.
    void SetUp() override {
        startUp();
        client().mFilterIds = {4, kFilterId, 5};
        scriptRand({7});
    }

    // The call is refused with `code`, and nothing has come of it.
    static void expectRefused(const std::string& what, const Call& call, long long code) {
        const ClientState before;
        EXPECT_EQ(call(), code) << what;
        EXPECT_EQ(ClientState().differences(before), "") << what;
        EXPECT_EQ(sdk().transport->takeText(), Texts{}) << what;
        EXPECT_EQ(app::takeCalls(), Calls{}) << what;
    }

    // Every call above, and every valid one, is refused with -5.
    static void expectAllRefusedFirst() {
        for (const Request& request : everyRequest()) {
            expectRefused(request.name, request.call, -5);
        }
        for (const auto& [what, call] : refusedCalls()) expectRefused(what, call, -5);
        for (const auto& [what, call] : refusedAdds()) expectRefused(what, call, -5);
    }
};

TEST_F(RequestTest, WithoutAClient) {
    ASSERT_EQ(destroySdfClient(), 0);
    sdk().transport->take();
    expectAllRefusedFirst();
}

TEST_F(RequestTest, WithoutATransport) {
    ASSERT_EQ(destroySdfClient(), 0);
    const auto transport = std::exchange(sdk().transport, nullptr);
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    sdk().transport = transport;
    transport->take();
    for (const bool up : {false, true}) {
        client().mServiceUp = up;
        expectAllRefusedFirst();
    }
}

TEST_F(RequestTest, InvalidArgumentsGoBeforeServiceDown) {
    for (const bool up : {true, false}) {
        client().mServiceUp = up;
        for (const auto& [what, call] : refusedCalls()) {
            expectRefused(what + (up ? "" : ", service down"), call, -2);
        }
    }
}

TEST_F(RequestTest, InvalidArgumentsGoBehindServiceDownWhenAdding) {
    for (const auto& [what, call] : refusedAdds()) expectRefused(what, call, -2);
    client().mServiceUp = false;
    for (const auto& [what, call] : refusedAdds()) expectRefused(what, call, -8);
}

TEST_F(RequestTest, ServiceDown) {
    client().mServiceUp = false;
    for (const Request& request : everyRequest()) expectRefused(request.name, request.call, -8);
}

TEST_F(RequestTest, NothingToDelete) {
    client().mFilterIds.clear();
    client().mUsedIds = {1};
    client().mFilterCbs[1] = app::onAdded;
    for (const bool up : {true, false}) {
        client().mServiceUp = up;
        expectRefused("sdfDeleteAllFilter", sdfDeleteAllFilter, -5);
    }
}

// A request that awaits its answer is no filter yet, and neither is one that was refused.
TEST_F(RequestTest, OnlyConfirmedFiltersAreKnown) {
    client().mUsedIds = {kUnknownId};
    client().mFilterCbs[kUnknownId] = app::onAdded;
    client().mLatencyCbs[kUnknownId] = app::onLevels;
    for (const auto& [what, call] : refusedCalls()) expectRefused(what, call, -2);
    client().mFilterIds.push_back(kUnknownId);
    EXPECT_EQ(sdfUpdateOod(kUnknownId, kOod), 0);
    EXPECT_EQ(sdfDeleteFilter(kUnknownId), 0);
}

// What does not draw an id returns 0, and nothing but the id or the callback is recorded.
TEST_F(RequestTest, EveryRequest) {
    for (const Request& request : everyRequest()) {
        SCOPED_TRACE(request.name);
        client().mFilterIds = {4, kFilterId, 5};
        scriptRand({7});
        const ClientState before;
        EXPECT_EQ(request.call(), request.drawsId ? 7 : 0);
        const std::string event = request.event;
        EXPECT_EQ(sdk().transport->takeText(), event.empty() ? Texts{} : Texts{event});
        EXPECT_EQ(app::takeCalls(), Calls{});
        std::string changed = request.drawsId ? "usedIds " : "";
        changed += request.slot;
        if (request.drawsId) changed += " rand";
        if (std::string(request.name).find("Delete") != std::string::npos) changed = "filterIds";
        EXPECT_EQ(ClientState().differences(before), changed);
        client().mUsedIds.clear();
        client().mLatencyCbs.clear();
        client().mFilterCbs.clear();
    }
}

TEST_F(RequestTest, Bytes) {
    const struct {
        Call call;
        const char* event;
    } rows[] = {
        // Zeros on the wire are left out: level 1, "unspecified", false, 0.
        {[] { return sdfUpdateLatencyLvl(kFilterId, kL1, kL1); }, "5: 08 06 1A 05 3A 03 08 AC 02"},
        {[] { return sdfUpdateLatencyLvl(kFilterId, kL1, SDF_LATENCY_LVL_6); },
         "5: 08 06 1A 07 3A 05 08 AC 02 18 05"},
        {[] { return sdfUpdateLatencyLvl(4, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_2); },
         "5: 08 06 1A 08 3A 06 08 04 10 02 18 01"},
        {[] { return sdfUpdateOod(kFilterId, SDF_OOD_UNSPECIFIED_LVL); },
         "5: 08 07 1A 05 42 03 08 AC 02"},
        {[] { return sdfUpdateOod(kFilterId, SDF_OOD_ENABLED_LVL); },
         "5: 08 07 1A 07 42 05 08 AC 02 10 01"},
        {[] { return sdfUpdatePdcpTimer(kFilterId, 0); }, "5: 08 08 1A 05 4A 03 08 AC 02"},
        {[] { return sdfUpdatePdcpTimer(kFilterId, UINT32_MAX); },
         "5: 08 08 1A 0B 4A 09 08 AC 02 10 FF FF FF FF 0F"},
        {[] { return sdfUpdateTargetDscp(kFilterId, 0); }, "5: 08 12 1A 06 82 01 03 08 AC 02"},
        {[] { return sdfUpdateTargetDscp(kFilterId, UINT32_MAX); },
         "5: 08 12 1A 0C 82 01 09 08 AC 02 10 FF FF FF FF 0F"},
        {[] { return sdfUpdateDdsOod(SDF_OOD_UNSPECIFIED_LVL); }, "5: 08 0B 1A 02 5A 00"},
        {[] { return sdfUpdateDdsOod(SDF_OOD_DISABLED_LVL); }, "5: 08 0B 1A 04 5A 02 08 02"},
        {[] { return sdfUpdateDdsPdcpTimer(0); }, "5: 08 0C 1A 02 62 00"},
        {[] { return sdfUpdateDdsPdcpTimer(UINT32_MAX); },
         "5: 08 0C 1A 08 62 06 08 FF FF FF FF 0F"},
        {[] { return sdfEnHighPerfGaming(false); }, "5: 08 0D 1A 02 6A 00"},
        {[] { return sdfPrioritizeData(SDF_SLOT_ID_UNSPECIFIED, false); }, "5: 08 0E 1A 02 72 00"},
        {[] { return sdfPrioritizeData(SDF_SLOT_ID_UNSPECIFIED, true); },
         "5: 08 0E 1A 04 72 02 10 01"},
        {[] { return sdfPrioritizeData(SDF_SLOT_ID_FIRST, false); }, "5: 08 0E 1A 04 72 02 08 01"},
        {[] { return sdfPrioritizeDds(false); }, "5: 08 02 1A 02 22 00"},
        {[] { return sdfRegPriorityQueueReports(false, 0, app::onReports); },
         "5: 08 0F 1A 02 7A 00"},
        {[] { return sdfRegPriorityQueueReports(true, 0, app::onReports); },
         "5: 08 0F 1A 04 7A 02 08 01"},
        {[] { return sdfRegPriorityQueueReports(false, UINT32_MAX, app::onReports); },
         "5: 08 0F 1A 08 7A 06 10 FF FF FF FF 0F"},
        {[] { return sdfDeleteFilter(4); }, "5: 08 09 1A 04 52 02 08 04"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.call(), 0) << row.event;
        EXPECT_EQ(sdk().transport->takeText(), Texts{row.event});
    }
    EXPECT_EQ(scriptedRandLeft(), 1U);
}

TEST_F(RequestTest, RegisteringAgainReplacesTheCallback) {
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 1, app::onReports), 0);
    ASSERT_EQ(sdfGetPriorityQueueReport(app::onReport), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(app::onAuto), 0);
    ASSERT_EQ(sdfRegFilterStatus(app::onFilterStatus), 0);
    ASSERT_EQ(sdfGetFilters(app::onFilter), 0);
    EXPECT_EQ(client().mPriorityQueueReportsCb, app::onReports);
    EXPECT_EQ(client().mGetPriorityQueueReportCb, app::onReport);
    EXPECT_EQ(client().mAutoFilterInfoCb, app::onAuto);
    EXPECT_EQ(client().mFilterStatusCb, app::onFilterStatus);
    EXPECT_EQ(client().mGetFiltersCb, app::onFilter);

    ASSERT_EQ(sdfRegPriorityQueueReports(false, 1, app::onOtherReports), 0);
    ASSERT_EQ(sdfGetPriorityQueueReport(app::onOtherReport), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(app::onOtherAuto), 0);
    ASSERT_EQ(sdfRegFilterStatus(app::onOtherFilterStatus), 0);
    ASSERT_EQ(sdfGetFilters(app::onOtherFilter), 0);
    EXPECT_EQ(client().mPriorityQueueReportsCb, app::onOtherReports);
    EXPECT_EQ(client().mGetPriorityQueueReportCb, app::onOtherReport);
    EXPECT_EQ(client().mAutoFilterInfoCb, app::onOtherAuto);
    EXPECT_EQ(client().mFilterStatusCb, app::onOtherFilterStatus);
    EXPECT_EQ(client().mGetFiltersCb, app::onOtherFilter);
    EXPECT_EQ(sdk().transport->take().size(), 8U);  // the automatic filters are not asked for
}

// A refused registration keeps the callback of an earlier one.
TEST_F(RequestTest, RefusedRegistrationReplacesNothing) {
    for (const Request& request : everyRequest()) ASSERT_GE(request.call(), 0) << request.name;
    sdk().transport->take();
    client().mFilterIds = {kFilterId};
    scriptRand({9});
    for (const auto& [what, call] : refusedCalls()) expectRefused(what, call, -2);
    client().mServiceUp = false;
    for (const Request& request : everyRequest()) expectRefused(request.name, request.call, -8);
    expectRefused(
        "sdfGetFilters", [] { return sdfGetFilters(app::onOtherFilter); }, -8);
    expectRefused(
        "sdfGetPriorityQueueReport", [] { return sdfGetPriorityQueueReport(app::onOtherReport); },
        -8);
    expectRefused(
        "sdfRegPriorityQueueReports",
        [] { return sdfRegPriorityQueueReports(true, 1, app::onOtherReports); }, -8);
    expectRefused(
        "sdfRegAutoFilterInfo", [] { return sdfRegAutoFilterInfo(app::onOtherAuto); }, -8);
    expectRefused(
        "sdfRegFilterStatus", [] { return sdfRegFilterStatus(app::onOtherFilterStatus); }, -8);
}

// The registration is noted, and nobody is asked: the service reports these filters unasked.
TEST_F(RequestTest, AutomaticFiltersAreNotAskedFor) {
    EXPECT_EQ(sdfRegAutoFilterInfo(app::onAuto), 0);
    EXPECT_EQ(client().mAutoFilterInfoCb, app::onAuto);
    EXPECT_EQ(sdk().transport->takeText(), Texts{});
}

TEST_F(RequestTest, DeletedFilterIsGoneAtOnce) {
    client().mFilterIds = {1, kFilterId, 2, kFilterId, 3};
    client().mFilterCbs[kFilterId] = app::onAdded;
    EXPECT_EQ(sdfDeleteFilter(kFilterId), 0);
    EXPECT_EQ(client().mFilterIds, (Ids{1, 2, kFilterId, 3}));  // the first one
    EXPECT_EQ(client().mFilterCbs.count(kFilterId), 1U);
    EXPECT_EQ(sdfDeleteFilter(3), 0);
    EXPECT_EQ(client().mFilterIds, (Ids{1, 2, kFilterId}));
    EXPECT_EQ(sdfDeleteFilter(3), -2);
    EXPECT_EQ(sdfUpdateOod(3, kOod), -2);
    EXPECT_EQ(sdk().transport->takeText(),
              (Texts{"5: 08 09 1A 05 52 03 08 AC 02", "5: 08 09 1A 04 52 02 08 03"}));
}

TEST_F(RequestTest, AllFiltersAreGoneAtOnce) {
    client().mFilterCbs[kFilterId] = app::onAdded;
    client().mUsedIds = {9};
    EXPECT_EQ(sdfDeleteAllFilter(), 0);
    EXPECT_TRUE(client().mFilterIds.empty());
    EXPECT_EQ(client().mFilterCbs.count(kFilterId), 1U);
    EXPECT_EQ(client().mUsedIds, Ids{9});
    EXPECT_EQ(sdfDeleteAllFilter(), -5);
    EXPECT_EQ(sdfDeleteFilter(kFilterId), -2);
    EXPECT_EQ(sdk().transport->takeText(), Texts{"5: 08 0A"});
}

// Removing takes the first of two, and keeps the order of the rest.
TEST_F(RequestTest, FilterIdsOfTheClientObject) {
    client().mFilterIds = {5, 6, 5, 7};
    EXPECT_TRUE(client().isFilterIdValid(7));
    EXPECT_FALSE(client().isFilterIdValid(8));
    client().removeFilterId(8);
    EXPECT_EQ(client().mFilterIds, (Ids{5, 6, 5, 7}));
    client().removeFilterId(5);
    EXPECT_EQ(client().mFilterIds, (Ids{6, 5, 7}));
    client().removeFilterId(7);
    EXPECT_EQ(client().mFilterIds, (Ids{6, 5}));
}

}  // namespace
