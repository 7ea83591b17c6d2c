// SPDX-License-Identifier: Apache-2.0
// Whatever the service does, in the end it has what the session wants. --rounds=N: how often it is
// killed, --seeds=N: with how many services that misbehave, --rest=N: how many seconds to look at
// rest.

#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/session/RandomRules.h"
#include "tests/session/ServiceState.h"
#include "tests/session/Wanted.h"
#include "tests/support/Driver.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/ProcessThreads.h"
#include "tests/support/TestDirectory.h"

namespace {

unsigned int gRounds = 200;
unsigned int gSeeds = 20;
unsigned int gRest = 2;

struct Resources {
    int64_t descriptors = ProcessFigures::of(getpid()).descriptors;
    size_t threads = threadsOf(getpid());
    size_t heap = mallinfo2().uordblks;
};

TEST(HealingTest, ServiceThatIsKilledAgainAndAgain) {
    const TestDirectory directory;
    Wanted wanted(1);
    wanted.open(1, 5, 10000);
    wanted.wantEverything(32);
    EmulatorProcess emulator;
    Resources early;
    for (unsigned int round = 0; round < gRounds; ++round) {
        ASSERT_TRUE(wanted.dispatchUntilServed()) << round << "\n"
                                                  << serviceState() << "\n"
                                                  << wanted.expected();
        if (round == std::min(100U, gRounds / 2)) {
            ASSERT_TRUE(wanted.trim());
            early = Resources();
        }
        for (unsigned int changes = wanted.pick(4); changes > 0; --changes) {
            wanted.change();
            wanted.dispatch(static_cast<int>(wanted.pick(3)));
        }
        wanted.dispatch(static_cast<int>(wanted.pick(21)));
        // At any time of its coming up, too.
        for (unsigned int again = wanted.pick(3); again > 0; --again) {
            emulator.restart();
            wanted.dispatch(static_cast<int>(wanted.pick(21)));
            wanted.change();
        }
        emulator.restart();
        ASSERT_EQ(wanted.violation(), "") << round;
        if (round % 1000 == 999) printf("%u rounds\n", round + 1);
    }
    ASSERT_TRUE(wanted.trim());
    // The driver's pool threads stay, up to 16.
    const size_t threads = early.threads + (overDriver() ? 15 : 0);
    const size_t heap = early.heap + size_t{64} * 1024;
    Resources late;
    // Threads that are about to end, and connections that are about to be closed, take a moment.
    eventually([&] {
        wanted.dispatch(1);
        late = Resources();
        return late.descriptors <= early.descriptors && late.threads <= threads &&
               late.heap <= heap;
    });
    EXPECT_LE(late.descriptors, early.descriptors);
    EXPECT_LE(late.threads, threads);
    EXPECT_LE(late.heap, heap);
    printf("descriptors %jd, %jd; threads %zu, %zu; bytes of heap %zu, %zu; up %zu times\n",
           intmax_t{early.descriptors}, intmax_t{late.descriptors}, early.threads, late.threads,
           early.heap, late.heap, wanted.ups());
    wanted.close();
    EXPECT_EQ(wanted.violation(), "");
}

TEST(HealingTest, ServicesThatMisbehave) {
    for (unsigned int seed = 1; seed <= gSeeds; ++seed) {
        const TestDirectory directory;
        Wanted wanted(seed);
        const std::vector<std::string> rules = randomRules(
            [&wanted](size_t limit) { return wanted.pick(static_cast<unsigned int>(limit)); },
            true);
        std::string all = "seed " + std::to_string(seed);
        bool dies = false;
        for (const std::string& word : rules) {
            all += " " + word;
            dies = dies || word.find("die") != std::string::npos;
        }
        SCOPED_TRACE(all);
        auto emulator = std::make_unique<EmulatorProcess>(rules);
        wanted.open(1, 20, 1000);
        wanted.wantEverything(8);
        for (int changes = 0; changes < 60; ++changes) {
            wanted.change();
            wanted.dispatch(static_cast<int>(wanted.pick(8)));
        }
        if (dies) {
            // Perhaps it is alive, and to be killed.
            emulator.reset();
            emulator = std::make_unique<EmulatorProcess>();
        }
        ASSERT_TRUE(wanted.dispatchUntilServed()) << serviceState() << "\n" << wanted.expected();
        wanted.close();
        ASSERT_EQ(wanted.violation(), "");
    }
}

#ifndef __SANITIZE_THREAD__  // whose own thread does not sleep through
TEST(HealingTest, NothingWakesUpAtRest) {
    const TestDirectory directory;
    const EmulatorProcess emulator;
    Wanted wanted(1);
    wanted.open(1, 5, 500);
    wanted.wantEverything(32);
    wanted.stopReports();
    ASSERT_TRUE(wanted.dispatchUntilServed());
    // What is still on its way may wake it, though not each time.
    bool quiet = false;
    for (int tries = 0; tries < 5 && !quiet; ++tries) {
        wanted.dispatch(1000);
        const int64_t before = ProcessFigures::wakeUpsOf(getpid(), gettid());
        pollfd waited{sdfSessionFd(wanted.session()), POLLIN, 0};
        quiet = poll(&waited, 1, static_cast<int>(gRest) * 1000) == 0 &&
                ProcessFigures::wakeUpsOf(getpid(), gettid()) == before;
    }
    EXPECT_TRUE(quiet);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (int index = 1; index < argc; ++index) {
        (void)sscanf(argv[index], "--rounds=%u", &gRounds);
        (void)sscanf(argv[index], "--seeds=%u", &gSeeds);
        (void)sscanf(argv[index], "--rest=%u", &gRest);
    }
    return RUN_ALL_TESTS();
}
