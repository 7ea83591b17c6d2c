// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/emulator/ManualClock.h"
#include "tools/emulator/Timeline.h"

namespace {

using std::chrono::milliseconds;

class TimelineTest : public testing::Test {
  protected:
    Timeline::Ticket note(int delay, const std::string& what) {
        return mClock.timeline().after(milliseconds(delay), [this, what] { mDone += what; });
    }

    ManualClock mClock;
    std::string mDone;
};

TEST_F(TimelineTest, ActionsRunWhenTheyAreDueAndOnce) {
    note(5, "a");
    mClock.pass(milliseconds(4));
    EXPECT_EQ(mDone, "");
    mClock.pass(milliseconds(1));
    EXPECT_EQ(mDone, "a");
    mClock.pass(milliseconds(100));
    EXPECT_EQ(mDone, "a");
    EXPECT_FALSE(mClock.timeline().next());
}

TEST_F(TimelineTest, OrderIsThatOfTimeAndThenOfArrival) {
    note(20, "d");
    note(10, "b");
    note(5, "a");
    note(10, "c");
    EXPECT_EQ(mClock.timeline().next(), Timeline::Time(milliseconds(5)));
    mClock.pass(milliseconds(20));
    EXPECT_EQ(mDone, "abcd");
}

TEST_F(TimelineTest, CancelledActionsDoNotRun) {
    const Timeline::Ticket first = note(5, "a");
    note(5, "b");
    mClock.timeline().cancel(first);
    mClock.pass(milliseconds(5));
    EXPECT_EQ(mDone, "b");
    mClock.timeline().cancel(first);
    mClock.timeline().cancel({});
}

TEST_F(TimelineTest, ActionsMayCancelOthersThatAreDue) {
    Timeline::Ticket second;
    mClock.timeline().after(milliseconds(5), [&] { mClock.timeline().cancel(second); });
    second = note(5, "b");
    note(5, "c");
    mClock.pass(milliseconds(5));
    EXPECT_EQ(mDone, "c");
}

TEST_F(TimelineTest, ActionsAddedByActionsWaitForTheNextRun) {
    mClock.timeline().after(milliseconds(1), [&] { note(0, "b"); });
    note(1, "a");
    mClock.pass(milliseconds(1));
    EXPECT_EQ(mDone, "a");
    mClock.timeline().run();
    EXPECT_EQ(mDone, "ab");
}

}  // namespace
