// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <utility>

#include "tests/utils/SystemCalls.h"
#include "utils/LumTimer.h"

namespace {

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kNsPerMs = 1000000;

// A timer beside a simple model of it: a list of what is queued, searched whole each time. What the
// timer calls must be what the model would call, at each call.
class Model {
  public:
    explicit Model(unsigned seed) : mRandom(seed) {
        gSystemCalls.clockGettime = [this](clockid_t /*clock*/, timespec* now) {
            *now = {static_cast<time_t>(mNow / kNsPerSecond),
                    static_cast<long>(mNow % kNsPerSecond)};
            return 0;
        };
    }

    void step() {
        switch (number(0, 5)) {
            case 0:
            case 1: add(); break;
            case 2: removeOne(); break;
            case 3: mNow += number(0, 40) * kNsPerMs + number(0, 999999); break;
            default: process(); break;
        }
        EXPECT_EQ(mTimer.timeUntilNextEvent(), expectedWait());
    }

    size_t calls() const { return mCalls; }

  private:
    // Seconds and nanoseconds, not one number: a negative delay leaves negative nanoseconds, which
    // decide the order among what is already due.
    using Deadline = std::pair<int64_t, int64_t>;

    struct Slot {
        Model* model;
        int id;
    };
    struct Queued {
        Deadline deadline;
        int64_t delay;
    };

    int64_t number(int64_t least, int64_t most) {
        return std::uniform_int_distribution<int64_t>(least, most)(mRandom);
    }

    int64_t someDelay() { return number(0, 9) == 0 ? number(-3000, 0) : number(1, 80); }

    static int64_t inNs(const Deadline& deadline) {
        return deadline.first * kNsPerSecond + deadline.second;
    }

    Deadline deadlineAfter(int64_t delay) const {
        Deadline deadline{mNow / kNsPerSecond + delay / 1000,
                          mNow % kNsPerSecond + delay % 1000 * kNsPerMs};
        if (deadline.second >= kNsPerSecond) {
            ++deadline.first;
            deadline.second -= kNsPerSecond;
        }
        return deadline;
    }

    void add() {
        if (mQueued.size() > 40) return;
        const int64_t delay = someDelay();
        Slot& slot = mSlots.emplace_back(Slot{this, 0});
        slot.id = mTimer.addTimedCallback(delay, run, &slot);
        ++mIds;
        EXPECT_EQ(slot.id, mIds);
        mQueued[slot.id] = {deadlineAfter(delay), delay};
    }

    void removeOne() {
        // Often one that has ended, or was never there.
        const int id = static_cast<int>(number(std::max(0, mIds - 20), mIds + 1));
        mTimer.removeTimedCallback(id);
        mQueued.erase(id);
    }

    void process() {
        mTimer.processEvents();
        for (const auto& queued : mQueued) {
            EXPECT_GT(inNs(queued.second.deadline), mNow) << "left behind: " << queued.first;
        }
    }

    int expectedWait() const {
        if (mQueued.empty()) return -1;
        const auto earliest = std::min_element(
            mQueued.begin(), mQueued.end(),
            [](const auto& a, const auto& b) { return a.second.deadline < b.second.deadline; });
        const int64_t left = inNs(earliest->second.deadline) - mNow;
        return left <= 0 ? 0 : static_cast<int>((left + kNsPerMs - 1) / kNsPerMs);
    }

    static int run(void* data) {
        const Slot* const slot = static_cast<Slot*>(data);
        return slot->model->called(slot->id);
    }

    int called(int id) {
        ++mCalls;
        const auto found = mQueued.find(id);
        if (found == mQueued.end()) {
            ADD_FAILURE() << id << " is not queued";
            return -1;
        }
        const Queued event = found->second;
        EXPECT_LE(inNs(event.deadline), mNow);
        for (const auto& queued : mQueued) EXPECT_GE(queued.second.deadline, event.deadline);
        mQueued.erase(found);

        if (number(0, 3) == 0) add();
        if (number(0, 5) == 0) removeOne();
        mNow += number(0, 2) * kNsPerMs;

        // Most end, so that the queue does not only grow, and nothing repeats at once for ever.
        switch (event.delay <= 0 ? 0 : number(0, 4)) {
            case 1: return again(id, event.delay, 0);
            case 2: return again(id, event.delay, static_cast<int>(-number(2, 1000)));
            case 3: {
                const int delay = static_cast<int>(number(1, 80));
                return again(id, delay, delay);
            }
            default: return -1;
        }
    }

    int again(int id, int64_t delay, int result) {
        mQueued[id] = {deadlineAfter(delay), delay};
        return result;
    }

    std::mt19937 mRandom;
    int64_t mNow = 5 * kNsPerSecond;
    LumTimer mTimer{nullptr};
    std::deque<Slot> mSlots;
    std::map<int, Queued> mQueued;
    int mIds = 0;
    size_t mCalls = 0;
};

class LumTimerModelTest : public testing::TestWithParam<unsigned> {};

TEST_P(LumTimerModelTest, DoesWhatTheModelDoes) {
    const RestoreSystemCalls restore;
    Model model(GetParam());
    for (int i = 0; i < 5000 && !HasFailure(); ++i) model.step();
    EXPECT_GT(model.calls(), 1000U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LumTimerModelTest, testing::Range(1U, 9U));

}  // namespace
