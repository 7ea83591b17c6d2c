// SPDX-License-Identifier: Apache-2.0
// Adding one timer to so many that are pending, and removing it again.
#include <benchmark/benchmark.h>
#include <uv.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <random>
#include <vector>

#include "utils/LumTimer.h"

namespace {

int neverCalled(void* /*data*/) {
    return -1;
}

// Delays between one and two hours, in no order.
class Delays {
  public:
    int operator()() { return mDistribution(mGenerator); }

  private:
    static constexpr int kHour = 3'600'000;
    std::minstd_rand mGenerator;
    std::uniform_int_distribution<int> mDistribution{kHour, 2 * kHour};
};

void timer(benchmark::State& state) {
    LumTimer timer(nullptr);
    Delays delay;
    for (int64_t i = 0; i < state.range(0); ++i) {
        timer.addTimedCallback(delay(), neverCalled, nullptr);
    }
    while (state.KeepRunning()) {
        timer.removeTimedCallback(timer.addTimedCallback(delay(), neverCalled, nullptr));
    }
}
BENCHMARK(timer)->Name("ours:timer")->RangeMultiplier(10)->Range(10, 100'000);

// One heap of the same entries, the clock read once, a linear search for the id, and the last entry
// moved to where the removed one was.
class FloorTimer {
  public:
    int add(int64_t delay) {
        timespec now{};
        clock_gettime(CLOCK_BOOTTIME, &now);
        const int64_t ms = now.tv_nsec / 1'000'000 + delay;
        now.tv_sec += ms / 1000;
        mHeap.push_back({++mLastId, now, neverCalled, nullptr, delay});
        std::push_heap(mHeap.begin(), mHeap.end(), TimedEventCmp());
        return mLastId;
    }

    void remove(int id) {
        auto hole = static_cast<size_t>(
            std::find_if(mHeap.begin(), mHeap.end(),
                         [id](const TimedEvent& event) { return event.mId == id; }) -
            mHeap.begin());
        const TimedEvent last = mHeap.back();
        mHeap.pop_back();
        if (hole == mHeap.size()) return;
        const TimedEventCmp later;
        while (hole > 0 && later(mHeap[(hole - 1) / 2], last)) {
            mHeap[hole] = mHeap[(hole - 1) / 2];
            hole = (hole - 1) / 2;
        }
        for (size_t child = 2 * hole + 1; child < mHeap.size(); child = 2 * hole + 1) {
            if (child + 1 < mHeap.size() && later(mHeap[child], mHeap[child + 1])) ++child;
            if (!later(last, mHeap[child])) break;
            mHeap[hole] = mHeap[child];
            hole = child;
        }
        mHeap[hole] = last;
    }

  private:
    std::vector<TimedEvent> mHeap;
    int mLastId = 0;
};

void floorTimer(benchmark::State& state) {
    FloorTimer timer;
    Delays delay;
    for (int64_t i = 0; i < state.range(0); ++i) timer.add(delay());
    while (state.KeepRunning()) timer.remove(timer.add(delay()));
}
BENCHMARK(floorTimer)->Name("floor:timer")->RangeMultiplier(10)->Range(10, 100'000);

// The loop's time is read at each turn, as it is when a loop runs.
void uvTimer(benchmark::State& state) {
    uv_loop_t loop{};
    uv_loop_init(&loop);
    Delays delay;
    std::vector<uv_timer_t> timers(static_cast<size_t>(state.range(0)) + 1);
    for (uv_timer_t& timer : timers) uv_timer_init(&loop, &timer);
    const auto start = [&delay](uv_timer_t& timer) {
        uv_timer_start(
            &timer, [](uv_timer_t* /*handle*/) {}, static_cast<uint64_t>(delay()), 0);
    };
    for (auto timer = timers.begin() + 1; timer != timers.end(); ++timer) start(*timer);
    while (state.KeepRunning()) {
        uv_update_time(&loop);
        start(timers.front());
        uv_timer_stop(&timers.front());
    }
    for (uv_timer_t& timer : timers) uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}
BENCHMARK(uvTimer)->Name("libuv:timer")->RangeMultiplier(10)->Range(10, 100'000);

}  // namespace
