// SPDX-License-Identifier: Apache-2.0
// The examples, each a process of its own against a real service, judged by what they print and
// return, and by what the service receives.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <algorithm>
#include <csignal>
#include <optional>
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

TEST_F(ExamplesTest, GameAsksForAllAndEndsWithASignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        EmulatorProcess emulator({"--print"});
        ChildProcess playing(game());
        EXPECT_TRUE(playing.waitForLine(std::string("filter ") + kSecondId + ": active"));
        EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING"));
        playing.signal(signal);
        EXPECT_EQ(playing.wait(), 0);
        EXPECT_EQ(playing.lines(), (Lines{"service: asking for it", "service: service up",
                                          "latency: level 1, level 1",
                                          std::string("filter ") + kSecondId + ": active"}));
        EXPECT_EQ(playing.errorLines(), Lines{});
        EXPECT_TRUE(emulator.waitForClients(0));
    }
}

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

TEST_F(ExamplesTest, GameMayStartBeforeTheServiceAndEndWithoutOne) {
    for (const bool served : {true, false}) {
        ChildProcess playing(game());
        EXPECT_TRUE(playing.waitForLine("service: asking for it"));
        std::optional<EmulatorProcess> emulator;
        if (served) {
            emulator.emplace();
            EXPECT_TRUE(playing.waitForLine("service: service up"));
        }
        playing.signal(SIGTERM);
        EXPECT_EQ(playing.wait(), 0);
    }
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
    for (const bool served : {true, false}) {
        std::optional<EmulatorProcess> emulator;
        if (served) emulator.emplace();
        ChildProcess watching(monitorOf({"-t", "1"}));
        EXPECT_EQ(watching.wait(), 0);
        Lines expected{"service: asking for it"};
        if (served) expected.emplace_back("service: service up");
        Lines printed = watching.lines();
        printed.resize(std::min(printed.size(), expected.size()));  // then come the queues
        EXPECT_EQ(printed, expected);
        EXPECT_TRUE(!served || emulator->waitForClients(0));
    }
}

// What lies between the blanks of a text, nothing of an empty one.
Lines split(const std::string& text) {
    Lines parts;
    if (text.empty()) return parts;
    size_t begin = 0;
    for (size_t end = 0; (end = text.find(' ', begin)) != std::string::npos; begin = end + 1) {
        parts.push_back(text.substr(begin, end - begin));
    }
    parts.push_back(text.substr(begin));
    return parts;
}

TEST_F(ExamplesTest, EachSaysHowItIsUsedAndItsVersion) {
    const struct {
        const char* program;
        const char* usage;
        const char* version;
        Lines wrong;
    } rows[] = {
        {LUM_GAME_PROGRAM,
         "usage: lum_sdf_game ADDRESS PORT, of a server that can be reached",
         "lum_sdf_game (lum SDF) " LUM_SDF_SDK_VERSION,
         {"", "127.0.0.1", "localhost 1", "127.0.0.1 none", "127.0.0.1 0", "127.0.0.1 65536",
          "127.0.0.1 99999", "127.0.0.1 99999999999999999999", "127.0.0.1 ", "127.0.0.1 80x",
          "127.0.0.1 -1"}},
        {LUM_MONITOR_PROGRAM,
         "usage: lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...",
         "lum_sdf_monitor (lum SDF) " LUM_SDF_SDK_VERSION,
         {"-t 0", "-t x", "-t -1", "-t 5x", "-t ", "-t 2147483648", "x", "192.0.2.10 1 nobody 2",
          "192.0.2.10 0 192.0.2.11 2", "192.0.2.10 1 192.0.2.11 65536",
          "192.0.2.10 99999 192.0.2.11 2", "192.0.2.10 1 192.0.2.11 2x"}},
    };
    for (const auto& row : rows) {
        for (const std::string& arguments : row.wrong) {
            Lines command = split(arguments);
            command.insert(command.begin(), row.program);
            ChildProcess refused(command);
            EXPECT_EQ(refused.wait(), 2) << arguments;
            EXPECT_EQ(refused.errorLines(), Lines{row.usage}) << arguments;
        }
        ChildProcess help({row.program, "--help"});
        EXPECT_EQ(help.wait(), 0);
        EXPECT_EQ(help.lines(), Lines{row.usage});
        EXPECT_EQ(help.errorLines(), Lines{});
        ChildProcess version({row.program, "--version"});
        EXPECT_EQ(version.wait(), 0);
        EXPECT_EQ(version.lines(), Lines{row.version});
    }
}

}  // namespace
