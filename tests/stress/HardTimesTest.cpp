// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

// Programs that use the library where the machine refuses things, or carelessly.

namespace {

using Lines = std::vector<std::string>;

struct Outcome {
    int status;
    Lines lines;
    Lines errors;

    bool has(const std::string& line) const {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    bool hasLogged(const std::string& part) const {
        return std::any_of(lines.begin(), lines.end(), [&part](const std::string& line) {
            return line.rfind("log: ", 0) == 0 && line.find(part) != std::string::npos;
        });
    }
};

// These programs end without cleaning up, or without descriptors: the search for leaks that a
// sanitizer makes at a process's end stops the library's threads, and needs descriptors itself.
const std::vector<std::string> kNoLeakSearch{"ASAN_OPTIONS=detect_leaks=0"};

Outcome run(const std::vector<std::string>& command) {
    ChildProcess process(command, kNoLeakSearch);
    const int status = process.wait();
    return {status, process.lines(), process.errorLines()};
}

const std::string kStarved = LUM_STARVED_CLIENT;
const std::string kCareless = LUM_CARELESS_CLIENT;

TEST(HardTimesTest, EveryNumberOfFreeDescriptorsIsSurvived) {
    const TestDirectory directory;
    const EmulatorProcess emulator;
    const Lines noLoop[] = {{"log: Cannot create epoll instance"},
                            {"log: Cannot create eventfd instance"},
                            {"log: Cannot create removeFd instance"}};
    for (int free = 0; free < 3; ++free) {
        const Outcome outcome = run({kStarved, "descriptors", std::to_string(free)});
        EXPECT_EQ(outcome.status, 255) << free;
        EXPECT_EQ(outcome.lines, noLoop[free]) << free;
    }

    const Outcome noQueue = run({kStarved, "descriptors", "3"});
    EXPECT_EQ(noQueue.status, 0);
    EXPECT_TRUE(noQueue.has("no transport"));
    EXPECT_TRUE(noQueue.has(
        "log: SdkClient: no descriptor for the event queue; the transport is not started"));

    int free = 4;
    for (bool up = false; !up; ++free) {
        ASSERT_LT(free, 32);
        const Outcome outcome = run({kStarved, "descriptors", std::to_string(free)});
        EXPECT_EQ(outcome.status, 0) << free;
        up = outcome.has("up after 0 failed attempts");
        if (up) continue;
        EXPECT_TRUE(outcome.has("no service after 6 attempts")) << free;
        EXPECT_TRUE(outcome.hasLogged("Too many open files")) << free;
    }
    RecordProperty("descriptors_needed", free - 1);
}

TEST(HardTimesTest, ExitHandlersMayUseTheLibraryWhenItEndsTheProcess) {
    const Outcome outcome = run({kStarved, "atexit"});
    EXPECT_EQ(outcome.status, 255);
    EXPECT_EQ(outcome.lines, (Lines{"log: Cannot create epoll instance", "destroy at exit: -5"}));
}

TEST(HardTimesTest, CarelessProcessEndsAsItWantsTo) {
    for (const char* mode : {"return", "exit-in-callback", "exit-connecting"}) {
        SCOPED_TRACE(mode);
        const TestDirectory directory;
        std::optional<EmulatorProcess> emulator;
        const bool connects = std::string(mode) != "exit-connecting";
        if (connects) emulator.emplace();
        for (int round = 0; round < 20; ++round) {
            const Outcome outcome = run({kCareless, mode});
            EXPECT_EQ(outcome.status, 0);
            EXPECT_TRUE(!connects || outcome.errors.empty()) << outcome.errors[0];
        }
        EXPECT_TRUE(!connects || emulator->waitForClients(0));
    }
}

TEST(HardTimesTest, UnloadedLibraryStillDelivers) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    ChildProcess process({LUM_UNLOADING_CLIENT, LUM_SDK_LIBRARY}, kNoLeakSearch);
    ASSERT_TRUE(process.waitForLine("unloaded"));
    emulator.kill();
    EXPECT_EQ(process.wait(), 0);
}

}  // namespace
