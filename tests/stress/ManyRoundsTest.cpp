// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestDirectory.h"

namespace {

class ManyRoundsTest : public testing::Test {
  protected:
    ManyRoundsTest() { forgetClientEvents(); }
};

void request(SdfLatencyLvl first, SdfLatencyLvl second) {
    const long long id = sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, false, onLevels);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(waitForLevels(id, first, second));
}

// One client from create to destroy.
void round() {
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    request(SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5);
    ASSERT_EQ(destroySdfClient(), 0);
    forgetClientEvents();
}

TEST_F(ManyRoundsTest, ClientsInTurnLeaveNothingBehind) {
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

#if LUM_SDF_GUARDED
// Requests come from the main thread while answers are being delivered.
TEST_F(ManyRoundsTest, DeathsOfTheServiceAreEachReportedOnceAndRecoveredFrom) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    Figures before{};
    for (int death = 1; death <= LUM_DEATHS; ++death) {
        ASSERT_NO_FATAL_FAILURE(request(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6));
        // Some under way while the service dies; their answers may or may not come.
        for (int i = 0; i < 5; ++i) {
            ASSERT_GT(sdfSetLatencyLvl(SDF_SLOT_ID_SECOND, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4,
                                       true, onLevels),
                      0);
        }
        emulator.kill();
        ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_DOWN));
        emulator.restart();
        // A request that was refused by the dying service may be reported late, and undo a service
        // up; so may the service's loss have been reported before the library has let go of it, and
        // asking for it be refused. What an application has to do is to ask again.
        while (sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false,
                                onLevels) < 0) {
            const size_t before = clientTexts().size();
            ASSERT_EQ(createSdfClient(onStatus), 0);
            ASSERT_TRUE(eventually([before] { return clientTexts().size() > before; }));
        }
        const auto texts = clientTexts();
        EXPECT_EQ(std::count(texts.begin(), texts.end(), "status -8"), 1);
        ASSERT_FALSE(HasFatalFailure());
        forgetClientEvents();
        if (death != 10) continue;
        // The ids of unanswered requests stay reserved as long as the client lives: the figures are
        // those without one.
        ASSERT_EQ(destroySdfClient(), 0);
        forgetClientEvents();
        before = figures();
        ASSERT_EQ(createSdfClient(onStatus), 0);
        ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
        forgetClientEvents();
    }
    EXPECT_EQ(destroySdfClient(), 0);
    forgetClientEvents();
    EXPECT_TRUE(settlesAt(before));
}

#endif

}  // namespace
