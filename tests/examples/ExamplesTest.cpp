// SPDX-License-Identifier: Apache-2.0
// The examples, each a process of its own against a real service, judged by what they print and
// return, and by what the service receives.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

using Lines = std::vector<std::string>;

// In a fresh process the ids are the first numbers of the C library's unseeded rand().
constexpr char kFirstId[] = "1804289383";
constexpr char kSecondId[] = "846930886";
constexpr char kFourthId[] = "1714636915";

// How often a line begins so.
size_t count(const Lines& lines, const std::string& start) {
    size_t found = 0;
    for (const std::string& line : lines) found += line.rfind(start, 0) == 0 ? 1 : 0;
    return found;
}

class ExamplesTest : public testing::Test {
  protected:
    static Lines game() { return {LUM_GAME_PROGRAM, "127.0.0.1", "27015"}; }

    // Waits until the service has received so many requests of a kind.
    static bool received(const EmulatorProcess& emulator, const std::string& kind,
                         size_t times = 1) {
        return emulator.process().waitFor(
            [&](const std::string& line) {
                return line.rfind("received ", 0) == 0 &&
                       line.find(" " + kind + ": ") != std::string::npos;
            },
            times);
    }

  private:
    const TestDirectory mDirectory;
};

class GameTest : public ExamplesTest, public testing::WithParamInterface<int> {};

TEST_P(GameTest, AsksForAllAndEndsWhenTold) {
    EmulatorProcess emulator({"--print"});
    ChildProcess playing(game());
    EXPECT_TRUE(playing.waitForLine(std::string("filter ") + kSecondId + ": active"));
    EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING"));
    playing.signal(GetParam());
    EXPECT_EQ(playing.wait(), 0);
    EXPECT_EQ(playing.lines(),
              (Lines{"service: asking for it", "service: service up", "latency: level 1, level 1",
                     std::string("filter ") + kSecondId + ": active"}));
    EXPECT_EQ(playing.errorLines(), Lines{});
    EXPECT_TRUE(emulator.waitForClients(0));
}

INSTANTIATE_TEST_SUITE_P(Signals, GameTest, testing::Values(SIGINT, SIGTERM),
                         [](const auto& tested) {
                             return std::string(tested.param == SIGINT ? "Interrupt" : "Terminate");
                         });

TEST_F(ExamplesTest, GameComesBackWithTheService) {
    EmulatorProcess emulator({"--print"});
    ChildProcess playing(game());
    ASSERT_TRUE(playing.waitForLine(std::string("filter ") + kSecondId + ": active"));
    ASSERT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING"));
    emulator.kill();
    EXPECT_TRUE(playing.waitForLine("service: service down"));
    emulator.restart();
    EXPECT_TRUE(playing.waitForLine("service: service up", 2));
    EXPECT_TRUE(playing.waitForLine("latency: level 1, level 1", 2));
    EXPECT_TRUE(playing.waitForLine(std::string("filter ") + kFourthId + ": active"));
    EXPECT_TRUE(received(emulator, "REG_FILTER_STATUS"));
    EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING"));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

// The service lives on and still has the filter, of which an equal one would be a duplicate.
TEST_F(ExamplesTest, GameStartsOverAfterARefusedMessage) {
    EmulatorProcess emulator({"--print", "--rule", "on en_high_perf_gaming nth 1: refuse"});
    ChildProcess playing(game());
    EXPECT_TRUE(playing.waitForLine("service: internal error"));
    EXPECT_TRUE(playing.waitForLine(std::string("filter ") + kFourthId + ": active"));
    EXPECT_TRUE(received(emulator, "DELETE_ALL_FILTER"));
    EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING", 2));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

// The game asks again before the service answers the first time.
TEST_F(ExamplesTest, GameToldTwiceThatTheServiceIsUpAsksForAllOnce) {
    EmulatorProcess emulator({"--print", "--rule", "on enable nth 1: late 4500"});
    ChildProcess playing(game());
    EXPECT_TRUE(playing.waitForLine(std::string("filter ") + kSecondId + ": active"));
    EXPECT_TRUE(playing.waitForLine("service: service up", 2));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
    EXPECT_TRUE(emulator.waitForClients(0));
    EXPECT_TRUE(received(emulator, "ENABLE", 3));
    EXPECT_EQ(count(playing.lines(), "latency: "), 1U);
    EXPECT_EQ(count(playing.lines(), "filter "), 1U);
}

TEST_F(ExamplesTest, GameAddsAFilterAgainThatTheServiceRemoved) {
    EmulatorProcess emulator({"--print", "--inactivity-timeout", "100"});
    ChildProcess playing(game());
    EXPECT_TRUE(playing.waitForLine(std::string("filter ") + kSecondId + ": inactivity timeout"));
    EXPECT_TRUE(received(emulator, "ADD_FILTER", 2));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

TEST_F(ExamplesTest, GameMayStartBeforeTheService) {
    ChildProcess playing(game());
    EmulatorProcess emulator;
    EXPECT_TRUE(playing.waitForLine("service: service up"));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

TEST_F(ExamplesTest, GameEndsWithoutAService) {
    ChildProcess playing(game());
    EXPECT_TRUE(playing.waitForLine("service: asking for it"));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

TEST_F(ExamplesTest, GameSaysHowItIsUsed) {
    const std::string usage = "usage: lum_sdf_game ADDRESS PORT, of a server that can be reached";
    for (const Lines& arguments :
         {Lines{}, Lines{"127.0.0.1"}, Lines{"localhost", "1"}, Lines{"127.0.0.1", "none"},
          Lines{"127.0.0.1", "0"}, Lines{"127.0.0.1", "65536"}, Lines{"127.0.0.1", "99999"},
          Lines{"127.0.0.1", "99999999999999999999"}, Lines{"127.0.0.1", ""},
          Lines{"127.0.0.1", "80x"}, Lines{"127.0.0.1", "-1"}}) {
        Lines command{LUM_GAME_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProcess refused(command);
        EXPECT_EQ(refused.wait(), 2);
        EXPECT_EQ(refused.errorLines(), Lines{usage});
    }
    ChildProcess asked({LUM_GAME_PROGRAM, "--help"});
    EXPECT_EQ(asked.wait(), 0);
    EXPECT_EQ(asked.lines(), Lines{usage});
    EXPECT_EQ(asked.errorLines(), Lines{});
}

Lines monitorOf(const Lines& options) {
    Lines command{LUM_MONITOR_PROGRAM};
    command.insert(command.end(), options.begin(), options.end());
    return command;
}

const Lines kFlow{"-g", "192.0.2.10", "50000", "198.51.100.20", "27015"};

bool isQueueOfBestEffort(const std::string& line) {
    return line.rfind("queue 32: ", 0) == 0;
}

TEST_F(ExamplesTest, MonitorShowsWhatChanges) {
    EmulatorProcess emulator;
    ChildProcess watching(monitorOf(kFlow));
    EXPECT_TRUE(watching.waitForLine("service: service up"));
    EXPECT_TRUE(watching.waitForLine(std::string("filter ") + kFirstId + ": active"));
    EXPECT_TRUE(watching.waitForLine(std::string("listed ") + kFirstId +
                                     ": active, level 3, level 3, out-of-order delivery "
                                     "unspecified, PDCP timer 0"));
    EXPECT_TRUE(watching.waitForLine(
        "automatic filter 2147483649: UDP from 192.0.2.10 port 50000 to 198.51.100.20 port 27015, "
        "highest priority"));
    EXPECT_TRUE(watching.waitFor(isQueueOfBestEffort, 2));
    watching.signal(SIGINT);
    EXPECT_EQ(watching.wait(), 0);
    // What has not changed is shown once.
    EXPECT_EQ(count(watching.lines(), "filter "), 1U);
    EXPECT_EQ(count(watching.lines(), "listed "), 1U);
    EXPECT_TRUE(emulator.waitForClients(0));
}

TEST_F(ExamplesTest, MonitorShowsAFilterThatBecomesActive) {
    EmulatorProcess emulator({"--activation-delay", "50"});
    ChildProcess watching(monitorOf({"192.0.2.10", "1", "2001:db8::1", "2"}));
    // Two families: the service takes no such flow.
    EXPECT_TRUE(watching.waitForLine(std::string("filter ") + kFirstId + ": invalid arguments"));
    watching.kill();
    ChildProcess second(monitorOf({"2001:db8::2", "1", "2001:db8::1", "2"}));
    EXPECT_TRUE(second.waitForLine(std::string("filter ") + kFirstId + ": pending"));
    EXPECT_TRUE(second.waitForLine(std::string("filter ") + kFirstId + ": active"));
    EXPECT_TRUE(second.waitFor([](const std::string& line) {
        return line.rfind(std::string("listed ") + kFirstId + ": active, ", 0) == 0;
    }));
    second.signal(SIGTERM);
    EXPECT_EQ(second.wait(), 0);
}

TEST_F(ExamplesTest, MonitorComesBackWithTheService) {
    EmulatorProcess emulator;
    ChildProcess watching(monitorOf(kFlow));
    ASSERT_TRUE(watching.waitForLine(std::string("filter ") + kFirstId + ": active"));
    ASSERT_TRUE(watching.waitFor(isQueueOfBestEffort));
    emulator.kill();
    EXPECT_TRUE(watching.waitForLine("service: service down"));
    emulator.restart();
    EXPECT_TRUE(watching.waitForLine("service: service up", 2));
    EXPECT_TRUE(watching.waitForLine(std::string("filter ") + kSecondId + ": active"));
    watching.signal(SIGTERM);
    EXPECT_EQ(watching.wait(), 0);
}

// Each time the service goes before it has confirmed the filter, upon which the list is asked for.
TEST_F(ExamplesTest, MonitorShowsAFailedRequestEachTimeItHasAskedForTheService) {
    EmulatorProcess emulator({"--rule", "on reg_filter_status: status SERVICE_DOWN"});
    ChildProcess watching(monitorOf(kFlow));
    EXPECT_TRUE(watching.waitForLine("list: service down", 2));
    EXPECT_GE(count(watching.lines(), "service: asking for it"), 2U);
    watching.signal(SIGTERM);
    EXPECT_EQ(watching.wait(), 0);
}

TEST_F(ExamplesTest, MonitorEndsAfterItsTime) {
    EmulatorProcess emulator;
    ChildProcess watching(monitorOf({"-t", "1"}));
    EXPECT_EQ(watching.wait(), 0);
    EXPECT_EQ(count(watching.lines(), "service: service up"), 1U);
    EXPECT_TRUE(emulator.waitForClients(0));
}

TEST_F(ExamplesTest, MonitorEndsAfterItsTimeWithoutAService) {
    ChildProcess watching(monitorOf({"-t", "1"}));
    EXPECT_EQ(watching.wait(), 0);
    EXPECT_EQ(watching.lines(), Lines{"service: asking for it"});
}

TEST_F(ExamplesTest, MonitorSaysHowItIsUsed) {
    const std::string usage =
        "usage: lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...";
    for (const Lines& options :
         {Lines{"-t", "0"}, Lines{"-t", "x"}, Lines{"-t", "-1"}, Lines{"-t", "5x"}, Lines{"-t", ""},
          Lines{"-t", "2147483648"}, Lines{"x"}, Lines{"192.0.2.10", "1", "nobody", "2"},
          Lines{"192.0.2.10", "0", "192.0.2.11", "2"},
          Lines{"192.0.2.10", "1", "192.0.2.11", "65536"},
          Lines{"192.0.2.10", "99999", "192.0.2.11", "2"},
          Lines{"192.0.2.10", "1", "192.0.2.11", "2x"}}) {
        ChildProcess refused(monitorOf(options));
        EXPECT_EQ(refused.wait(), 2);
        EXPECT_EQ(refused.errorLines(), Lines{usage});
    }
    ChildProcess asked(monitorOf({"--help"}));
    EXPECT_EQ(asked.wait(), 0);
    EXPECT_EQ(asked.lines(), Lines{usage});
    EXPECT_EQ(asked.errorLines(), Lines{});
}

TEST_F(ExamplesTest, VersionIsThatOfTheHeader) {
    ChildProcess game({LUM_GAME_PROGRAM, "--version"});
    EXPECT_EQ(game.wait(), 0);
    EXPECT_EQ(game.lines(), Lines{"lum_sdf_game (lum SDF) " LUM_SDF_SDK_VERSION});
    ChildProcess monitor(monitorOf({"--version"}));
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_EQ(monitor.lines(), Lines{"lum_sdf_monitor (lum SDF) " LUM_SDF_SDK_VERSION});
}

}  // namespace
