// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <future>
#include <optional>
#include <thread>
#include <utility>

#include "utils/SignalMask.h"

// Runs body() on a thread of its own, without signals, and returns its result, or nothing when it
// has not returned by then; the thread is left in it. For calls that may never return.
template <typename Body>
auto callUntil(std::chrono::steady_clock::time_point end, Body body)
    -> std::optional<decltype(body())> {
    std::packaged_task<decltype(body())()> task(std::move(body));
    auto result = task.get_future();
    std::thread thread = [&task] {
        const SignalMask mask;
        return std::thread(std::move(task));
    }();
    if (result.wait_until(end) != std::future_status::ready) {
        thread.detach();
        return std::nullopt;
    }
    thread.join();  // with everything that it holds
    return result.get();
}
