// SPDX-License-Identifier: Apache-2.0
// The examples, each a process of its own against a real service, judged by what they print and
// return, and by what the service receives.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Pattern.h"
#include "tests/support/TerminalProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

using Lines = std::vector<std::string>;

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
        EXPECT_TRUE(playing.waitForLine("service: up"));
        EXPECT_TRUE(received(emulator, "SET_LATENCY_LEVEL"));
        EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING"));
        playing.signal(signal);
        EXPECT_EQ(playing.wait(), 0);
        EXPECT_EQ(playing.lines(), (Lines{"service: connecting", "filter: requested",
                                          "filter: active", "service: up"}));
        EXPECT_EQ(playing.errorLines(), Lines{});
        EXPECT_TRUE(emulator.waitForClients(0));
    }
}

TEST_F(ExamplesTest, GameComesBackWithTheService) {
    EmulatorProcess emulator({"--print"});
    ChildProcess playing(game());
    ASSERT_TRUE(playing.waitForLine("service: up"));
    emulator.kill();
    EXPECT_TRUE(playing.waitForLine("filter: lost"));
    emulator.restart();
    EXPECT_TRUE(playing.waitForLine("service: up", 2));
    EXPECT_EQ(count(playing.lines(), "filter: active"), 2U);
    EXPECT_TRUE(received(emulator, "SET_LATENCY_LEVEL"));
    EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING"));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

TEST_F(ExamplesTest, GameStartsOverAfterARefusedMessage) {
    EmulatorProcess emulator({"--print", "--rule", "on en_high_perf_gaming nth 1: refuse"});
    ChildProcess playing(game());
    // The second of the two if a request behind the refused one is the first to find that out.
    EXPECT_TRUE(playing.waitFor([](const std::string& line) {
        return line == "service: internal error" || line == "service: service down";
    }));
    EXPECT_TRUE(playing.waitForLine("service: up"));
    EXPECT_TRUE(received(emulator, "EN_HIGH_PERF_GAMING", 2));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

TEST_F(ExamplesTest, GameAddsAFilterAgainThatTheServiceRemoved) {
    EmulatorProcess emulator({"--print", "--inactivity-timeout", "100"});
    ChildProcess playing(game());
    EXPECT_TRUE(playing.waitForLine("filter: expired"));
    EXPECT_TRUE(playing.waitForLine("filter: requested", 2));
    EXPECT_TRUE(received(emulator, "ADD_FILTER", 2));
    playing.signal(SIGTERM);
    EXPECT_EQ(playing.wait(), 0);
}

TEST_F(ExamplesTest, GameMayStartBeforeTheServiceAndEndWithoutOne) {
    for (const bool served : {true, false}) {
        ChildProcess playing(game());
        EXPECT_TRUE(playing.waitForLine("service: connecting"));
        std::optional<EmulatorProcess> emulator;
        if (served) {
            emulator.emplace();
            EXPECT_TRUE(playing.waitForLine("service: up"));
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
    EXPECT_TRUE(watching.waitForLine("service: up"));
    EXPECT_TRUE(watching.waitForLine("filter 1: active"));
    EXPECT_TRUE(watching.waitForLine(
        "automatic filter 2147483649: UDP from 192.0.2.10 port 50000 to 198.51.100.20 port 27015, "
        "highest priority"));
    EXPECT_TRUE(watching.waitFor(isQueueOfBestEffort, 2));
    watching.signal(SIGINT);
    EXPECT_EQ(watching.wait(), 0);
    // What has not changed is shown once.
    EXPECT_EQ(count(watching.lines(), "filter 1: active"), 1U);
    EXPECT_EQ(count(watching.lines(), "automatic filter "), 1U);
    EXPECT_TRUE(emulator.waitForClients(0));
}

TEST_F(ExamplesTest, MonitorShowsEachFlow) {
    EmulatorProcess emulator({"--activation-delay", "50"});
    // The first one's addresses are of two families: the service takes no such flow.
    ChildProcess watching(
        monitorOf({"192.0.2.10", "1", "2001:db8::1", "2", "2001:db8::2", "1", "2001:db8::1", "2"}));
    EXPECT_TRUE(watching.waitForLine("filter 1: invalid arguments"));
    EXPECT_TRUE(watching.waitForLine("filter 2: pending"));
    EXPECT_TRUE(watching.waitForLine("filter 2: active"));
    watching.signal(SIGTERM);
    EXPECT_EQ(watching.wait(), 0);
}

TEST_F(ExamplesTest, MonitorComesBackWithTheService) {
    EmulatorProcess emulator;
    ChildProcess watching(monitorOf(kFlow));
    ASSERT_TRUE(watching.waitForLine("service: up"));
    emulator.kill();
    EXPECT_TRUE(watching.waitForLine("filter 1: lost"));
    emulator.restart();
    EXPECT_TRUE(watching.waitForLine("service: up", 2));
    EXPECT_EQ(count(watching.lines(), "filter 1: active"), 2U);
    EXPECT_TRUE(watching.waitFor(isQueueOfBestEffort));
    watching.signal(SIGTERM);
    EXPECT_EQ(watching.wait(), 0);
}

TEST_F(ExamplesTest, MonitorEndsAfterItsTime) {
    for (const bool served : {true, false}) {
        std::optional<EmulatorProcess> emulator;
        if (served) emulator.emplace();
        ChildProcess watching(monitorOf({"-t", "1"}));
        EXPECT_EQ(watching.wait(), 0);
        EXPECT_EQ(watching.errorLines(), Lines{});
        EXPECT_TRUE(!served || emulator->waitForClients(0));
    }
}

#ifdef LUM_LIBUV_PROGRAM
TEST_F(ExamplesTest, LoopOfLibuvComesBackWithTheService) {
    EmulatorProcess emulator;
    ChildProcess looping({LUM_LIBUV_PROGRAM});
    ASSERT_TRUE(looping.waitForLine("latency: level 1, level 2"));
    for (const size_t times : {2U, 3U}) {
        emulator.restart();
        EXPECT_TRUE(looping.waitForLine("service: up", times));
        EXPECT_TRUE(looping.waitForLine("latency: level 1, level 2", times));
    }
    looping.signal(SIGINT);
    EXPECT_EQ(looping.wait(), 0);
    EXPECT_EQ(looping.errorLines(), Lines{});
    EXPECT_TRUE(emulator.waitForClients(0));
}
#endif

// What the page about sessions says that its application prints, from one line to another, as a
// terminal gets it.
std::string pageText(const std::string& first, const std::string& last) {
    std::ostringstream page;
    page << std::ifstream(LUM_PAGE).rdbuf();
    const std::string text = page.str();
    const size_t begin = text.find(first + "\n", text.find("\n```text\n"));
    const size_t end = text.find(last + "\n", begin) + last.size() + 1;
    return replaceAll(text.substr(begin, end - begin), "\n", "\r\n");
}

TEST_F(ExamplesTest, ApplicationOfThePageSurvivesAnyNumberOfDeaths) {
    const std::string up = pageText("session connecting", "session up");
    const std::string lost = pageText("game lost: deleted", "voice lost: deleted");
    EmulatorProcess emulator;
    TerminalProcess application({LUM_PAGE_PROGRAM}, {});
    ASSERT_TRUE(application.waitFor(up));
    for (int death = 0; death < 3; ++death) {
        emulator.kill();
        ASSERT_TRUE(application.waitFor(lost));
        emulator.restart();
        ASSERT_TRUE(application.waitFor(up));
    }
    application.type("\x03");  // Ctrl-C
    EXPECT_EQ(application.wait(), 128 + SIGINT);
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

TEST_F(ExamplesTest, EachSaysHowItIsUsed) {
    const struct {
        const char* program;
        const char* usage;
        Lines wrong;
    } rows[] = {
        {LUM_GAME_PROGRAM,
         "usage: lum_sdf_game ADDRESS PORT, of a server that can be reached",
         {"", "127.0.0.1", "localhost 1", "127.0.0.1 none", "127.0.0.1 0", "127.0.0.1 65536",
          "127.0.0.1 99999", "127.0.0.1 99999999999999999999", "127.0.0.1 ", "127.0.0.1 80x",
          "127.0.0.1 -1"}},
        {LUM_MONITOR_PROGRAM,
         "usage: lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...",
         {"-t 0", "-t x", "-t -1", "-t 5x", "-t ", "-t 2147483648", "x", "192.0.2.10 1 nobody 2",
          "192.0.2.10 0 192.0.2.11 2", "192.0.2.10 1 192.0.2.11 65536",
          "192.0.2.10 99999 192.0.2.11 2", "192.0.2.10 1 192.0.2.11 2x",
          "192.0.2.10 1 192.0.2.11 2 192.0.2.10"}},
    };
    for (const auto& row : rows) {
        for (const std::string& arguments : row.wrong) {
            Lines command = split(arguments);
            command.insert(command.begin(), row.program);
            ChildProcess refused(command);
            EXPECT_EQ(refused.wait(), 2) << arguments;
            EXPECT_EQ(refused.errorLines(), Lines{row.usage}) << arguments;
        }
    }
    ChildProcess help({LUM_MONITOR_PROGRAM, "--help"});
    EXPECT_EQ(help.wait(), 0);
    EXPECT_EQ(help.lines(), Lines{rows[1].usage});
    EXPECT_EQ(help.errorLines(), Lines{});
    ChildProcess version({LUM_MONITOR_PROGRAM, "--version"});
    EXPECT_EQ(version.wait(), 0);
    EXPECT_EQ(version.lines(), Lines{"lum_sdf_monitor (lum SDF) " LUM_SDF_SDK_VERSION});
}

}  // namespace
