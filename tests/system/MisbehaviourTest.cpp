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
    // Serves by these rules, and connects.
    void connectBy(const Lines& rules) {
        serveBy(rules);
        connect();
    }

    // Brings a service up that has been lost, and shows that everything is as at first.
    static void recover() {
        forgetClientEvents();
        ASSERT_EQ(createSdfClient(onStatus), 0);
        ASSERT_TRUE(waitForText(kUp));
        EXPECT_EQ(reportedSoFar(), Lines{kUp});
    }

    // Leaves the service, so that the next one starts from nothing.
    void end() {
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(mEmulator->terminate(), 0);
        forgetClientEvents();
    }

    bool waitForNotAnswered(size_t times = 1) {
        return mEmulator->process().waitForLine(
            "notice: no callback registered, pid=" + std::to_string(getpid()) +
                ": ENABLE is not answered",
            times);
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

// The link counts as made and the request is sent, but there is nobody to answer to.
TEST_F(MisbehaviourTest, RefusedRegistrationLeavesTheClientWaitingUntilMadeAnew) {
    serveBy({"on register nth 1: refuse"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    EXPECT_TRUE(waitForNotAnswered());
    EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
    ASSERT_EQ(createSdfClient(onStatus), 0);
    EXPECT_TRUE(waitForNotAnswered(2));
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(clientTexts(), Lines{});
    EXPECT_EQ(mEmulator->stats().clients, 0U);
    recover();
}

// What is reported of the answer to a request for levels, beside the next one's right answer.
TEST_F(MisbehaviourTest, AnswerThatIsNotAsItShouldBe) {
    const struct {
        const char* actions;
        Lines reported;  // what comes behind the id of the request, or a status
    } rows[] = {
        {"never", {}},
        {"wrong-id", {}},
        {"no-body", {}},
        {"mismatch add_filter_cb", {}},
        {"never, garbage ff ff ff", {}},
        {"truncate", {"2 1"}},  // cut before the second level: what has been read counts
        {"empty-body", {"1 1"}},
        {"twice", {"2 4"}},
        {"flood 1000", {"2 4"}},
        {"status SERVICE_UP", {"2 4", kUp}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.actions);
        connectBy({std::string("on set_latency_level nth 1: ") + row.actions});
        const long long id = askLevels();
        Lines expected = row.reported;
        if (!expected.empty()) expected[0] = levels(id, expected[0]);
        EXPECT_EQ(reportedSoFar(), expected);
        end();
    }
}

TEST_F(MisbehaviourTest, StatusBeforeTheFirstRequestIsPassedOn) {
    serveBy({"on register: status SERVICE_UP, twice"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kUp, 3));
    EXPECT_EQ(reportedSoFar(), Lines(3, kUp));
}

// The end of the service and of the request that it took along are reported on two threads.
TEST_F(MisbehaviourTest, DeathBeforeOrAfterTheAnswerIsReportedAsLossAndFailedRequest) {
    for (const bool answered : {false, true}) {
        connectBy(
            {std::string("on set_latency_level nth 2: die ") + (answered ? "after" : "before")});
        reportedSoFar();
        const long long id = askLevels();
        ASSERT_GT(id, 0);
        if (answered) {
            ASSERT_TRUE(waitForText(levels(id)));
        }
        ASSERT_TRUE(waitForText(kDown));
        ASSERT_TRUE(waitForText(kFailed));
        EXPECT_EQ(clientTexts().size(), answered ? 3U : 2U);
        EXPECT_EQ(askLevels(), SDF_V2_SERVICE_DOWN);
        mEmulator->restart();
        recover();
        end();
    }
}

TEST_F(MisbehaviourTest, DeathAtTheRegistrationIsReportedAndSurvived) {
    serveBy({"on register: die before"});
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForText(kDown));
    EXPECT_EQ(destroySdfClient(), 0);
    // How the enable ends depends on whether the loss was known by then.
    for (const std::string& text : clientTexts()) {
        EXPECT_TRUE(text == kDown || text == kFailed) << text;
    }
}

TEST_F(MisbehaviourTest, LastRequestThatFailsIsSurvived) {
    for (const char* const action : {"die before", "refuse"}) {
        SCOPED_TRACE(action);
        connectBy({std::string("on disable nth 1: ") + action});
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(destroySdfClient(), SDF_V2_INVALID_OPERATION);
        if (action[0] == 'd') mEmulator->restart();
        recover();
        mEmulator->kill();
        EXPECT_EQ(destroySdfClient(), 0);
        forgetClientEvents();
    }
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
