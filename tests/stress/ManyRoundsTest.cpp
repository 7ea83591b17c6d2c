// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

// One client from create to destroy.
void round() {
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    const long long id =
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5, false, onLevels);
    ASSERT_TRUE(waitForLevels(id, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5));
    ASSERT_EQ(destroySdfClient(), 0);
    forgetClientEvents();
}

TEST(ManyRoundsTest, ClientsInTurnLeaveNothingBehind) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    for (int i = 0; i < 10; ++i) ASSERT_NO_FATAL_FAILURE(round());
    ASSERT_TRUE(emulator.waitForClients(0));
    const EmulatorProcess::Stats emulatorBefore = emulator.stats();
    const Figures before = figures();

    for (int i = 10; i < LUM_CLIENTS; ++i) ASSERT_NO_FATAL_FAILURE(round());
    EXPECT_TRUE(settlesAt(before));
    EXPECT_TRUE(settlesAt(emulator, emulatorBefore));
}

}  // namespace
