// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <ostream>

#include "tests/support/DriverCounts.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/ProcessThreads.h"
#include "tools/emulator/HeapCount.h"
#include "tools/emulator/ProcessStats.h"

// What this process holds.
struct Figures {
    size_t descriptors;
    size_t threads;
    int64_t heapBlocks;
    DriverCounts driver;
};

inline Figures figures() {
    return {openDescriptors(), threadsOf(getpid()), heapBlocks(), driverCountsOf(getpid())};
}

inline std::ostream& operator<<(std::ostream& out, const Figures& figures) {
    return out << figures.descriptors << " descriptors, " << figures.threads << " threads, "
               << figures.heapBlocks << " heap blocks; with the driver " << figures.driver;
}

// What the emulator holds.
struct EmulatorFigures {
    EmulatorProcess::Stats stats;
    size_t threads;
    DriverCounts driver;
};

inline EmulatorFigures figures(EmulatorProcess& emulator) {
    return {emulator.stats(), threadsOf(emulator.pid()), driverCountsOf(emulator.pid())};
}

inline std::ostream& operator<<(std::ostream& out, const EmulatorFigures& figures) {
    return out << figures.stats.clients << " clients, "
               << Figures{figures.stats.descriptors, figures.threads,
                          static_cast<int64_t>(figures.stats.heapBlocks), figures.driver};
}

// Waits until the figures of this process are no higher than `limit`: threads of the library that
// are about to end may take a moment.
inline testing::AssertionResult settlesAt(const Figures& limit) {
    Figures now{};
    const bool settled = eventually([&] {
        now = figures();
        return now.descriptors <= limit.descriptors && now.threads <= limit.threads &&
               now.heapBlocks <= limit.heapBlocks && now.driver.holdsNoMoreThan(limit.driver);
    });
    return (settled ? testing::AssertionSuccess() : testing::AssertionFailure())
           << now << " (before: " << limit << ")";
}

// The same for the emulator's, and its clients.
inline testing::AssertionResult settlesAt(EmulatorProcess& emulator, const EmulatorFigures& limit) {
    EmulatorFigures now{};
    const bool settled = eventually([&] {
        now = figures(emulator);
        return now.stats.clients <= limit.stats.clients &&
               now.stats.descriptors <= limit.stats.descriptors && now.threads <= limit.threads &&
               now.stats.heapBlocks <= limit.stats.heapBlocks &&
               now.driver.holdsNoMoreThan(limit.driver);
    });
    return (settled ? testing::AssertionSuccess() : testing::AssertionFailure())
           << "emulator: " << now << " (before: " << limit << ")";
}
