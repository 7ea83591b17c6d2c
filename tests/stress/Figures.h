// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "tests/support/Driver.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tools/emulator/HeapCount.h"
#include "tools/emulator/ProcessStats.h"

// What this process holds.
struct Figures {
    size_t descriptors;
    size_t threads;
    int64_t heapBlocks;
};

inline Figures figures() {
    return {openDescriptors(), runningThreads(), heapBlocks()};
}

// The driver's pool threads stay, up to 16, as on a device.
inline size_t mostThreads(size_t before) {
    return overDriver() ? before + 15 : before;
}

// Waits until the figures of this process are no higher than `limit`: threads of the library that
// are about to end may take a moment.
inline testing::AssertionResult settlesAt(const Figures& limit) {
    Figures now{};
    const bool settled = eventually([&] {
        now = figures();
        return now.descriptors <= limit.descriptors && now.threads <= mostThreads(limit.threads) &&
               now.heapBlocks <= limit.heapBlocks;
    });
    if (settled) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << now.descriptors << " descriptors, " << now.threads << " threads, " << now.heapBlocks
           << " heap blocks; before " << limit.descriptors << ", " << limit.threads << ", "
           << limit.heapBlocks;
}

// The same for the emulator's, and its clients.
inline testing::AssertionResult settlesAt(EmulatorProcess& emulator,
                                          const EmulatorProcess::Stats& limit) {
    const auto settled = [&limit](const EmulatorProcess::Stats& now) {
        return now.clients <= limit.clients && now.descriptors <= limit.descriptors &&
               now.threads <= mostThreads(limit.threads) && now.heapBlocks <= limit.heapBlocks;
    };
    if (emulator.waitForStats(settled)) return testing::AssertionSuccess();
    const EmulatorProcess::Stats now = emulator.stats();
    return testing::AssertionFailure()
           << "emulator: " << now.clients << " clients, " << now.descriptors << " descriptors, "
           << now.threads << " threads, " << now.heapBlocks << " heap blocks; before "
           << limit.clients << ", " << limit.descriptors << ", " << limit.threads << ", "
           << limit.heapBlocks;
}
