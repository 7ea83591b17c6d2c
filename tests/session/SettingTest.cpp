// SPDX-License-Identifier: Apache-2.0
// Settings: what is sent for them, and what their callbacks report.

#include "tests/session/SessionFixture.h"

namespace {

class SettingTest : public SessionTest {
  protected:
    int setLevels(const char* name, SdfLatencyLvl first, SdfSlotID slot = SDF_SLOT_ID_FIRST) {
        return sdfSessionSetLevels(mSession, slot, first, SDF_LATENCY_LVL_2, false, onLevels,
                                   const_cast<char*>(name));
    }
    // What the next client is sent.
    Lines restart() {
        mSdk.status(SDF_V2_SERVICE_DOWN);
        reported();
        waitForNextClient();
        mSdk.take();
        mSdk.up();
        reported();
        return mSdk.take();
    }
};

TEST_F(SettingTest, EachIsSentAtOnceAndTheLastOneAgain) {
    openUp();
    EXPECT_EQ(sdfSessionSetGaming(mSession, true), 0);
    EXPECT_EQ(sdfSessionSetDdsPriority(mSession, true), 0);
    EXPECT_EQ(sdfSessionSetDataPriority(mSession, SDF_SLOT_ID_SECOND, true), 0);
    EXPECT_EQ(sdfSessionSetDdsOod(mSession, SDF_OOD_ENABLED_LVL), 0);
    EXPECT_EQ(sdfSessionSetDdsOod(mSession, SDF_OOD_DISABLED_LVL), 0);
    EXPECT_EQ(sdfSessionSetDdsPdcpTimer(mSession, 0), 0);
    EXPECT_EQ(mSdk.take(), (Lines{"EnHighPerfGaming 1", "PrioritizeDds 1", "PrioritizeData 1 1",
                                  "UpdateDdsOod 2", "UpdateDdsOod 3", "UpdateDdsPdcpTimer 0"}));
    EXPECT_EQ(restart(), (Lines{"RegFilterStatus", "EnHighPerfGaming 1", "PrioritizeData 1 1",
                                "PrioritizeDds 1", "UpdateDdsOod 3", "UpdateDdsPdcpTimer 0"}));
}

TEST_F(SettingTest, ClearedOnesAreTakenBackAndNotSentAgain) {
    openUp();
    sdfSessionSetGaming(mSession, true);
    sdfSessionSetDdsPriority(mSession, true);
    sdfSessionSetDataPriority(mSession, SDF_SLOT_ID_UNSPECIFIED, true);
    sdfSessionSetDdsOod(mSession, SDF_OOD_ENABLED_LVL);
    sdfSessionSetDdsPdcpTimer(mSession, 5);
    setLevels("a", SDF_LATENCY_LVL_1);
    sdfSessionSetQueueReports(mSession, 7, onReport, nullptr);
    sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr);
    mSdk.take();
    sdfSessionSetGaming(mSession, false);
    sdfSessionSetDdsPriority(mSession, false);
    sdfSessionSetDataPriority(mSession, SDF_SLOT_ID_UNSPECIFIED, false);
    sdfSessionSetDdsOod(mSession, SDF_OOD_UNSPECIFIED_LVL);
    EXPECT_EQ(sdfSessionClearDdsPdcpTimer(mSession), 0);
    EXPECT_EQ(sdfSessionClearLevels(mSession, SDF_SLOT_ID_FIRST), 0);
    sdfSessionSetQueueReports(mSession, 7, nullptr, nullptr);
    sdfSessionSetAutoFilters(mSession, nullptr, nullptr);
    EXPECT_EQ(mSdk.take(), (Lines{"EnHighPerfGaming 0", "PrioritizeDds 0", "PrioritizeData -1 0",
                                  "UpdateDdsOod 1", "RegPriorityQueueReports 0 7"}));
    mSdk.levels(1, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2);
    mSdk.report({1});
    mSdk.autoFilter(1);
    EXPECT_EQ(reported(), Lines{});
    EXPECT_EQ(restart(), (Lines{"RegFilterStatus"}));
}

TEST_F(SettingTest, LevelsInForceAreReportedEachTime) {
    openUp();
    EXPECT_EQ(setLevels("a", SDF_LATENCY_LVL_1), 0);
    EXPECT_EQ(setLevels("b", SDF_LATENCY_LVL_3, SDF_SLOT_ID_UNSPECIFIED), 0);
    mSdk.levels(2, SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6);
    mSdk.levels(1, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_4);
    mSdk.levels(1, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_5);
    EXPECT_EQ(reported(), (Lines{"b unspecified success 5 6", "a first success 1 4"}));
    EXPECT_EQ(restart(),
              (Lines{"RegFilterStatus", "SetLatencyLvl -1 3 2 0", "SetLatencyLvl 0 1 2 0"}));
    mSdk.levels(4, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_4);
    EXPECT_EQ(reported(), (Lines{"a first success 1 4"}));
}

TEST_F(SettingTest, OnlyTheLastLevelsOfASlotAreReported) {
    openUp();
    setLevels("a", SDF_LATENCY_LVL_1);
    setLevels("b", SDF_LATENCY_LVL_3);
    mSdk.levels(1, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2);
    mSdk.levels(2, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_2);
    EXPECT_EQ(reported(), (Lines{"b first success 3 2"}));
}

TEST_F(SettingTest, LevelsWithoutAnAnswerAreReportedAndStay) {
    openUp();
    ASSERT_EQ(sdfSessionSetAnswerDeadline(mSession, 1), 0);
    setLevels("a", SDF_LATENCY_LVL_1);
    EXPECT_EQ(reported(1), (Lines{"a first no answer in time 1 2"}));
    mSdk.levels(1, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_3);
    EXPECT_EQ(reported(), (Lines{"a first success 3 3"}));
}

TEST_F(SettingTest, QueueReportsAndAutomaticFilters) {
    openUp();
    EXPECT_EQ(sdfSessionSetQueueReports(mSession, 7, nullptr, nullptr), 0);
    EXPECT_EQ(sdfSessionSetQueueReports(mSession, 7, onReport, nullptr), 0);
    EXPECT_EQ(sdfSessionSetQueueReports(mSession, 8, onReport, nullptr), 0);
    EXPECT_EQ(sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr), 0);
    EXPECT_EQ(sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr), 0);
    EXPECT_EQ(mSdk.take(), (Lines{"RegPriorityQueueReports 1 7", "RegPriorityQueueReports 1 8",
                                  "RegAutoFilterInfo"}));
    mSdk.report({3, 4});
    mSdk.autoFilter(5);
    EXPECT_EQ(reported(), (Lines{"report 3 10 20", "report 4 10 20", "auto filter 5"}));
}

TEST_F(SettingTest, RefusesValuesOutOfRange) {
    open();
    const auto slot = [](int value) { return static_cast<SdfSlotID>(value); };
    const auto ood = [](int value) { return static_cast<SdfOod>(value); };
    for (const int wrong : {-2, 2}) {
        EXPECT_EQ(setLevels("a", SDF_LATENCY_LVL_1, slot(wrong)), SDF_SESSION_INVALID_ARG);
        EXPECT_EQ(sdfSessionClearLevels(mSession, slot(wrong)), SDF_SESSION_INVALID_ARG);
        EXPECT_EQ(sdfSessionSetDataPriority(mSession, slot(wrong), true), SDF_SESSION_INVALID_ARG);
    }
    EXPECT_EQ(setLevels("a", static_cast<SdfLatencyLvl>(0)), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(setLevels("a", static_cast<SdfLatencyLvl>(7)), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetDdsOod(mSession, ood(0)), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetDdsOod(mSession, ood(4)), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetAnswerDeadline(mSession, 0), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetAnswerDeadline(mSession, 86400001), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetPauses(mSession, 0, 1), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetPauses(mSession, 2, 1), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetPauses(mSession, 1, 86400001), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionSetGaming(nullptr, true), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionDispatch(nullptr), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionRun(nullptr), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionGetState(nullptr), SDF_SESSION_DOWN);
    sdfSessionStop(nullptr);
}

TEST_F(SettingTest, EachCodeAndStateHasAText) {
    for (int code = SDF_SESSION_CLOSED; code <= SDF_SESSION_NO_SERVICE; ++code) {
        EXPECT_STRNE(sdfSessionText(code), "unknown") << code;
    }
    EXPECT_STREQ(sdfSessionText(SDF_SESSION_CLOSED - 1), "unknown");
    EXPECT_STREQ(sdfSessionText(0), "success");
    EXPECT_STREQ(sdfSessionText(SDF_V2_NOT_SUPPORTED), "not supported");
    EXPECT_STREQ(sdfSessionStateText(static_cast<SdfSessionState>(3)), "unknown");
    EXPECT_STREQ(sdfFilterStateText(static_cast<SdfFilterState>(7)), "unknown");
}

}  // namespace
