// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <future>
#include <string>
#include <vector>

#include "tests/stress/ClientEvents.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

// An application that does not come back from its callback, against a real service.

namespace {

long long ask(SdfLatencyLvl first, SdfLatencyLvl second) {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, false, onLevels);
}

TEST(BlockedCallbackTest, ServiceDoesNotWaitForTheApplication) {
    const TestDirectory directory;
    EmulatorProcess emulator({"--print"});
    std::promise<void> release;  // releases the callback too when it is destroyed
    std::atomic<bool> blocked{true};
    setEventHook([&blocked, released = release.get_future().share()](const ClientEvent& event) {
        if (event.kind != ClientEvent::Kind::kStatus) return;
        released.wait();
        blocked = false;
    });
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));

    // A request is over for the library when the service has sent its answer, and the library makes
    // one request after the other: each one that arrives shows that the send before it came back.
    const long long first = ask(SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4);
    const long long second = ask(SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_5);
    ASSERT_GT(first, 0);
    ASSERT_GT(second, 0);
    const auto arrived = [](const std::string& line) {
        return line.rfind("received pid=" + std::to_string(getpid()) + " ", 0) == 0 &&
               line.find("SET_LATENCY_LEVEL") != std::string::npos;
    };
    EXPECT_TRUE(emulator.process().waitFor(arrived, 2));

    // Meanwhile others are served: levels L2 and L4 for the first slot, with the id 7.
    ChildProcess other({LUM_CLIENT_PROGRAM});
    ASSERT_TRUE(other.waitForLine("registered"));
    other.writeLine("5 1 08 01 10 07 1A 08 1A 06 08 01 10 01 18 03");
    EXPECT_TRUE(other.waitForLine("got 08 01 10 07 1A 06 12 04 08 01 10 03"));
    EXPECT_EQ(emulator.stats().clients, 2U);

    // All the time the application was in its callback, and the answers wait behind it.
    EXPECT_TRUE(blocked);
    EXPECT_EQ(clientTexts().size(), 1U);
    release.set_value();
    EXPECT_TRUE(waitForLevels(first, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4));
    EXPECT_TRUE(waitForLevels(second, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_5));
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(other.kill(), 128 + SIGKILL);
}

}  // namespace
