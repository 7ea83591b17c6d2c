// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

// Programs that use the library carelessly.

namespace {

using Lines = std::vector<std::string>;

// These programs end without cleaning up, or without descriptors: the search for leaks that a
// sanitizer makes at a process's end stops the library's threads, and needs descriptors itself.
const std::vector<std::string> kNoLeakSearch{"ASAN_OPTIONS=detect_leaks=0"};

TEST(CarelessProgramsTest, ExitHandlersMayUseTheLibraryWhenItEndsTheProcess) {
    ChildProcess client({LUM_CARELESS_CLIENT, "no-descriptors"}, kNoLeakSearch);
    EXPECT_EQ(client.wait(), 255);
    EXPECT_EQ(client.lines(), Lines{"destroy at exit: -5"});
}

TEST(CarelessProgramsTest, CarelessProcessEndsAsItWantsTo) {
    for (const char* mode : {"return", "exit-in-callback", "exit-connecting"}) {
        SCOPED_TRACE(mode);
        const TestDirectory directory;
        std::optional<EmulatorProcess> emulator;
        const bool connects = std::string(mode) != "exit-connecting";
        if (connects) emulator.emplace();
        for (int round = 0; round < 20; ++round) {
            ChildProcess client({LUM_CARELESS_CLIENT, mode}, kNoLeakSearch);
            EXPECT_EQ(client.wait(), 0);
            EXPECT_TRUE(!connects || client.errorLines().empty()) << client.errorLines()[0];
        }
        EXPECT_TRUE(!connects || emulator->waitForClients(0));
    }
}

TEST(CarelessProgramsTest, UnloadedLibraryStillDelivers) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    ChildProcess process({LUM_UNLOADING_CLIENT, LUM_SDK_LIBRARY}, kNoLeakSearch);
    ASSERT_TRUE(process.waitForLine("unloaded"));
    emulator.kill();
    EXPECT_EQ(process.wait(), 0);
}

}  // namespace
