// SPDX-License-Identifier: Apache-2.0
// The program at a terminal: prompt, editing, completion, history, events while typing, signals.

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <memory>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TerminalProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kPrompt[] = "sdfctl> ";

class TerminalTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!TerminalProcess::canBe()) GTEST_SKIP() << "there are no pseudo-terminals";
    }

    std::unique_ptr<TerminalProcess> start(const std::string& arguments = "") const {
        auto terminal = run(sdfctlCommand(arguments));
        EXPECT_TRUE(terminal->waitFor(kPrompt));
        return terminal;
    }

    // Types a line, and waits for what it prints and for the next prompt.
    static void enter(TerminalProcess& terminal, const std::string& line,
                      const std::string& printed = "") {
        terminal.type(line + "\n");
        EXPECT_TRUE(terminal.waitFor(printed)) << line;
        EXPECT_TRUE(terminal.waitFor(kPrompt)) << line;
    }
    static void quit(TerminalProcess& terminal) {
        terminal.type("quit\n");
        EXPECT_EQ(terminal.wait(), 0);
    }

    std::unique_ptr<TerminalProcess> run(const Lines& command) const {
        return std::make_unique<TerminalProcess>(
            command, Lines{"XDG_STATE_HOME=" + mDirectory.path() + "/state", "TERM=xterm",
                           "EDITRC=/dev/null", "PS1=shell> ", "ENV="});
    }

    // Lines of the history file; it has a line of its own first.
    Lines history() const {
        std::ifstream file(mDirectory.path() + "/state/sdfctl/history");
        Lines lines;
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        return lines;
    }

    const TestDirectory mDirectory;
};

TEST_F(TerminalTest, AsksForLinesUntilTheEnd) {
    const EmulatorProcess emulator;
    const auto terminal = start();
    terminal->type("set-latency first 1 3\n");
    EXPECT_TRUE(terminal->waitFor("createSdfClient() = 0 (success)\r\n"));
    EXPECT_TRUE(terminal->waitFor("event levels: id=1804289383 first=level-1 second=level-3\r\n"));
    EXPECT_TRUE(terminal->waitFor(kPrompt));
    terminal->type("\x04");
    EXPECT_TRUE(terminal->waitFor("destroySdfClient() = 0 (success)\r\n"));
    EXPECT_EQ(terminal->wait(), 0);
}

TEST_F(TerminalTest, KnowsHelpAndExitAndReportsWhatIsWrong) {
    const auto terminal = start("--timeout 0.1");
    enter(*terminal, "?", "Commands (\"help COMMAND\" explains its arguments):\r\n");
    enter(*terminal, "foo", "sdfctl: \"foo\" is not a command (\"help\" lists them)\r\n");
    enter(*terminal, "doctor", "sdfctl: \"doctor\" stands alone on the command line\r\n");
    enter(*terminal, "get-filters", "sdfctl: the service is not up after 0.1 s");
    enter(*terminal, "destroy", "destroySdfClient() = 0 (success)\r\n");
    terminal->type("exit\n");
    EXPECT_EQ(terminal->wait(), 0);
}

TEST_F(TerminalTest, GoesOnAfterADestroyThatDoesNotReturnAndEndsWithoutWaitingAgain) {
    const EmulatorProcess emulator;
    const auto terminal = start();
    enter(*terminal, "create", "service up");
    ASSERT_TRUE(stopChild(emulator.pid()));
    enter(*terminal, "destroy", "destroySdfClient() has not returned after 10 s; ");
    enter(*terminal, "status", "client: no\r\n");
    terminal->type("\x04");
    EXPECT_EQ(terminal->wait(), 0);
    EXPECT_EQ(terminal->rest().find("sdfctl: "), std::string::npos) << terminal->rest();
}

TEST_F(TerminalTest, TabCompletesCommandsAndValues) {
    const auto terminal = start();
    terminal->type("he\t");
    EXPECT_TRUE(terminal->waitFor("lp "));
    terminal->type("prioritize-da\t");
    EXPECT_TRUE(terminal->waitFor("ta "));
    enter(*terminal, "", "Usage: prioritize-data [OPTIONS] SLOT SWITCH");
    terminal->type("update-d\t");
    EXPECT_TRUE(terminal->waitFor("ds-"));
    terminal->type("\t");
    EXPECT_TRUE(terminal->waitFor("\r\nupdate-dds-ood  update-dds-pdcp-timer  \r\n"));
    EXPECT_TRUE(terminal->waitFor("sdfctl> update-dds-"));
    terminal->type("\x03");
    EXPECT_TRUE(terminal->waitFor(kPrompt));
    quit(*terminal);
}

TEST_F(TerminalTest, EventsComeAboveTheLineBeingTyped) {
    const EmulatorProcess emulator({"--rule", "on en_high_perf_gaming: late 300"});
    const auto terminal = start();
    enter(*terminal, "reg-auto-filter-info then high-perf-gaming on",
          "sdfEnHighPerfGaming(enable=on) = 0 (success)\r\n");
    terminal->type("sta");
    EXPECT_TRUE(terminal->waitFor("event auto-filter: filter=2147483649 "));
    EXPECT_TRUE(terminal->waitFor("sdfctl> sta"));
    terminal->type("tus\n");
    EXPECT_TRUE(terminal->waitFor("client: yes\r\nservice: -7 (service up)\r\n"));
    quit(*terminal);
}

TEST_F(TerminalTest, HistoryIsKeptFromOneRunToTheNext) {
    const auto first = start();
    enter(*first, "sleep 1");
    enter(*first, "   ");
    enter(*first, "status", "service: not heard of\r\n");
    quit(*first);
    EXPECT_EQ(history(), (Lines{"_HiStOrY_V2_", "sleep\\0401", "status", "quit"}));

    const auto second = start();
    second->type("\x10\x10");  // the line before the last one
    EXPECT_TRUE(second->waitFor("status"));
    enter(*second, "", "service: not heard of\r\n");
    quit(*second);
    EXPECT_EQ(history(),
              (Lines{"_HiStOrY_V2_", "sleep\\0401", "status", "quit", "status", "quit"}));
}

TEST_F(TerminalTest, InterruptEndsTheWaitOrTheLineOnly) {
    const auto terminal = start();
    terminal->type("sleep 4000000\n");
    EXPECT_TRUE(terminal->waitFor("sleep 4000000\r\n"));
    terminal->type("\x03");
    EXPECT_TRUE(terminal->waitFor(kPrompt));
    // Often, as a key may be dropped by the interrupt at any moment of its being read.
    for (int round = 0; round < 20; ++round) {
        terminal->type("foo");
        ASSERT_TRUE(terminal->waitFor("foo"));
        terminal->type("\x03");
        ASSERT_TRUE(terminal->waitFor(kPrompt));
    }
    enter(*terminal, "status", "client: no\r\n");
    quit(*terminal);
}

// By a shell that does not put the terminal's modes in order itself.
TEST_F(TerminalTest, StoppedAndContinuedItShowsTheLineAgain) {
    const auto shell = run({"/bin/sh", "-i"});
    EXPECT_TRUE(shell->waitFor("shell> "));
    shell->type(sdfctlCommand("")[0] + "\n");
    EXPECT_TRUE(shell->waitFor(kPrompt));
    // The editor's own answer: what the terminal itself shows may be dropped by the signal.
    shell->type("sta\t");
    EXPECT_TRUE(shell->waitFor("tus "));
    for (int round = 0; round < 2; ++round) {
        shell->type("\x1A");
        EXPECT_TRUE(shell->waitFor("Stopped"));
        EXPECT_TRUE(shell->waitFor("shell> "));
        EXPECT_TRUE(shell->isOrdinary());
        shell->type("fg\n");
        EXPECT_TRUE(shell->waitFor("sdfctl> status "));
        EXPECT_FALSE(shell->isOrdinary());
    }
    enter(*shell, "", "service: not heard of\r\n");
    shell->type("quit\n");
    EXPECT_TRUE(shell->waitFor("shell> "));
    EXPECT_TRUE(shell->isOrdinary());
    shell->type("exit\n");
    EXPECT_EQ(shell->wait(), 0);
}

// While a command runs it stops at once, and its wait goes on when it does.
TEST_F(TerminalTest, StoppedWhileACommandRuns) {
    EmulatorProcess emulator;
    const auto shell = run({"/bin/sh", "-i"});
    EXPECT_TRUE(shell->waitFor("shell> "));
    shell->type(sdfctlCommand("")[0] + " --timeout 86400\n");
    EXPECT_TRUE(shell->waitFor(kPrompt));
    shell->type("wait up then status then wait down\n");
    EXPECT_TRUE(shell->waitFor("service: -7 (service up)\r\n"));
    shell->type("\x1A");
    EXPECT_TRUE(shell->waitFor("Stopped"));
    EXPECT_TRUE(shell->waitFor("shell> "));
    EXPECT_TRUE(shell->isOrdinary());
    shell->type("fg\n");
    emulator.kill();
    EXPECT_TRUE(shell->waitFor("event status: status=-8 (service down)\r\n"));
    EXPECT_TRUE(shell->waitFor(kPrompt));
    shell->type("quit\n");
    EXPECT_TRUE(shell->waitFor("shell> "));
    shell->type("exit\n");
    EXPECT_EQ(shell->wait(), 0);
}

}  // namespace
