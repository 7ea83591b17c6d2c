// SPDX-License-Identifier: Apache-2.0
// The request functions from their checks to the event that they post; those that add filters see
// AddFilterTest.cpp too.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"

namespace {

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
const SdfSlotID kFirst = SDF_SLOT_ID_FIRST;

// Each argument wrong on its own, and pairs of wrong ones.
std::vector<Refused> refusedCalls() {
    std::vector<Refused> calls;
    const auto add = [&calls](const std::string& what, const auto& call) {
        calls.push_back({what, call});
    };
    for (const auto level : outside<SdfLatencyLvl>(0, 7)) {
        const std::string text = std::to_string(level);
        add("sdfSetLatencyLvl: first level " + text,
            [=] { return sdfSetLatencyLvl(kFirst, level, kL1, false, app::onLevels); });
        add("sdfSetLatencyLvl: second level " + text,
            [=] { return sdfSetLatencyLvl(kFirst, kL1, level, false, app::onLevels); });
        add("sdfSetLatencyLvl: no callback, both levels " + text,
            [=] { return sdfSetLatencyLvl(kFirst, level, level, false, nullptr); });
        add("sdfUpdateLatencyLvl: first level " + text,
            [=] { return sdfUpdateLatencyLvl(kFilterId, level, kL1); });
        add("sdfUpdateLatencyLvl: second level " + text,
            [=] { return sdfUpdateLatencyLvl(kFilterId, kL1, level); });
        add("sdfUpdateLatencyLvl: unknown filter, both levels " + text,
            [=] { return sdfUpdateLatencyLvl(kUnknownId, level, level); });
    }
    for (const auto slot : outside<SdfSlotID>(-2, 2)) {
        const std::string text = std::to_string(slot);
        add("sdfSetLatencyLvl: slot " + text,
            [=] { return sdfSetLatencyLvl(slot, kL1, kL1, false, app::onLevels); });
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
    add("sdfSetLatencyLvl: no callback", [] { return setLatency(nullptr); });
    add("sdfRegPriorityQueueReports: no callback",
        [] { return sdfRegPriorityQueueReports(false, 1, nullptr); });
    add("sdfGetPriorityQueueReport: no callback",
        [] { return sdfGetPriorityQueueReport(nullptr); });
    add("sdfRegAutoFilterInfo: no callback", [] { return sdfRegAutoFilterInfo(nullptr); });
    add("sdfRegFilterStatus: no callback", [] { return sdfRegFilterStatus(nullptr); });
    add("sdfGetFilters: no callback", [] { return sdfGetFilters(nullptr); });
    return calls;
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
        EXPECT_EQ(posted(), Texts{}) << what;
        EXPECT_EQ(app::takeCalls(), Calls{}) << what;
    }

    static void expectAllRefused(const std::vector<Refused>& calls, long long code) {
        for (const auto& [what, call] : calls) expectRefused(what, call, code);
    }
    static void expectEveryRequestRefused(long long code) {
        for (const Request& request : everyRequest()) {
            expectRefused(request.name, request.call, code);
        }
    }
};

TEST_F(RequestTest, WithoutAClientOrATransport) {
    ASSERT_EQ(destroySdfClient(), 0);
    const auto transport = std::exchange(sdk().transport, nullptr);
    transport->take();
    const auto expectRefusedFirst = [&] {
        sdk().transport = transport;
        expectEveryRequestRefused(-5);
        expectAllRefused(refusedCalls(), -5);
        expectRefused(
            "add", [] { return sdfAddFilter(SdfAddFilterInfo{}, nullptr); }, -5);
        expectRefused(
            "addV2", [] { return sdfAddFilterV2(SdfAddFilterInfo{}, 1, nullptr); }, -5);
        sdk().transport = nullptr;
    };
    expectRefusedFirst();
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    expectRefusedFirst();
    client().mServiceUp = true;
    expectRefusedFirst();
}

TEST_F(RequestTest, InvalidArgumentsGoBeforeServiceDown) {
    expectAllRefused(refusedCalls(), -2);
    client().mServiceUp = false;
    expectAllRefused(refusedCalls(), -2);
}

TEST_F(RequestTest, ServiceDown) {
    client().mServiceUp = false;
    expectEveryRequestRefused(-8);
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

// A request that awaits its answer is no filter yet.
TEST_F(RequestTest, OnlyConfirmedFiltersAreKnown) {
    client().mUsedIds = {kUnknownId};
    client().mFilterCbs[kUnknownId] = app::onAdded;
    client().mLatencyCbs[kUnknownId] = app::onLevels;
    expectAllRefused(refusedCalls(), -2);
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
        EXPECT_EQ(posted(), event.empty() ? Texts{} : Texts{event});
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

long long setLevels(SdfSlotID slot, int first, int second, bool flag) {
    return sdfSetLatencyLvl(slot, static_cast<SdfLatencyLvl>(first),
                            static_cast<SdfLatencyLvl>(second), flag, app::onLevels);
}

TEST_F(RequestTest, Bytes) {
    constexpr SdfSlotID kAnySlot = SDF_SLOT_ID_UNSPECIFIED;
    constexpr SdfSlotID kSecond = SDF_SLOT_ID_SECOND;
    const struct {
        int id;  // what is drawn and returned; 0: no id is drawn
        Call call;
        const char* event;
    } rows[] = {
        // Zeros on the wire are left out: level 1, "unspecified", false, 0.
        {0x6B8B4567, [] { return setLevels(kAnySlot, 1, 6, true); },
         "5: 08 01 10 E7 8A AD DC 06 1A 06 1A 04 18 05 20 01"},
        {1, [] { return setLevels(kFirst, 6, 1, false); },
         "5: 08 01 10 01 1A 06 1A 04 08 01 10 05"},
        {127, [] { return setLevels(kAnySlot, 1, 1, false); }, "5: 08 01 10 7F 1A 02 1A 00"},
        {INT32_MAX, [] { return setLevels(kSecond, 4, 5, false); },
         "5: 08 01 10 FF FF FF FF 07 1A 08 1A 06 08 02 10 03 18 04"},
        {0, [] { return sdfUpdateLatencyLvl(kFilterId, kL1, kL1); },
         "5: 08 06 1A 05 3A 03 08 AC 02"},
        {0, [] { return sdfUpdateLatencyLvl(kFilterId, kL1, SDF_LATENCY_LVL_6); },
         "5: 08 06 1A 07 3A 05 08 AC 02 18 05"},
        {0, [] { return sdfUpdateOod(kFilterId, SDF_OOD_UNSPECIFIED_LVL); },
         "5: 08 07 1A 05 42 03 08 AC 02"},
        {0, [] { return sdfUpdateOod(kFilterId, SDF_OOD_ENABLED_LVL); },
         "5: 08 07 1A 07 42 05 08 AC 02 10 01"},
        {0, [] { return sdfUpdatePdcpTimer(kFilterId, 0); }, "5: 08 08 1A 05 4A 03 08 AC 02"},
        {0, [] { return sdfUpdatePdcpTimer(kFilterId, UINT32_MAX); },
         "5: 08 08 1A 0B 4A 09 08 AC 02 10 FF FF FF FF 0F"},
        {0, [] { return sdfUpdateTargetDscp(kFilterId, 0); }, "5: 08 12 1A 06 82 01 03 08 AC 02"},
        {0, [] { return sdfUpdateTargetDscp(kFilterId, UINT32_MAX); },
         "5: 08 12 1A 0C 82 01 09 08 AC 02 10 FF FF FF FF 0F"},
        {0, [] { return sdfUpdateDdsOod(SDF_OOD_UNSPECIFIED_LVL); }, "5: 08 0B 1A 02 5A 00"},
        {0, [] { return sdfUpdateDdsOod(SDF_OOD_DISABLED_LVL); }, "5: 08 0B 1A 04 5A 02 08 02"},
        {0, [] { return sdfUpdateDdsPdcpTimer(0); }, "5: 08 0C 1A 02 62 00"},
        {0, [] { return sdfUpdateDdsPdcpTimer(UINT32_MAX); },
         "5: 08 0C 1A 08 62 06 08 FF FF FF FF 0F"},
        {0, [] { return sdfEnHighPerfGaming(false); }, "5: 08 0D 1A 02 6A 00"},
        {0, [] { return sdfPrioritizeData(kAnySlot, false); }, "5: 08 0E 1A 02 72 00"},
        {0, [] { return sdfPrioritizeData(kFirst, false); }, "5: 08 0E 1A 04 72 02 08 01"},
        {0, [] { return sdfPrioritizeDds(false); }, "5: 08 02 1A 02 22 00"},
        {0, [] { return sdfRegPriorityQueueReports(false, 0, app::onReports); },
         "5: 08 0F 1A 02 7A 00"},
        {0, [] { return sdfRegPriorityQueueReports(true, 0, app::onReports); },
         "5: 08 0F 1A 04 7A 02 08 01"},
        {0, [] { return sdfRegPriorityQueueReports(false, UINT32_MAX, app::onReports); },
         "5: 08 0F 1A 08 7A 06 10 FF FF FF FF 0F"},
    };
    for (const auto& row : rows) {
        scriptRand({row.id});
        EXPECT_EQ(row.call(), row.id) << row.event;
        EXPECT_EQ(posted(), Texts{row.event});
        EXPECT_EQ(scriptedRandLeft(), row.id == 0 ? 1U : 0U);
    }
}

// As bindings from other languages may call it.
TEST_F(RequestTest, LevelFlagIsTheLowBitOfWhateverIsPassedForTheBool) {
    using WithNumber =
        long long (*)(SdfSlotID, SdfLatencyLvl, SdfLatencyLvl, unsigned, SdfEffectiveLevelsCb);
    const auto set = reinterpret_cast<WithNumber>(reinterpret_cast<void (*)()>(sdfSetLatencyLvl));
    for (const unsigned flag : {0U, 1U, 2U, 3U, 254U, 255U}) {
        scriptRand({1});
        EXPECT_EQ(set(kFirst, kL1, SDF_LATENCY_LVL_2, flag, app::onLevels), 1);
        EXPECT_EQ(posted(), Texts{flag % 2 == 0 ? "5: 08 01 10 01 1A 06 1A 04 08 01 18 01"
                                                : "5: 08 01 10 01 1A 08 1A 06 08 01 18 01 20 01"})
            << flag;
        client().mUsedIds.clear();
    }
}

// Of both kinds of requests; an entry that there is under the id stays.
TEST_F(RequestTest, EachHasItsOwnIdAndCallback) {
    client().mLatencyCbs[9] = app::onOtherLevels;
    client().mFilterCbs[8] = app::onOtherAdded;
    scriptRand({0, 7, 7, kFilterId, 3, 9, 8, 6});  // 300 is a live filter's
    EXPECT_EQ(setLatency(), 7);
    EXPECT_EQ(setLatency(app::onOtherLevels), 3);
    EXPECT_EQ(setLatency(), 9);
    EXPECT_EQ(sdfAddFilter(makeFlow(), app::onAdded), 8);
    EXPECT_EQ(sdfAddFilterV2(makeFlow(), 1, app::onAdded), 6);
    EXPECT_EQ(client().mUsedIds, (Ids{7, 3, 9, 8, 6}));
    EXPECT_EQ(client().mLatencyCbs,
              (std::map<unsigned int, SdfEffectiveLevelsCb>{
                  {3, app::onOtherLevels}, {7, app::onLevels}, {9, app::onOtherLevels}}));
    EXPECT_EQ(client().mFilterCbs, (std::map<unsigned int, SdfFilterStatusCb>{
                                       {6, app::onAdded}, {8, app::onOtherAdded}}));
    EXPECT_EQ(client().mFilterIds, (Ids{4, kFilterId, 5}));  // nothing is confirmed
    EXPECT_EQ(sdfDeleteFilter(6), -2);
}

// An id that was released may come again.
TEST(Ids, SkipZeroPendingAndFilterIds) {
    Sdf client;
    client.mUsedIds = {4, 6};
    client.mFilterIds = {5, 8};
    scriptRand({0, 4, 5, 6, 8, 0, RAND_MAX, RAND_MAX, 6, 4, 9});
    EXPECT_EQ(client.getNextUniqueId(), static_cast<unsigned int>(RAND_MAX));
    client.forgetRequest(&Sdf::mLatencyCbs, 4);
    EXPECT_EQ(client.getNextUniqueId(), 4U);
    EXPECT_EQ(client.mUsedIds, (Ids{6, RAND_MAX, 4}));
    EXPECT_EQ(client.mFilterIds, (Ids{5, 8}));
    EXPECT_EQ(scriptedRandLeft(), 1U);
}

// A refused registration keeps the callback of an earlier one; an accepted one replaces it.
TEST_F(RequestTest, RegisteringAgainReplacesTheCallback) {
    const std::vector<Refused> again = {
        {"reports", [] { return sdfRegPriorityQueueReports(true, 1, app::onOtherReports); }},
        {"getReport", [] { return sdfGetPriorityQueueReport(app::onOtherReport); }},
        {"autoFilter", [] { return sdfRegAutoFilterInfo(app::onOtherAuto); }},
        {"filterStatus", [] { return sdfRegFilterStatus(app::onOtherFilterStatus); }},
        {"getFilters", [] { return sdfGetFilters(app::onOtherFilter); }},
    };
    for (const Request& request : everyRequest()) ASSERT_GE(request.call(), 0) << request.name;
    client().mFilterIds = {kFilterId};
    sdk().transport->take();
    EXPECT_EQ(client().mPriorityQueueReportsCb, app::onReports);
    EXPECT_EQ(client().mGetPriorityQueueReportCb, app::onReport);
    EXPECT_EQ(client().mAutoFilterInfoCb, app::onAuto);
    EXPECT_EQ(client().mFilterStatusCb, app::onFilterStatus);
    EXPECT_EQ(client().mGetFiltersCb, app::onFilter);

    expectAllRefused(refusedCalls(), -2);
    client().mServiceUp = false;
    expectAllRefused(again, -8);
    client().mServiceUp = true;
    for (const auto& [slot, call] : again) {
        const ClientState before;
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(ClientState().differences(before), slot);
    }
    EXPECT_EQ(sdk().transport->take().size(), 4U);  // the automatic filters are not asked for
}

TEST_F(RequestTest, DeletedFiltersAreGoneAtOnce) {
    client().mFilterIds = {1, kFilterId, 2, kFilterId, 3};
    client().mFilterCbs[kFilterId] = app::onAdded;
    client().mUsedIds = {9};
    EXPECT_EQ(sdfDeleteFilter(kFilterId), 0);
    EXPECT_EQ(client().mFilterIds, (Ids{1, 2, kFilterId, 3}));  // the first one
    EXPECT_EQ(sdfDeleteFilter(3), 0);
    EXPECT_EQ(sdfDeleteFilter(3), -2);
    EXPECT_EQ(sdfUpdateOod(3, kOod), -2);
    client().removeFilterId(8);
    client().removeFilterId(1);
    EXPECT_EQ(client().mFilterIds, (Ids{2, kFilterId}));
    EXPECT_EQ(posted(), (Texts{"5: 08 09 1A 05 52 03 08 AC 02", "5: 08 09 1A 04 52 02 08 03"}));

    EXPECT_EQ(sdfDeleteAllFilter(), 0);
    EXPECT_TRUE(client().mFilterIds.empty());
    EXPECT_EQ(client().mFilterCbs.count(kFilterId), 1U);
    EXPECT_EQ(client().mUsedIds, Ids{9});
    EXPECT_EQ(sdfDeleteAllFilter(), -5);
    EXPECT_EQ(sdfDeleteFilter(kFilterId), -2);
    EXPECT_EQ(posted(), Texts{"5: 08 0A"});
}

}  // namespace
