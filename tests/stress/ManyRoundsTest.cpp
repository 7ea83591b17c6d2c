// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

// How many rounds: those after the first ten must leave nothing. variable: of the environment, for
// another number than the usual.
int rounds(const char* variable, int usual) {
    const char* const wanted = getenv(variable);
    return wanted == nullptr ? usual : atoi(wanted);
}

void request() {
    const long long id =
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5, false, onLevels);
    ASSERT_TRUE(waitForLevels(id, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5));
}

void connectAndRequest() {
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    ASSERT_NO_FATAL_FAILURE(request());
    forgetClientEvents();
}

// One client from create to destroy.
void round() {
    ASSERT_NO_FATAL_FAILURE(connectAndRequest());
    ASSERT_EQ(destroySdfClient(), 0);
    forgetClientEvents();
}

// A client's service is killed, and the client finds the next one.
void killRound(EmulatorProcess& emulator) {
    emulator.kill();
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_DOWN));
    emulator.restart();
    ASSERT_NO_FATAL_FAILURE(connectAndRequest());
}

// The figures of a client and its emulator, which must not grow.
class FiguresAtFirst {
  public:
    explicit FiguresAtFirst(EmulatorProcess& emulator) : mEmulator(emulator) {}

    void expectAgainAfter(int rounds) const {
        const testing::AssertionResult here = settlesAt(mFigures);
        const testing::AssertionResult there = settlesAt(mEmulator, mEmulatorFigures);
        EXPECT_TRUE(here);
        EXPECT_TRUE(there);
        std::cout << "after " << rounds << " rounds: " << here.message() << "\n"
                  << there.message() << "\n";
    }

  private:
    EmulatorProcess& mEmulator;
    const EmulatorFigures mEmulatorFigures = figures(mEmulator);
    const Figures mFigures = figures();
};

TEST(ManyRoundsTest, ClientsInTurnLeaveNothingBehind) {
    const int count = rounds("LUM_ROUNDS", LUM_CLIENTS);
    const TestDirectory directory;
    EmulatorProcess emulator;
    for (int i = 0; i < 10; ++i) ASSERT_NO_FATAL_FAILURE(round());
    ASSERT_TRUE(emulator.waitForClients(0));
    const FiguresAtFirst first(emulator);
    for (int i = 10; i < count; ++i) ASSERT_NO_FATAL_FAILURE(round());
    first.expectAgainAfter(count);
}

TEST(ManyRoundsTest, KilledServicesLeaveNothingBehind) {
    const int count = rounds("LUM_KILLS", LUM_CLIENTS / 20);
    const TestDirectory directory;
    EmulatorProcess emulator;
    ASSERT_NO_FATAL_FAILURE(connectAndRequest());
    for (int i = 0; i < 10; ++i) ASSERT_NO_FATAL_FAILURE(killRound(emulator));
    const FiguresAtFirst first(emulator);
    for (int i = 10; i < count; ++i) ASSERT_NO_FATAL_FAILURE(killRound(emulator));
    first.expectAgainAfter(count);
    EXPECT_EQ(destroySdfClient(), 0);
}

}  // namespace
