// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/FairShare.h"
#include "platform/linux/src/WorkLanes.h"

namespace {

// As much stays free as is held.
static_assert(isFairShare(0, 0, 0));
static_assert(isFairShare(1, 1, 0));
static_assert(!isFairShare(2, 1, 0));
static_assert(isFairShare(8, 8, 1));
static_assert(!isFairShare(9, 7, 1));
// A few are for each.
static_assert(isFairShare(1, 0, 1));
static_assert(!isFairShare(2, 0, 1));
static_assert(isFairShare(5, 0, 5));

class NamedWork final : public Work {
  public:
    NamedWork(std::string name, std::shared_ptr<WorkLane> lane)
        : Work(std::move(lane)), name(std::move(name)) {}
    void run() override {}

    const std::string name;
};

class WorkLanesTest : public testing::Test {
  protected:
    using Lane = std::shared_ptr<WorkLane>;

    static Lane makeLane() { return std::make_shared<WorkLane>(); }

    // Returns whether it is the work's turn.
    bool enter(const Lane& lane, const std::string& name = "") {
        return mLanes.enter(std::make_unique<NamedWork>(name, lane)) != nullptr;
    }
    // How much of so much work has its turn.
    int enterMany(const Lane& lane, int count) {
        int turns = 0;
        for (int i = 0; i < count; ++i) turns += enter(lane) ? 1 : 0;
        return turns;
    }
    // The names of all that have waited and have their turn now.
    std::vector<std::string> next() {
        std::vector<std::string> names;
        while (const std::unique_ptr<Work> work = mLanes.next()) {
            names.push_back(static_cast<NamedWork&>(*work).name);
        }
        return names;
    }

    WorkLanes mLanes;
};

TEST_F(WorkLanesTest, FirstLaneGetsHalfAndEachFurtherOneHalfOfTheRest) {
    mLanes.setThreads(16);
    std::vector<int> turns;
    turns.reserve(6);
    for (int i = 0; i < 6; ++i) turns.push_back(enterMany(makeLane(), 40));
    EXPECT_EQ(turns, (std::vector<int>{8, 4, 2, 1, 1, 0}));
}

TEST_F(WorkLanesTest, OnlyThreadIsForWhoeverComesFirst) {
    mLanes.setThreads(1);
    const Lane first = makeLane();
    const Lane second = makeLane();
    EXPECT_TRUE(enter(first));
    EXPECT_FALSE(enter(first, "first"));
    EXPECT_FALSE(enter(second, "second"));
    mLanes.leave(first);
    EXPECT_EQ(next(), std::vector<std::string>{"first"});
    mLanes.leave(first);
    EXPECT_EQ(next(), std::vector<std::string>{"second"});
}

TEST_F(WorkLanesTest, NothingHasItsTurnBeforeThereAreThreads) {
    const Lane lane = makeLane();
    EXPECT_FALSE(enter(lane, "a"));
    EXPECT_FALSE(enter(lane, "b"));
    EXPECT_EQ(next(), std::vector<std::string>{});
    mLanes.setThreads(4);
    EXPECT_EQ(next(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(WorkLanesTest, WorkOfOneLaneKeepsItsOrder) {
    mLanes.setThreads(2);
    const Lane lane = makeLane();
    EXPECT_TRUE(enter(lane));
    for (const char* const name : {"a", "b", "c"}) EXPECT_FALSE(enter(lane, name));
    // More threads do not let later work overtake what waits.
    mLanes.setThreads(4);
    EXPECT_FALSE(enter(lane, "d"));
    EXPECT_EQ(next(), std::vector<std::string>{"a"});
    mLanes.leave(lane);
    EXPECT_EQ(next(), std::vector<std::string>{"b"});
    mLanes.leave(lane);
    mLanes.leave(lane);
    EXPECT_EQ(next(), (std::vector<std::string>{"c", "d"}));
}

TEST_F(WorkLanesTest, LanesThatWaitComeOneAfterTheOther) {
    mLanes.setThreads(4);
    const Lane first = makeLane();
    const Lane second = makeLane();
    EXPECT_EQ(enterMany(nullptr, 4), 4);
    for (const char* const name : {"1a", "1b", "1c"}) EXPECT_FALSE(enter(first, name));
    for (const char* const name : {"2a", "2b", "2c"}) EXPECT_FALSE(enter(second, name));
    for (int i = 0; i < 4; ++i) mLanes.leave(nullptr);
    EXPECT_EQ(next(), (std::vector<std::string>{"1a", "2a"}));
    mLanes.leave(second);
    EXPECT_EQ(next(), (std::vector<std::string>{"1b", "2b"}));
}

TEST_F(WorkLanesTest, WorkWithoutALaneAlwaysHasItsTurnAndCounts) {
    mLanes.setThreads(4);
    EXPECT_EQ(enterMany(nullptr, 6), 6);
    const Lane lane = makeLane();
    EXPECT_FALSE(enter(lane, "a"));
    mLanes.leave(nullptr);
    mLanes.leave(nullptr);
    EXPECT_EQ(next(), std::vector<std::string>{});
    mLanes.leave(nullptr);
    EXPECT_EQ(next(), std::vector<std::string>{"a"});
}

TEST_F(WorkLanesTest, LaneLivesWhileItsWorkWaits) {
    Lane lane = makeLane();
    std::weak_ptr<WorkLane> ended = lane;
    EXPECT_FALSE(enter(lane, "a"));
    lane.reset();
    EXPECT_FALSE(ended.expired());
    mLanes.setThreads(1);
    EXPECT_EQ(next(), std::vector<std::string>{"a"});
    EXPECT_TRUE(ended.expired());
    // Work that still waits ends with the lanes.
    {
        WorkLanes lanes;
        lane = makeLane();
        ended = lane;
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(lanes.enter(std::make_unique<NamedWork>("", lane)), nullptr);
        }
        lane.reset();
        EXPECT_FALSE(ended.expired());
    }
    EXPECT_TRUE(ended.expired());
}

}  // namespace
