// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

using Value = std::shared_ptr<int>;

constexpr int kFlood = 2000;  // values of one thread

// The time of one value: `post` is called on the posting threads, `runOnce` waits on this thread
// and handles what has come, `handled` counts it.
template <typename Post, typename RunOnce>
void flood(benchmark::State& state, const int64_t& handled, const Post& post,
           const RunOnce& runOnce) {
    const int64_t producers = state.range(0);
    int64_t expected = 0;
    while (state.KeepRunning()) {
        expected += producers * kFlood;
        std::vector<std::thread> threads;
        for (int64_t i = 0; i < producers; ++i) {
            threads.emplace_back([&post] {
                const Value value = std::make_shared<int>();
                for (int n = 0; n < kFlood; ++n) post(value);
            });
        }
        while (handled != expected) runOnce();
        for (std::thread& thread : threads) thread.join();
    }
    state.SetItemsProcessed(expected);
}

#define LUM_FLOOD(function, name) BENCHMARK(function)->Name(name)->Arg(1)->Arg(2)->UseRealTime()
