// SPDX-License-Identifier: Apache-2.0
// The library against a service that misbehaves, in each of the ways that the emulator has: it does
// what it should, nothing else, and goes on.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "tests/stress/ClientEvents.h"
#include "tests/system/LibraryTest.h"

namespace {

constexpr char kUp[] = "status -7";
constexpr char kDown[] = "status -8";
constexpr char kFailed[] = "status -3";

class MisbehaviourTest : public LibraryTest {
  protected:
    // Brings a service up that has been lost, and shows that everything is as at first.
    static void recover() {
        forgetClientEvents();
        ASSERT_EQ(createSdfClient(onStatus), 0);
        ASSERT_TRUE(waitForText(kUp));
        EXPECT_EQ(reportedSoFar(), Lines{kUp});
    }

    bool waitForNotAnswered(size_t times = 1) {
        return mEmulator->process().waitForLine(
            "notice: no callback registered, pid=" + std::to_string(getpid()) +
                ": ENABLE is not answered",
            times);
    }

    // Makes the first latency request, which the service answers wrongly, and shows that its
    // callback is not called while the second one's is.
    void expectNoAnswer(const std::string& actions) {
        serveBy({"on set_latency_level nth 1: " + actions});
        connect();
        ASSERT_GT(askLevels(), 0);
        EXPECT_EQ(reportedSoFar(), Lines{}) << actions;
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(mEmulator->terminate(), 0);
    }
};

TEST_F(MisbehaviourTest, RefusedRequestIsReportedAndTakesTheClientDown) {
    serveBy({"on set_latency_level nth 1: refuse"});
    connect();
    ASSERT_EQ(lum_sdf_enable(onLegacyStatus), 1);
    ASSERT_TRUE(waitForText(kUp));  // the last of the two to be reported
    forgetClientEvents();
    ASSERT_GT(askLevels(), 0);
    ASSERT_TRUE(waitForText(kFailed));
    EXPECT_EQ(clientTexts(), (Lines{"legacy status 2", kFailed}));
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    forgetClientEvents();
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kUp));
    EXPECT_EQ(reportedSoFar(), (Lines{"legacy status 5", kUp}));
}

TEST_F(MisbehaviourTest, EveryKindOfRequestCanBeRefused) {
    serveBy({"on any from 2: refuse"});  // all but the first enable
    connect();
    ASSERT_EQ(sdfPrioritizeDds(true), 0);
    ASSERT_TRUE(waitForText(kFailed));
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    // The enable is refused too, and that is reported each time.
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kFailed, 2));
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(clientTexts(), (Lines{kFailed, kFailed}));
}

TEST_F(MisbehaviourTest, RefusedRegistrationLeavesTheClientWaiting) {
    serveBy({"on register: refuse"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    // The link counts as made and the request is sent, but there is nobody to answer to.
    EXPECT_TRUE(waitForNotAnswered());
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    ASSERT_EQ(createSdfClient(onStatus), 0);
    EXPECT_TRUE(waitForNotAnswered(2));
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(clientTexts(), Lines{});
    EXPECT_EQ(mEmulator->stats().clients, 0U);
}

TEST_F(MisbehaviourTest, ClientMadeAnewRegistersAgain) {
    serveBy({"on register nth 1: refuse"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    EXPECT_TRUE(waitForNotAnswered());
    EXPECT_EQ(destroySdfClient(), 0);
    recover();
}

TEST_F(MisbehaviourTest, LateAnswersReachTheirCallbacksInWhateverOrder) {
    serveBy({"on set_latency_level nth 1: late 200", "on set_latency_level nth 2: late 100"});
    connect();
    const long long first = askLevels();
    const long long second = askLevels();
    EXPECT_TRUE(waitForText(levels(first)));
    EXPECT_TRUE(waitForText(levels(second)));
    EXPECT_EQ(clientTexts().size(), 2U);
}

TEST_F(MisbehaviourTest, LateAnswerForAClientThatHasLeftReachesNobody) {
    serveBy({"on set_latency_level nth 1: late 100"});
    connect();
    ASSERT_GT(askLevels(), 0);
    EXPECT_EQ(destroySdfClient(), 0);
    recover();
}

TEST_F(MisbehaviourTest, LateServiceUpIsWaitedFor) {
    serveBy({"on enable: late 100"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    ASSERT_TRUE(waitForText(kUp));
    EXPECT_EQ(reportedSoFar(), Lines{kUp});
}

TEST_F(MisbehaviourTest, SecondAnswerIsDropped) {
    serveBy({"on set_latency_level nth 1: twice", "on add_filter nth 1: twice"});
    connect();
    const long long id = askLevels();
    EXPECT_EQ(reportedSoFar(), Lines{levels(id)});
    const unsigned int filter = add(5000);
    // The filter is known once.
    EXPECT_EQ(sdfDeleteFilter(filter), 0);
    EXPECT_EQ(sdfDeleteFilter(filter), SDF_V2_INVALID_ARG);
}

TEST_F(MisbehaviourTest, SecondListAndSecondReportReachNobody) {
    serveBy({"on get_filters: twice", "on get_priority_queue_report: twice"});
    connect();
    const unsigned int id = add(5000);
    ASSERT_EQ(sdfGetFilters(onListed), 0);
    EXPECT_EQ(reportedSoFar(),
              Lines{"listed " + std::to_string(id) + ": 1, levels 2 4, ood 2, timer 50"});
    ASSERT_EQ(sdfGetPriorityQueueReport(onReport), 0);
    EXPECT_EQ(reportedSoFar().size(), 2U);
}

TEST_F(MisbehaviourTest, RequestWithoutAnAnswerIsForgottenWithTheClient) {
    expectNoAnswer("never");
    EXPECT_EQ(clientTexts(), Lines{});
}

TEST_F(MisbehaviourTest, ServiceThatNeverSaysItIsUpIsNotUp) {
    serveBy({"on enable: never"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    EXPECT_TRUE(mEmulator->process().waitForLine("rule pid=" + std::to_string(getpid()) +
                                                 " enable: on enable: never"));
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(clientTexts(), Lines{});
}

TEST_F(MisbehaviourTest, AnswersThatReachNobody) {
    for (const char* const actions :
         {"wrong-id", "no-body", "never, unknown-event", "never, unknown-event 7",
          "never, unknown-event 2147483647", "mismatch status_ind",
          "mismatch filter_status_indication", "mismatch add_filter_cb", "mismatch get_filter_cb",
          "mismatch priority_queue_report_cb", "mismatch auto_filter_info_ind",
          // No message at all; an empty one; a message that ends in the middle of its id; a body
          // alone that is none.
          "never, garbage ff ff ff", "never, garbage 00", "never, garbage 08 01 10 ff",
          "never, garbage 1a 05 ff", "never, garbage 0b 0c"}) {
        expectNoAnswer(actions);
    }
    // 08 01 10 and four or five bytes of the id; then comes the tag of the data.
    for (int length = 0; length <= 8; ++length) {
        expectNoAnswer("truncate " + std::to_string(length));
    }
}

TEST_F(MisbehaviourTest, FilterAddedUnderAWrongIdIsNotKnown) {
    serveBy({"on add_filter nth 1: wrong-id"});
    connect();
    const long long id = sdfAddFilter(flow(5000), onAdded);
    ASSERT_GT(id, 0);
    EXPECT_EQ(reportedSoFar(), Lines{});
    EXPECT_EQ(sdfDeleteFilter(static_cast<unsigned int>(id)), SDF_V2_INVALID_ARG);
    EXPECT_EQ(sdfDeleteFilter(static_cast<unsigned int>(id) + 1), SDF_V2_INVALID_ARG);
    EXPECT_EQ(sdfDeleteAllFilter(), SDF_V2_INVALID_OPERATION);
}

TEST_F(MisbehaviourTest, AnswerMayBeThatOfAnotherRequest) {
    // In a fresh process the first two ids are the first two numbers of rand(); the second request
    // is answered in the name of the first.
    serveBy(
        {"on set_latency_level nth 1: never", "on set_latency_level nth 2: wrong-id 1804289383"});
    connect();
    ASSERT_EQ(askLevels(), 1804289383);
    ASSERT_EQ(
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6, false, onLevels),
        846930886);
    EXPECT_EQ(reportedSoFar(), Lines{levels(1804289383, "5 6")});
}

TEST_F(MisbehaviourTest, AnyBytesAreSurvived) {
    Lines rules;
    for (int seed = 0; seed < 100; ++seed) {
        rules.push_back("on set_latency_level nth 1: garbage random " +
                        std::to_string(1 + seed * 7) + " " + std::to_string(seed));
    }
    serveBy(rules);
    connect();
    const long long id = askLevels();
    ASSERT_TRUE(waitForText(levels(id)));
    // Some of it may read as the loss of the service.
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kUp));
    reportedSoFar();
}

TEST_F(MisbehaviourTest, BodyOfAnotherEventLeavesTheCallbacksInPlace) {
    // After each comes a right one, for which the callbacks must still be there: an add reply that
    // is in the name of the first id of a fresh process, a list and a report of something with the
    // number 7.
    serveBy({"on add_filter nth 1: mismatch effective_levels_cb",
             "on add_filter nth 2: wrong-id 1804289383",
             "on get_filters: mismatch, garbage 08 04 1a 06 2a 04 12 02 08 07",
             "on get_priority_queue_report: mismatch, garbage 08 05 1a 06 32 04 12 02 08 07"});
    connect();
    ASSERT_EQ(sdfAddFilter(flow(5000), onAdded), 1804289383);
    EXPECT_EQ(reportedSoFar(), Lines{});
    ASSERT_GT(sdfAddFilter(flow(5001), onAdded), 0);
    EXPECT_EQ(reportedSoFar(), Lines{added(1804289383, SDF_FILTER_ACTIVE)});
    ASSERT_EQ(sdfGetFilters(onListed), 0);
    EXPECT_EQ(reportedSoFar(), Lines{"listed 7: 0, levels 1 1, ood 1, timer 0"});
    ASSERT_EQ(sdfGetPriorityQueueReport(onReport), 0);
    EXPECT_EQ(reportedSoFar(), Lines{"report 7: 0 0"});
}

TEST_F(MisbehaviourTest, EmptyBodyIsReadAsItsDefaults) {
    serveBy({"on set_latency_level nth 1: empty-body", "on add_filter: empty-body",
             "on get_filters: empty-body", "on get_priority_queue_report: empty-body",
             "on en_high_perf_gaming: empty-body"});
    connect();
    ASSERT_EQ(sdfRegAutoFilterInfo(onAutoFilter), 0);
    const long long id = askLevels();
    const long long lost = sdfAddFilter(flow(5000), onAdded);
    ASSERT_GT(lost, 0);
    ASSERT_EQ(sdfGetFilters(onListed), 0);
    ASSERT_EQ(sdfGetPriorityQueueReport(onReport), 0);
    ASSERT_EQ(sdfEnHighPerfGaming(true), 0);
    EXPECT_EQ(reportedSoFar(),
              (Lines{levels(id, "1 1"), "auto filter 0: none#0 > none#0 0 0 0 0 0"}));
    EXPECT_EQ(sdfDeleteFilter(static_cast<unsigned int>(lost)), SDF_V2_INVALID_ARG);
}

TEST_F(MisbehaviourTest, StatusWithAnEmptyBodyIsInvalidAndTakesTheClientDown) {
    serveBy({"on enable nth 2: empty-body"});
    connect();
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText("status -1"));
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    recover();
}

TEST_F(MisbehaviourTest, TruncatedAnswerIsReadAsFarAsItGoes) {
    // Cut within the body, before the second level: what has been read counts.
    serveBy({"on set_latency_level nth 1: truncate"});
    connect();
    const long long id = askLevels();
    EXPECT_EQ(reportedSoFar(), Lines{levels(id, "2 1")});
}

TEST_F(MisbehaviourTest, FloodOfAnswersIsOneAnswer) {
    serveBy({"on set_latency_level nth 1: flood 1000"});
    connect();
    const long long id = askLevels();
    EXPECT_EQ(reportedSoFar(), Lines{levels(id)});
}

TEST_F(MisbehaviourTest, FloodOfIndicationsIsDeliveredWhole) {
    serveBy({"on enable nth 2: flood 1000"});
    connect();
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kUp, 1000));
    EXPECT_EQ(reportedSoFar(), Lines(1000, kUp));
}

TEST_F(MisbehaviourTest, AnyStatusButUpTakesTheClientDown) {
    const struct {
        const char* status;
        const char* reported;
    } kCases[] = {{"INVALID", "status -1"},
                  {"SUCCESS", "status 0"},
                  {"INVALID_ARG", "status -2"},
                  {"INTERNAL_ERROR", kFailed},
                  {"NOT_SUPPORTED", "status -4"},
                  {"INVALID_OPERATION", "status -5"},
                  {"SERVICE_DOWN", kDown},
                  {"INVALID_SLOT", "status -1"},
                  {"42", "status -1"},
                  {"-1", "status -1"}};
    for (const auto& known : kCases) {
        serveBy({std::string("on set_latency_level nth 1: status ") + known.status});
        connect();
        const long long id = askLevels();
        ASSERT_TRUE(waitForText(known.reported)) << known.status;
        EXPECT_EQ(clientTexts(), (Lines{levels(id), known.reported})) << known.status;
        EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN) << known.status;
        recover();
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(mEmulator->terminate(), 0);
        forgetClientEvents();
    }
}

TEST_F(MisbehaviourTest, UnaskedServiceUpIsPassedOn) {
    serveBy({"on set_latency_level nth 1: status SERVICE_UP"});
    connect();
    const long long id = askLevels();
    EXPECT_EQ(reportedSoFar(), (Lines{levels(id), kUp}));
}

TEST_F(MisbehaviourTest, StatusBeforeTheFirstRequestIsPassedOn) {
    serveBy({"on register: status SERVICE_UP, twice"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kUp, 3));
    EXPECT_EQ(reportedSoFar(), Lines(3, kUp));
}

// The end of the service and of the request that it took along are reported on two threads.
TEST_F(MisbehaviourTest, DeathBeforeTheAnswerIsReportedAsLossAndFailedRequest) {
    serveBy({"on set_latency_level nth 2: die before"});
    connect();
    reportedSoFar();
    ASSERT_GT(askLevels(), 0);
    ASSERT_TRUE(waitForText(kDown));
    ASSERT_TRUE(waitForText(kFailed));
    EXPECT_EQ(clientTexts().size(), 2U);
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    mEmulator->restart();
    recover();
}

TEST_F(MisbehaviourTest, DeathAfterTheAnswerIsReportedAsWell) {
    serveBy({"on set_latency_level nth 2: die after"});
    connect();
    reportedSoFar();
    const long long id = askLevels();
    ASSERT_TRUE(waitForText(levels(id)));
    ASSERT_TRUE(waitForText(kDown));
    ASSERT_TRUE(waitForText(kFailed));
    EXPECT_EQ(clientTexts().size(), 3U);
    mEmulator->restart();
    recover();
}

TEST_F(MisbehaviourTest, DeathAtTheRegistrationIsReportedAndSurvived) {
    serveBy({"on register: die before"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kDown));
    EXPECT_EQ(destroySdfClient(), 0);
    // How the enable ends depends on whether the loss was known by then.
    for (const std::string& told : clientTexts()) {
        EXPECT_TRUE(told == kDown || told == kFailed) << told;
    }
}

TEST_F(MisbehaviourTest, DeathAtTheLastRequestIsSurvived) {
    serveBy({"on disable: die before"});
    connect();
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(destroySdfClient(), SDF_V2_INVALID_OPERATION);
    mEmulator->restart();
    recover();
}

TEST_F(MisbehaviourTest, RefusedLeaveIsSurvived) {
    serveBy({"on disable nth 1: refuse"});
    connect();
    EXPECT_EQ(destroySdfClient(), 0);
    recover();
}

TEST_F(MisbehaviourTest, RulesOfAScenarioComeFirst) {
    const std::string path = mDirectory.path() + "/scenario";
    std::ofstream(path) << "# the first answer is no answer\n"
                           "on set_latency_level nth 1: never\n"
                           "on set_latency_level nth 1: garbage ff  # in its place\n";
    serve({"--rule", "on set_latency_level nth 1: twice", "--scenario", path});
    connect();
    ASSERT_GT(askLevels(), 0);
    EXPECT_EQ(reportedSoFar(), Lines{});
    const std::string pid = "pid=" + std::to_string(getpid());
    EXPECT_EQ(mEmulator->terminate(), 0);  // all that it has printed has been read then
    const Lines lines = mEmulator->process().lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "sent " + pid + " type=5 unreadable: ff"), 2);
}

}  // namespace
