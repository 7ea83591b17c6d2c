// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/stress/ClientEvents.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestDirectory.h"
#include "tools/emulator/ProcessStats.h"

// An application that does everything from inside its callbacks, against a real service. Also run
// without LUM_SDF_GUARDED under the thread sanitizer: this is the way of use that needs no lock.

namespace {

long long ask() {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_3, true,
                            onLevels);
}

bool isUp(const ClientEvent& event) {
    return event.kind == ClientEvent::Kind::kStatus && event.status == SDF_V2_SERVICE_UP;
}

TEST(InCallbackRoundsTest, DestroyAndCreateAgainFromTheAnswer) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    Counter clients;
    setEventHook([&](const ClientEvent& event) {
        if (isUp(event)) {
            EXPECT_GT(ask(), 0);
            return;
        }
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(ask(), SDF_V2_INVALID_OPERATION);
        if (clients.add() < 200) {
            EXPECT_EQ(createSdfClient(onStatus), 0);
        }
    });
    ASSERT_EQ(createSdfClient(onStatus), 0);
    for (int client = 1; client <= 200; ++client) ASSERT_TRUE(clients.waitFor(client));
    EXPECT_EQ(destroySdfClient(), SDF_V2_INVALID_OPERATION);
    EXPECT_TRUE(emulator.waitForClients(0));
}

TEST(InCallbackRoundsTest, DestroyFromServiceUpWhileCreateMayStillBeUnderWay) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    for (int round = 0; round < 300; ++round) {
        Counter destroyed;
        setEventHook([&](const ClientEvent& event) {
            EXPECT_TRUE(isUp(event));
            EXPECT_EQ(destroySdfClient(), 0);
            destroyed.add();
        });
        ASSERT_EQ(createSdfClient(onStatus), 0);
        ASSERT_TRUE(destroyed.waitFor());
    }
    EXPECT_TRUE(emulator.waitForClients(0));
}

#if LUM_SDF_GUARDED
// The loss and a request that failed for it are reported on two threads, perhaps at the same time.
TEST(GuardedInCallbackRoundsTest, RecoveryFromInsideEachCallbackThatReportsALoss) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    // Static: what the last round has set off may still come while the process ends.
    static Counter answers;
    static Counter losses;
    setEventHook([](const ClientEvent& event) {
        if (isUp(event)) {
            EXPECT_GT(ask(), 0);
        } else if (event.kind == ClientEvent::Kind::kStatus) {
            // A create this early may still go to the lost service and fail with -3, which brings
            // us here again.
            EXPECT_EQ(createSdfClient(onStatus), 0);
            if (event.status == SDF_V2_SERVICE_DOWN) losses.add();
        } else {
            answers.add();
        }
    });
    ASSERT_EQ(createSdfClient(onStatus), 0);
    int answered = 0;
    int askedAgain = 0;
    size_t descriptors = 0;
    for (int round = 0; round < 20; ++round) {
        // After a slow start, or two kills of which the library heard as one, it may have looked
        // for the service in vain, which is reported to nobody: it is asked again, then.
        while (!answers.waitFor(answered + 1)) {
            ASSERT_LT(++askedAgain, 10);  // it is the callbacks that recover
            EXPECT_EQ(createSdfClient(onStatus), 0);
        }
        answered = answers.value();
        if (round < 10) descriptors = std::max(descriptors, openDescriptors());
        emulator.restart();
    }
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= descriptors; }));
    ASSERT_EQ(destroySdfClient(), 0);
    EXPECT_GT(losses.value(), 0);
}
#endif

TEST(InCallbackRoundsTest, DestroyFromInsideTheLossOfTheService) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    for (int round = 0; round < 20; ++round) {
        Counter answered;
        setEventHook([&](const ClientEvent& event) {
            if (isUp(event)) {
                EXPECT_GT(ask(), 0);
            }
            if (event.kind == ClientEvent::Kind::kLevels) answered.add();
        });
        ASSERT_EQ(createSdfClient(onStatus), 0);
        ASSERT_TRUE(answered.waitFor());

        Counter lost;
        setEventHook([&](const ClientEvent& event) {
            if (event.kind != ClientEvent::Kind::kStatus || event.status != SDF_V2_SERVICE_DOWN) {
                return;
            }
            EXPECT_EQ(ask(), SDF_V2_SERVICE_DOWN);
            EXPECT_EQ(destroySdfClient(), 0);
            lost.add();
        });
        emulator.kill();
        ASSERT_TRUE(lost.waitFor());
        emulator.restart();
    }
}

}  // namespace
