// SPDX-License-Identifier: Apache-2.0
// Lack of memory: a call fails with nothing changed, and an event that could not be kept is a loss.

#include "tests/session/SessionFixture.h"
#include "tests/support/AllocationLimit.h"

namespace {

using MemoryTest = SessionTest;

int gResult;

TEST_F(MemoryTest, OpenFailsAndTheNextOneDoesNot) {
    for (long count = 0; mSession == nullptr; ++count) {
        ASSERT_LT(count, 20);
        const AllocationLimit limit(count);
        const int result = sdfSessionOpen(nullptr, nullptr, &mSession);
        EXPECT_EQ(result, mSession == nullptr ? SDF_SESSION_NO_RESOURCES : 0);
    }
}

TEST_F(MemoryTest, FilterIsWantedOrNot) {
    open();
    reported();
    const SdfAddFilterInfo info = flowTo(1);
    char name[] = "one";
    int result = -1;
    for (long count = 0; result != 0; ++count) {
        ASSERT_LT(count, 20);
        EXPECT_EQ(reported(), Lines{});
        const AllocationLimit limit(count);
        SdfFilter* filter = nullptr;
        result = sdfFilterAdd(mSession, &info, onFilter, name, &filter);
        EXPECT_EQ(result, filter == nullptr ? SDF_SESSION_NO_RESOURCES : 0);
    }
    EXPECT_EQ(reported(), (Lines{"one requested"}));
    mSdk.take();
    mSdk.up();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus", "AddFilter 1 1 2 2 50"}));
}

TEST_F(MemoryTest, QuestionIsAskedOrNot) {
    open();
    int result = -1;
    for (long count = 0; result != 0; ++count) {
        ASSERT_LT(count, 20);
        const AllocationLimit limit(count);
        result = sdfSessionAskQueueReport(mSession, 0, onQueueReport, nullptr);
        EXPECT_TRUE(result == 0 || result == SDF_SESSION_NO_RESOURCES);
    }
    mSdk.take();
    mSdk.up();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus", "GetPriorityQueueReport"}));
}

TEST_F(MemoryTest, EventThatCannotBeKeptIsALoss) {
    open();
    {
        const AllocationLimit limit(0);
        mSdk.up();
    }
    EXPECT_EQ(reported(), (Lines{"session connecting", "session down: internal error"}));
    waitForNextClient();
    mSdk.up();
    EXPECT_EQ(reported(2), (Lines{"session connecting", "session up"}));
}

TEST_F(MemoryTest, AnswerThatCannotBeKeptFailsTheQuestion) {
    openUp();
    gResult = 1;
    const auto onList = [](SdfSession*, int result, SdfFilter*, unsigned int, SdfFilterStatus,
                           SdfLatencyLvl, SdfLatencyLvl, SdfOod, unsigned int,
                           void*) { gResult = result; };
    ASSERT_EQ(sdfSessionAskFilters(mSession, 0, onList, nullptr), 0);
    mSdk.list({1});
    {
        const AllocationLimit limit(0);
        sdfSessionDispatch(mSession);
    }
    EXPECT_EQ(gResult, SDF_SESSION_NO_RESOURCES);
}

TEST_F(MemoryTest, ManyEventsAtOnceKeepNoMemory) {
    openUp();
    const auto onReport = [](SdfSession*, unsigned int, uint64_t, uint64_t, void*) {};
    ASSERT_EQ(sdfSessionSetQueueReports(mSession, 1, onReport, nullptr), 0);
    const std::vector<unsigned int> reports(4000, 3);
    const auto receive = [&] {
        const int64_t before = allocatedBytes();
        mSdk.report(reports);
        EXPECT_GT(allocatedBytes(), before + 100'000);
    };
    const int64_t atRest = allocatedBytes();
    receive();
    sdfSessionDispatch(mSession);
    EXPECT_EQ(allocatedBytes(), atRest);
    receive();
    close();
    EXPECT_LE(allocatedBytes(), atRest);
}

TEST_F(MemoryTest, AutomaticFilterThatCannotBeKeptIsDropped) {
    openUp();
    ASSERT_EQ(sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr), 0);
    {
        const AllocationLimit limit(0);
        mSdk.autoFilter(1);
    }
    mSdk.autoFilter(2);
    EXPECT_EQ(reported(), (Lines{"auto filter 2"}));
}

}  // namespace
