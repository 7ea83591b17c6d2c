// SPDX-License-Identifier: Apache-2.0
// Filters as handles: what is sent for them, and the states that are reported.

#include <arpa/inet.h>
#include <netinet/in.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "tests/session/SessionFixture.h"

namespace {

class FilterTest : public SessionTest {
  protected:
    // The service is lost and another one comes up; takes what was reported and called.
    void restart() {
        mSdk.status(SDF_V2_SERVICE_DOWN);
        reported();
        waitForNextClient();
        EXPECT_EQ(reported(), (Lines{"session connecting"}));
        mSdk.take();
        mSdk.up();
    }
};

TEST_F(FilterTest, StatesOfTheServiceAreReportedWhenTheyChange) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    EXPECT_EQ(sdfFilterGetState(filter), SDF_FILTER_STATE_REQUESTED);
    EXPECT_EQ(sdfFilterGetId(filter), 0U);
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50"}));
    EXPECT_EQ(reported(), (Lines{"one requested"}));
    mSdk.answer(1, SDF_FILTER_PENDING);
    EXPECT_EQ(reported(), (Lines{"one pending"}));
    EXPECT_EQ(sdfFilterGetId(filter), 1U);
    mSdk.indicate(1, SDF_FILTER_ACTIVE);
    mSdk.indicate(1, SDF_FILTER_ACTIVE);
    mSdk.indicate(1, SDF_FILTER_PENDING);
    mSdk.indicate(7, SDF_FILTER_DELETED);
    EXPECT_EQ(reported(), (Lines{"one active", "one pending"}));
    mSdk.indicate(1, SDF_FILTER_DELETED);
    EXPECT_EQ(reported(), (Lines{"one rejected: deleted"}));
    EXPECT_EQ(sdfFilterGetId(filter), 0U);
    EXPECT_EQ(mSdk.take(), Lines{});
}

TEST_F(FilterTest, RejectedFilterIsRequestedOfTheNextServiceOnly) {
    openUp();
    for (const SdfFilterStatus why : {SDF_FILTER_DELETED, SDF_FILTER_ERROR_DUPLICATE,
                                      SDF_FILTER_ERROR_LIMIT_REACHED, SDF_FILTER_ERROR_INVALID_ARGS,
                                      SDF_FILTER_ERROR_INTERNAL, SDF_FILTER_ERROR_NO_PERMISSION}) {
        const auto id = static_cast<unsigned int>(why) - 2;
        SdfFilter* const filter = add("one", 1);
        mSdk.answer(id, why);
        EXPECT_EQ(reported(), (Lines{"one requested",
                                     std::string("one rejected: ") + sdfFilterStatusText(why)}));
        sdfFilterRemove(filter);
        EXPECT_EQ(reported(), (Lines{"one removed"}));
        EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50"}));
    }
    add("two", 2);
    mSdk.answer(7, SDF_FILTER_ERROR_DUPLICATE);
    EXPECT_EQ(reported().size(), 2U);
    restart();
    EXPECT_EQ(reported(), (Lines{"two requested"}));
    mSdk.answer(8);
    EXPECT_EQ(reported(), (Lines{"two active", "session up"}));
}

TEST_F(FilterTest, IndicationBeforeTheAnswerIsNotReported) {
    openUp();
    add("one", 1);
    mSdk.indicate(1, SDF_FILTER_INACTIVITY_TIMEOUT);
    EXPECT_EQ(reported(), (Lines{"one requested"}));
    mSdk.answer(1);
    mSdk.answer(1, SDF_FILTER_ERROR_INTERNAL);
    EXPECT_EQ(reported(), (Lines{"one active"}));
}

TEST_F(FilterTest, DescriptionThatTheLibraryRefusesIsRejected) {
    openUp();
    mSdk.failNext("AddFilter", SDF_V2_INVALID_ARG);
    add("one", 1);
    EXPECT_EQ(reported(), (Lines{"one requested", "one rejected: invalid arguments"}));
}

TEST_F(FilterTest, DescriptionThatIsRefusedLaterIsRejectedAndNotRequestedAgain) {
    open();
    add("one", 1);
    EXPECT_EQ(reported(), (Lines{"session connecting", "one requested"}));
    mSdk.failNext("AddFilter", SDF_V2_INVALID_ARG);
    mSdk.up();
    EXPECT_EQ(reported(), (Lines{"one rejected: invalid arguments", "session up"}));
}

TEST_F(FilterTest, ChangesAreSentAtOnce) {
    openUp();
    SdfFilter* const filter = addActive("one", 1, 1);
    EXPECT_EQ(sdfFilterSetLevels(filter, SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6), 0);
    EXPECT_EQ(sdfFilterSetOod(filter, SDF_OOD_DISABLED_LVL), 0);
    EXPECT_EQ(sdfFilterSetPdcpTimer(filter, 0), 0);
    EXPECT_EQ(sdfFilterSetDscp(filter, 0), 0);
    EXPECT_EQ(mSdk.take(), (Lines{"UpdateLatencyLvl 1 5 6", "UpdateOod 1 3", "UpdatePdcpTimer 1 0",
                                  "UpdateTargetDscp 1 0"}));
    EXPECT_EQ(reported(), Lines{});
    restart();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus", "AddFilter 1 5 6 3 0"}));
    mSdk.answer(2);
    EXPECT_EQ(reported(), (Lines{"one active"}));
    // The service does not answer a change: the session is up when it answers what comes behind it.
    EXPECT_EQ(mSdk.take(), (Lines{"UpdateTargetDscp 2 0", "GetFilters"}));
    mSdk.list({2});
    reported();
    mSdk.list({2});
    EXPECT_EQ(reported(), (Lines{"session up"}));
}

TEST_F(FilterTest, ServiceThatListsNoFiltersComesUpAllTheSame) {
    open();
    sdfFilterSetDscp(add("one", 1), 46);
    ASSERT_EQ(sdfSessionSetAnswerDeadline(mSession, 200), 0);
    mSdk.up();
    reported();
    mSdk.answer(1);
    EXPECT_EQ(reported(2), (Lines{"one active", "session up"}));
}

TEST_F(FilterTest, ChangesWaitForTheAnswer) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    sdfFilterSetDscp(filter, 46);
    sdfFilterSetPdcpTimer(filter, 60);
    sdfFilterSetPdcpTimer(filter, 70);
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50"}));
    mSdk.answer(1);
    EXPECT_EQ(reported(), (Lines{"one active"}));
    EXPECT_EQ(mSdk.take(), (Lines{"UpdatePdcpTimer 1 70", "UpdateTargetDscp 1 46"}));
}

TEST_F(FilterTest, ChangesBeforeTheServiceIsUpGoWithTheAdd) {
    open();
    SdfFilter* filter = nullptr;
    const SdfAddFilterInfo info = flowTo(9);
    ASSERT_EQ(sdfFilterAddV2(mSession, &info, 0, nullptr, nullptr, &filter), 0);
    sdfFilterSetLevels(filter, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4);
    sdfFilterSetOod(filter, SDF_OOD_UNSPECIFIED_LVL);
    mSdk.up();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"Create", "RegFilterStatus", "AddFilter 9 3 4 1 50 extra 0"}));
}

TEST_F(FilterTest, UpOnlyWhenTheLibraryHasTakenEachChange) {
    open();
    sdfFilterSetDscp(add("one", 1), 46);
    mSdk.up();
    reported();
    mSdk.answerUnsettled(1);
    EXPECT_EQ(reported(), (Lines{"one active"}));
    EXPECT_TRUE(dispatchUntil([this] { return mSdk.take() == Lines{"UpdateTargetDscp 1 46"}; }));
    mSdk.settle(1);
    EXPECT_TRUE(dispatchUntil([this] {
        const Lines calls = mSdk.take();
        return !calls.empty() && calls.back() == "GetFilters";
    }));
    mSdk.list({1});
    reported();
    mSdk.list({1});
    EXPECT_EQ(reported(), (Lines{"session up"}));
}

TEST_F(FilterTest, FilterThatTheLibraryNeverKnowsIsALoss) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    mSdk.answerUnsettled(1);
    reported();
    sdfFilterSetDscp(filter, 46);
    EXPECT_EQ(reported(2), (Lines{"session down: internal error", "one lost"}));
}

TEST_F(FilterTest, RemovedFilterIsDeletedAndReportedOnce) {
    openUp();
    SdfFilter* const filter = addActive("one", 1, 1);
    mSdk.indicate(1, SDF_FILTER_PENDING);
    sdfFilterRemove(filter);
    EXPECT_EQ(mSdk.take(), (Lines{"DeleteFilter 1"}));
    EXPECT_EQ(reported(), (Lines{"one removed"}));
    mSdk.indicate(1, SDF_FILTER_DELETED);
    EXPECT_EQ(reported(), Lines{});
    restart();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus"}));
    sdfFilterRemove(nullptr);
}

TEST_F(FilterTest, AddThatIsAnsweredWithAnEndHasExpired) {
    openUp();
    ASSERT_EQ(sdfFilterSetRenewed(add("one", 1), false), 0);
    mSdk.answer(1, SDF_FILTER_INACTIVITY_TIMEOUT);
    EXPECT_EQ(reported(), (Lines{"one requested", "one expired"}));
}

TEST_F(FilterTest, RemovedTwiceIsRemovedOnce) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    reported();
    sdfFilterRemove(filter);
    sdfFilterRemove(filter);
    add("two", 2);
    mSdk.answer(1);
    EXPECT_EQ(reported(), (Lines{"one removed", "two requested"}));
    EXPECT_EQ(mSdk.take(),
              (Lines{"AddFilter 1 1 2 2 50", "DeleteFilter 1", "AddFilter 2 1 2 2 50"}));
}

TEST_F(FilterTest, FilterRemovedBeforeItWasSentIsNeverSent) {
    open();
    sdfFilterRemove(add("one", 1));
    mSdk.up();
    EXPECT_EQ(reported(), (Lines{"session connecting", "one removed", "session up"}));
    EXPECT_EQ(mSdk.take(), (Lines{"Create", "RegFilterStatus"}));
}

TEST_F(FilterTest, EqualFilterWaitsUntilTheRemovedOneIsDeleted) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    reported();
    sdfFilterRemove(filter);
    add("two", 1);
    EXPECT_EQ(reported(), (Lines{"one removed", "two requested"}));
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50"}));
    mSdk.answer(1);
    EXPECT_EQ(reported(), Lines{});
    EXPECT_EQ(mSdk.take(), (Lines{"DeleteFilter 1", "AddFilter 1 1 2 2 50"}));
    mSdk.answer(2);
    EXPECT_EQ(reported(), (Lines{"two active"}));
}

TEST_F(FilterTest, RemovedFilterThatIsRejectedNeedsNoDelete) {
    openUp();
    sdfFilterRemove(add("one", 1));
    add("two", 2);
    mSdk.answer(1, SDF_FILTER_ERROR_DUPLICATE);
    EXPECT_EQ(reported(), (Lines{"one removed", "two requested"}));
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50", "AddFilter 2 1 2 2 50"}));
}

TEST_F(FilterTest, RemovedFilterIsDeletedAsSoonAsTheLibraryKnowsIt) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    mSdk.answerUnsettled(1);
    reported();
    mSdk.take();
    sdfFilterRemove(filter);
    add("two", 1);
    EXPECT_EQ(reported(), (Lines{"one removed", "two requested"}));
    mSdk.settle(1);
    Lines calls;
    EXPECT_TRUE(dispatchUntil([&] {
        for (const std::string& call : mSdk.take()) calls.push_back(call);
        return !calls.empty() && calls.back() == "AddFilter 1 1 2 2 50";
    }));
    EXPECT_EQ(calls.at(calls.size() - 2), "DeleteFilter 1");
}

TEST_F(FilterTest, FilterThatEndsWhileItsRemovalWaitsNeedsNoDelete) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    mSdk.answerUnsettled(1);
    reported();
    sdfFilterRemove(filter);
    mSdk.take();
    add("two", 2);
    mSdk.indicate(1, SDF_FILTER_INACTIVITY_TIMEOUT);
    EXPECT_EQ(reported(), (Lines{"one removed", "two requested"}));
    EXPECT_EQ(mSdk.take().back(), "AddFilter 2 1 2 2 50");
}

TEST_F(FilterTest, LossEndsWhatIsLeftOfARemovedFilter) {
    openUp();
    sdfFilterRemove(add("one", 1));
    EXPECT_EQ(reported(), (Lines{"one removed"}));
    restart();
    add("two", 2);
    EXPECT_EQ(reported().front(), "two requested");
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus", "AddFilter 2 1 2 2 50"}));
}

TEST_F(FilterTest, RemovedFromInsideItsOwnCallback) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    mSdk.answer(1);
    upon("one active", [&] { sdfFilterRemove(filter); });
    EXPECT_EQ(reported(), (Lines{"one requested", "one active", "one removed"}));
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50", "DeleteFilter 1"}));
    SdfFilter* const other = add("two", 2);
    upon("two requested", [&] {
        sdfFilterRemove(other);
        sdfSessionDispatch(mSession);  // reports the removal, and frees the filter
    });
    EXPECT_EQ(reported(), (Lines{"two requested", "two removed"}));
}

TEST_F(FilterTest, AddThatIsUnansweredAtALossIsSentOnceMore) {
    openUp();
    add("one", 1);
    EXPECT_EQ(reported(), (Lines{"one requested"}));
    restart();
    EXPECT_EQ(reported(), Lines{});
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus", "AddFilter 1 1 2 2 50"}));
    mSdk.answer(2);
    EXPECT_EQ(reported(), (Lines{"one active", "session up"}));
}

TEST_F(FilterTest, ServiceThatAnswersNoFilterInTimeCountsAsLost) {
    openUp();
    ASSERT_EQ(sdfSessionSetAnswerDeadline(mSession, 10), 0);
    add("one", 1);
    EXPECT_EQ(reported(2), (Lines{"one requested", "session down: no answer in time"}));
}

TEST_F(FilterTest, AnswerThatLiesReadyIsInTime) {
    openUp();
    ASSERT_EQ(sdfSessionSetAnswerDeadline(mSession, 1), 0);
    add("one", 1);
    mSdk.answer(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(reported(), (Lines{"one requested", "one active"}));
}

TEST_F(FilterTest, ExpiredFilterIsRenewed) {
    openUp();
    const auto before = std::chrono::steady_clock::now();
    SdfFilter* const filter = add("one", 1);
    mSdk.answer(1);
    reported();
    mSdk.indicate(1, SDF_FILTER_INACTIVITY_TIMEOUT);
    EXPECT_EQ(reported(2), (Lines{"one expired", "one requested"}));
    // A service that lets filters expire at once is not asked all the time.
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1000));
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50", "AddFilter 1 1 2 2 50"}));
    mSdk.answer(2);
    EXPECT_EQ(reported(), (Lines{"one active"}));
    EXPECT_EQ(sdfFilterGetId(filter), 2U);
}

TEST_F(FilterTest, ExpiredFilterStaysSoUntilItIsToBeRenewed) {
    openUp();
    SdfFilter* const filter = addActive("one", 1, 1);
    mSdk.indicate(1, SDF_FILTER_INACTIVITY_TIMEOUT);
    upon("one expired", [&] { sdfFilterSetRenewed(filter, false); });
    EXPECT_EQ(reported(), (Lines{"one expired"}));
    restart();
    EXPECT_EQ(reported(), (Lines{"session up"}));
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus"}));
    ASSERT_EQ(sdfFilterSetRenewed(filter, true), 0);
    EXPECT_EQ(reported(1), (Lines{"one requested"}));
    EXPECT_EQ(mSdk.take(), (Lines{"AddFilter 1 1 2 2 50"}));
}

TEST_F(FilterTest, ThousandFilters) {
    open();
    constexpr unsigned int kCount = 1000;
    for (unsigned int port = 1; port <= kCount; ++port) add("x", static_cast<uint16_t>(port));
    mSdk.up();
    EXPECT_EQ(reported().size(), kCount + 1);
    const Lines calls = mSdk.take();
    ASSERT_EQ(calls.size(), kCount + 2);
    EXPECT_EQ(calls[2], "AddFilter 1 1 2 2 50");
    EXPECT_EQ(calls.back(), "AddFilter 1000 1 2 2 50");
    for (unsigned int id = kCount; id > 0; --id) mSdk.answer(id);
    EXPECT_EQ(reported().size(), kCount + 1);
}

TEST_F(FilterTest, RefusesWhatTheLibraryWouldRefuse) {
    open();
    SdfFilter* const filter = add("one", 1);
    const auto level = [](int value) { return static_cast<SdfLatencyLvl>(value); };
    const auto ood = [](int value) { return static_cast<SdfOod>(value); };
    for (const int wrong : {0, 7, -1}) {
        EXPECT_EQ(sdfFilterSetLevels(filter, level(wrong), level(1)), SDF_SESSION_INVALID_ARG);
        EXPECT_EQ(sdfFilterSetLevels(filter, level(1), level(wrong)), SDF_SESSION_INVALID_ARG);
    }
    for (const int wrong : {0, 4}) {
        EXPECT_EQ(sdfFilterSetOod(filter, ood(wrong)), SDF_SESSION_INVALID_ARG);
    }
    EXPECT_EQ(sdfFilterSetDscp(nullptr, 1), SDF_SESSION_INVALID_ARG);

    const auto wrong = [](auto spoil) {
        SdfAddFilterInfo info = flowTo(65535);
        spoil(info);
        return info;
    };
    const SdfAddFilterInfo infos[] = {
        wrong([](SdfAddFilterInfo& info) { info.src_addr.ss_family = AF_UNIX; }),
        wrong([](SdfAddFilterInfo& info) { info.dest_addr = {}; }),
        wrong([&](SdfAddFilterInfo& info) { info.first_level = level(0); }),
        wrong([&](SdfAddFilterInfo& info) { info.second_level = level(7); }),
        wrong([&](SdfAddFilterInfo& info) { info.ood = ood(0); }),
        wrong([](SdfAddFilterInfo& info) { info.app_type = static_cast<SdfFilterAppType>(33); }),
        wrong([](SdfAddFilterInfo& info) { info.protocol = static_cast<SdfProtocol>(4); }),
        wrong([](SdfAddFilterInfo& info) { info.src_port_range = 1; }),
        wrong([](SdfAddFilterInfo& info) { info.dest_port_range = 1; }),
    };
    SdfFilter* added = filter;
    for (const SdfAddFilterInfo& info : infos) {
        EXPECT_EQ(sdfFilterAdd(mSession, &info, nullptr, nullptr, &added), SDF_SESSION_INVALID_ARG);
        EXPECT_EQ(added, nullptr);
    }
    EXPECT_EQ(sdfFilterAdd(mSession, nullptr, nullptr, nullptr, &added), SDF_SESSION_INVALID_ARG);
    const SdfAddFilterInfo good = flowTo(65535);
    EXPECT_EQ(sdfFilterAdd(nullptr, &good, nullptr, nullptr, &added), SDF_SESSION_INVALID_ARG);
    // Without a family an address counts as the one of which it has bytes.
    SdfAddFilterInfo bare = good;
    bare.src_addr.ss_family = AF_UNSPEC;
    bare.src_port_range = 1;
    EXPECT_EQ(sdfFilterAdd(mSession, &bare, nullptr, nullptr, nullptr), 0);
}

}  // namespace
