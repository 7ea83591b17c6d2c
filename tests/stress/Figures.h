// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "tests/support/EmulatorProcess.h"
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

// Waits until the figures of this process are no higher than `limit`: threads of the library that
// are about to end may take a moment.
inline bool settlesAt(const Figures& limit) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
        const Figures now = figures();
        if (now.descriptors <= limit.descriptors && now.threads <= limit.threads &&
            now.heapBlocks <= limit.heapBlocks) {
            return true;
        }
        if (std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << now.descriptors << " descriptors, " << now.threads << " threads, "
                          << now.heapBlocks << " heap blocks; before " << limit.descriptors << ", "
                          << limit.threads << ", " << limit.heapBlocks;
            return false;
        }
        std::this_thread::yield();
    }
}

// The same for the emulator's.
inline bool settlesAt(EmulatorProcess& emulator, const EmulatorProcess::Stats& limit) {
    EmulatorProcess::Stats last{};
    const bool settled = emulator.waitForStats([&](const EmulatorProcess::Stats& now) {
        last = now;
        return now.clients <= limit.clients && now.descriptors <= limit.descriptors &&
               now.threads <= limit.threads && now.heapBlocks <= limit.heapBlocks;
    });
    if (!settled) {
        ADD_FAILURE() << "emulator: " << last.clients << " clients, " << last.descriptors
                      << " descriptors, " << last.threads << " threads, " << last.heapBlocks
                      << " heap blocks; before " << limit.clients << ", " << limit.descriptors
                      << ", " << limit.threads << ", " << limit.heapBlocks;
    }
    return settled;
}
