// SPDX-License-Identifier: Apache-2.0
// Questions: entries that come one by one are one answer, for the right asker.

#include <stdexcept>

#include "tests/session/SessionFixture.h"

namespace {

class QuestionTest : public SessionTest {
  protected:
    void ask(const char* name, unsigned int deadline = 0) {
        EXPECT_EQ(sdfSessionAskFilters(mSession, deadline, onFilters, const_cast<char*>(name)), 0);
    }
    void askReport(const char* name) {
        EXPECT_EQ(sdfSessionAskQueueReport(mSession, 0, onQueueReport, const_cast<char*>(name)), 0);
    }
};

TEST_F(QuestionTest, ListIsWholeWhenTheNextOneBegins) {
    openUp();
    addActive("one", 1, 1);
    ask("a");
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters"}));
    mSdk.list({1, 7});
    EXPECT_EQ(reported(), Lines{});
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters"}));
    mSdk.list({1, 7});
    EXPECT_EQ(reported(), (Lines{"a 1", "a 7 of nobody", "a success"}));
    EXPECT_EQ(mSdk.take(), Lines{});
    ask("b");
    mSdk.list({1});
    reported();
    mSdk.list({1});
    EXPECT_EQ(reported(), (Lines{"b 1", "b success"}));
}

TEST_F(QuestionTest, WhoAsksMeanwhileGetsTheNextList) {
    openUp();
    ask("a");
    ask("b");
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters"}));
    mSdk.list({1});
    reported();
    ask("c");
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters"}));
    mSdk.list({2, 3});
    EXPECT_EQ(reported(), (Lines{"a 1 of nobody", "a success"}));
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters"}));
    mSdk.list({4});
    EXPECT_EQ(reported(), (Lines{"b 2 of nobody", "b 3 of nobody", "b success"}));
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters"}));
    mSdk.list({5});
    EXPECT_EQ(reported(), (Lines{"c 4 of nobody", "c success"}));
    EXPECT_EQ(mSdk.take(), Lines{});
}

TEST_F(QuestionTest, AsksAgainFromInsideTheAnswer) {
    openUp();
    ask("a");
    mSdk.list({1});
    upon("a success", [this] { ask("b"); });
    reported();
    mSdk.list({1});
    EXPECT_EQ(reported(), (Lines{"a 1 of nobody", "a success"}));
    mSdk.list({2});
    reported();
    mSdk.list({3});
    EXPECT_EQ(reported(), (Lines{"b 2 of nobody", "b success"}));
}

TEST_F(QuestionTest, WaitsForTheServiceUntilItsDeadline) {
    open();
    ask("a", 86400000);
    ask("b", 1);
    EXPECT_EQ(reported(2), (Lines{"session connecting", "b no answer in time"}));
    mSdk.up();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"Create", "RegFilterStatus", "GetFilters"}));
    mSdk.list({1});
    reported();
    mSdk.list({1});
    EXPECT_EQ(reported(), (Lines{"a 1 of nobody", "a success"}));
}

TEST_F(QuestionTest, EmptyListIsNoAnswer) {
    openUp();
    ask("a", 1);
    mSdk.list({});
    EXPECT_EQ(reported(1), (Lines{"a no answer in time"}));
    ask("b");
    EXPECT_EQ(mSdk.take(), (Lines{"GetFilters", "GetFilters"}));
}

TEST_F(QuestionTest, ListThatNoOtherFollowsIsWholeAtTheDeadline) {
    openUp();
    ask("a", 200);
    mSdk.list({1});
    EXPECT_EQ(reported(2), (Lines{"a 1 of nobody", "a success"}));
    ask("b");
    mSdk.list({2});
    reported();
    mSdk.list({3});
    EXPECT_EQ(reported(), (Lines{"b 2 of nobody", "b success"}));
}

TEST_F(QuestionTest, WhoComesLaterDoesNotWaitForAnAnswerThatDoesNotCome) {
    openUp();
    ask("a", 86400000);
    mSdk.list({});
    ask("b");
    mSdk.take();
    EXPECT_TRUE(dispatchUntil([this] { return mSdk.take() == Lines{"GetFilters"}; }));
    mSdk.list({1});
    reported();
    mSdk.list({1});
    EXPECT_EQ(reported(), (Lines{"a 1 of nobody", "a success", "b 1 of nobody", "b success"}));
}

TEST_F(QuestionTest, AnswerBeforeOneThatDoesNotComeIsWhole) {
    openUp();
    ask("a");
    mSdk.list({1});
    reported();
    mSdk.list({});
    ask("b");
    EXPECT_EQ(reported(2), (Lines{"a 1 of nobody", "a success"}));
}

TEST_F(QuestionTest, EachEntryAndTheEndComeAlsoBehindOneThatThrows) {
    openUp();
    ask("a");
    mSdk.list({1, 2});
    reported();
    mSdk.list({1});
    upon("a 1 of nobody", [] { throw std::runtime_error("one"); });
    EXPECT_THROW(sdfSessionDispatch(mSession), std::runtime_error);
    EXPECT_EQ(reported(), (Lines{"a 1 of nobody", "a 2 of nobody", "a success"}));
}

TEST_F(QuestionTest, RemovedFilterIsListedWithoutAHandle) {
    openUp();
    SdfFilter* const filter = add("one", 1);
    mSdk.answerUnsettled(1);
    reported();
    sdfFilterRemove(filter);
    ask("a", 200);
    mSdk.list({1});
    EXPECT_EQ(reported(3), (Lines{"one removed", "a 1 of nobody", "a success"}));
}

TEST_F(QuestionTest, LossEndsWhatWasAskedOnly) {
    openUp();
    ask("a");
    mSdk.list({1});
    ask("b");
    reported();
    askReport("c");
    ask("d");  // waits for the list that b is to get
    mSdk.status(SDF_V2_SERVICE_DOWN);
    EXPECT_EQ(reported(), (Lines{"session down: service down", "a service lost", "b service lost",
                                 "c service lost"}));
    waitForNextClient();
    mSdk.take();
    mSdk.up();
    reported();
    EXPECT_EQ(mSdk.take(), (Lines{"RegFilterStatus", "GetFilters"}));
    mSdk.list({1});
    reported();
    mSdk.list({1});
    EXPECT_EQ(reported(), (Lines{"d 1 of nobody", "d success"}));
}

TEST_F(QuestionTest, QueueReportBesidePeriodicOnes) {
    openUp();
    ASSERT_EQ(sdfSessionSetQueueReports(mSession, 9, onReport, nullptr), 0);
    askReport("a");
    EXPECT_EQ(mSdk.take(), (Lines{"RegPriorityQueueReports 1 9", "GetPriorityQueueReport"}));
    mSdk.report({1, 2});
    EXPECT_EQ(reported(), (Lines{"report 1 10 20", "report 2 10 20"}));
    mSdk.report({3});
    EXPECT_EQ(reported(), (Lines{"report 3 10 20", "a 1", "a 2", "a success"}));
}

TEST_F(QuestionTest, RefusesNoCallbackAndDeadlinesOutOfRange) {
    open();
    EXPECT_EQ(sdfSessionAskFilters(mSession, 0, nullptr, nullptr), SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionAskFilters(mSession, 86400001, onFilters, nullptr),
              SDF_SESSION_INVALID_ARG);
    EXPECT_EQ(sdfSessionAskQueueReport(nullptr, 0, onQueueReport, nullptr),
              SDF_SESSION_INVALID_ARG);
}

}  // namespace
