// SPDX-License-Identifier: Apache-2.0
// The program and a service that is missing, comes, goes, or leaves requests without an answer.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kCreated[] = "createSdfClient() = 0 (success)";
constexpr char kUp[] = "event status: status=-7 (service up)";
constexpr char kDown[] = "event status: status=-8 (service down)";
constexpr char kDestroyed[] = "destroySdfClient() = 0 (success)";
constexpr char kFailed[] = "event status: status=-3 (internal error)";
constexpr char kSetLatency[] =
    "sdfSetLatencyLvl(slot=first, first=level-1, second=level-1, flag=off) = 1804289383 (success)";
constexpr char kGaming[] = "sdfEnHighPerfGaming(enable=off) = 0 (success)";

class ServiceTest : public testing::Test {
  protected:
    struct Case {
        const char* rule;  // of the service; null: there is none
        const char* arguments;
        int status;
        Lines lines;
        Lines errors;  // without the program's name
    };

    static void check(const std::vector<Case>& cases) {
        for (const Case& aCase : cases) {
            SCOPED_TRACE(aCase.arguments);
            std::optional<EmulatorProcess> emulator;
            if (aCase.rule != nullptr) emulator.emplace(Lines{"--rule", aCase.rule});
            const Outcome run = runSdfctl(aCase.arguments);
            EXPECT_EQ(run.lines, aCase.lines);
            Lines errors = aCase.errors;
            for (std::string& error : errors) error.insert(0, "sdfctl: ");
            EXPECT_EQ(run.errors, errors);
            EXPECT_EQ(run.status, aCase.status);
        }
    }

    // Starts it with a client whose service does not take anything any more.
    static std::unique_ptr<ChildProcess> startForAStoppedService(const EmulatorProcess& emulator,
                                                                 const std::string& options) {
        auto child = std::make_unique<ChildProcess>(sdfctlCommand(options));
        child->writeLine("create");
        EXPECT_TRUE(child->waitForLine(kUp));
        EXPECT_TRUE(stopChild(emulator.pid()));
        return child;
    }

    static std::string notDestroyed(const std::string& function) {
        return "sdfctl: the client is not destroyed: " + function +
               "() has not returned after 10 s; the service hangs, or is gone with requests still "
               "queued (\"sdfctl doctor\" tells which)";
    }

    const TestDirectory mDirectory;
};

TEST_F(ServiceTest, ServiceThatIsNotUp) {
    const std::string late = "the service is not up after 0.2 s (\"sdfctl doctor\" tells why)";
    const Lines made{kCreated, kDestroyed};
    check({
        {nullptr, "--timeout 0.2 high-perf-gaming off", 3, made, {late}},
        {nullptr, "--wait=0.2 high-perf-gaming off", 3, made, {late}},
        {nullptr, "--timeout 86400 --wait=0.2 wait up", 3, made, {late}},
        {nullptr,
         "--manual --timeout 0.2 create then wait up then status",
         3,
         made,
         {"the service is not up after 0.2 s"}},
        {nullptr,
         "--manual create then high-perf-gaming off then delete-filter 1",
         1,
         {kCreated, "sdfEnHighPerfGaming(enable=off) = -8 (service down)",
          "sdfDeleteFilter(filter=1) = -2 (invalid argument)", kDestroyed},
         {}},
        {"on enable: refuse",
         "high-perf-gaming off",
         3,
         {kCreated, kFailed, kDestroyed},
         {"the service is not up: its status is -3 (internal error) (\"sdfctl doctor\" tells why)"}},
    });
}

TEST_F(ServiceTest, AnswersAndEventsThatAreWaitedFor) {
    const std::string refused = "no event \"levels\": the status has been -3 (internal error)";
    const Lines failed = withClient({kSetLatency, kFailed});
    check({
        {"on set_latency_level: never",
         "--timeout 3 set-latency first 1 1 then high-perf-gaming off",
         4,
         withClient({kSetLatency, kGaming}),
         {"no event \"levels\" within 3 s"}},
        {"on set_latency_level: late 100",
         "--no-answers set-latency first 1 1 then wait levels level-1",
         0,
         withClient({kSetLatency, "event levels: id=1804289383 first=level-1 second=level-1"}),
         {}},
        // A refused message ends the wait, and is reported however short the wait is.
        {"on set_latency_level: refuse",
         "--timeout 86400 set-latency first 1 1",
         1,
         failed,
         {refused}},
        {"on set_latency_level: refuse",
         "--wait --timeout 2 set-latency first 1 1",
         1,
         failed,
         {refused}},
        {"on set_latency_level: late 86400000, status INTERNAL_ERROR",
         "--timeout 86400 set-latency first 1 1",
         1,
         failed,
         {refused}},
        // A refused message without an answer is a failure.
        {"on en_high_perf_gaming: refuse",
         "high-perf-gaming off then wait status -3",
         1,
         withClient({kGaming, kFailed}),
         {}},
        {"on en_high_perf_gaming: refuse",
         "high-perf-gaming off then wait status -3 then destroy",
         1,
         withClient({kGaming, kFailed}),
         {}},
        {"on any nth 9: never",
         "--timeout 3 create then wait down then high-perf-gaming off",
         4,
         withClient({kGaming}),
         {"the service is not down after 3 s"}},
        {"on any nth 9: never", "wait up", 0, withClient({}), {}},
        {"on any nth 9: never",
         "--timeout 2 create then wait status then wait status deleted",
         4,
         withClient({}),
         {"no event \"status\" with \"deleted\" within 2 s"}},
    });
}

TEST_F(ServiceTest, WaitsThatNeedAClientSayThatThereIsNone) {
    const std::string noClient = ": there is no client (\"create\" makes one)";
    check({
        {nullptr,
         "--timeout 86400 --manual wait up",
         3,
         {},
         {"the service cannot come up" + noClient}},
        {nullptr, "--timeout 86400 wait down", 4, {}, {"the service cannot be lost" + noClient}},
        {nullptr, "--timeout 86400 wait levels", 4, {}, {"no event \"levels\"" + noClient}},
        {nullptr,
         "--timeout 86400 wait filter-status deleted",
         4,
         {},
         {"no event \"filter-status\" with \"deleted\"" + noClient}},
    });
}

TEST_F(ServiceTest, KeepsAskingUntilTheServiceComes) {
    ChildProcess child(sdfctlCommand("--wait high-perf-gaming off"));
    // The second call comes when the first one's attempt has failed.
    ASSERT_TRUE(child.waitForLine(kCreated, 2));
    const EmulatorProcess emulator;
    EXPECT_EQ(child.wait(), 0);
    const Lines lines = child.lines();
    ASSERT_GE(lines.size(), 5U);
    EXPECT_EQ(lines[lines.size() - 3], kUp);
    EXPECT_EQ(lines[lines.size() - 2], kGaming);
    EXPECT_EQ(lines.back(), kDestroyed);
    EXPECT_EQ(child.errorLines(), Lines{});
}

TEST_F(ServiceTest, LostServiceRefusesUntilAskedForAgain) {
    EmulatorProcess emulator;
    ChildProcess child(sdfctlCommand(""));
    child.writeLine("set-latency first 1 1");
    ASSERT_TRUE(child.waitForLine("event levels: id=1804289383 first=level-1 second=level-1"));
    emulator.kill();
    ASSERT_TRUE(child.waitForLine(kDown));
    child.writeLine("wait down then high-perf-gaming off");
    ASSERT_TRUE(child.waitForLine("sdfEnHighPerfGaming(enable=off) = -8 (service down)"));
    emulator.restart();
    child.writeLine("create");
    ASSERT_TRUE(child.waitForLine(kUp, 2));
    child.writeLine("high-perf-gaming off");
    ASSERT_TRUE(child.waitForLine(kGaming));
    child.closeInput();
    EXPECT_EQ(child.wait(), 1);
    EXPECT_EQ(child.lines().back(), kDestroyed);
}

TEST_F(ServiceTest, LostServiceIsAskedForAgainUnaskedWhenSetSo) {
    EmulatorProcess emulator;
    ChildProcess child(sdfctlCommand("--wait"));
    child.writeLine("high-perf-gaming off");
    ASSERT_TRUE(child.waitForLine(kGaming));
    emulator.kill();
    ASSERT_TRUE(child.waitForLine(kDown));
    emulator.restart();
    child.writeLine("high-perf-gaming off");
    ASSERT_TRUE(child.waitForLine(kGaming, 2));
    child.closeInput();
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ServiceTest, LostServiceIsAskedForAgainWhileOnlyWatching) {
    for (const char* const line : {"reg-filter-status then sleep 4000000", "reg-filter-status"}) {
        EmulatorProcess emulator;
        ChildProcess child(sdfctlCommand("--wait"));
        child.writeLine(line);
        ASSERT_TRUE(child.waitForLine("sdfRegFilterStatus() = 0 (success)"));
        emulator.kill();
        ASSERT_TRUE(child.waitForLine(kDown)) << line;
        emulator.restart();
        EXPECT_TRUE(child.waitForLine(kUp, 2)) << line;
        child.signal(SIGTERM);
        EXPECT_EQ(child.wait(), 128 + SIGTERM);
    }
}

TEST_F(ServiceTest, AnswersNeedNotBeWaitedFor) {
    const EmulatorProcess emulator({"--rule", "on any: late 86400000"});
    const Outcome run = runSdfctl(
        "--no-answers --manual create then wait 1 then destroy then set-latency first 1 1");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.lines.back(),
              "sdfSetLatencyLvl(slot=first, first=level-1, second=level-1, flag=off) = -5 (invalid "
              "operation)");
}

TEST_F(ServiceTest, PendingFilterBecomesActive) {
    const EmulatorProcess emulator({"--activation-delay", "50"});
    const Outcome run = runSdfctl(
        "reg-filter-status then add-filter --src 192.0.2.1 --dest 192.0.2.2 then wait "
        "filter-status active");
    EXPECT_EQ(run.lines, withClient({"sdfRegFilterStatus() = 0 (success)",
                                     "sdfAddFilter(src=192.0.2.1, dest=192.0.2.2, first=level-1, "
                                     "second=level-1, ood=unspecified) = 1804289383 (success)",
                                     "event filter-added: filter=1804289383 status=pending",
                                     "event filter-status: filter=1804289383 status=active"}));
    EXPECT_EQ(run.status, 0);
}

TEST_F(ServiceTest, SignalsEndItInOrder) {
    EmulatorProcess emulator;
    (void)std::signal(SIGHUP, SIG_DFL);  // whatever this process was started with
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ChildProcess child(sdfctlCommand("create then sleep 4000000 then status"));
        ASSERT_TRUE(child.waitForLine(kUp));
        child.signal(signal);
        EXPECT_EQ(child.wait(), 128 + signal);
        EXPECT_EQ(child.lines(), withClient({}));
        EXPECT_TRUE(emulator.waitForClients(0));
    }
}

TEST_F(ServiceTest, SignalEndsItWhileAStoppedServiceKeepsItFromDestroying) {
    const EmulatorProcess emulator;
    const auto child = startForAStoppedService(emulator, "--timeout 86400");
    child->writeLine("status then quit");
    ASSERT_TRUE(child->waitForLine("filters: none"));
    child->signal(SIGTERM);
    EXPECT_EQ(child->wait(), 128 + SIGTERM);
}

TEST_F(ServiceTest, SignalEndsTheCommandsThatDestroyWhenTheServiceHasStopped) {
    for (const char* const command : {"destroy", "disable"}) {
        const EmulatorProcess emulator;
        const auto child = startForAStoppedService(emulator, "--timeout 86400");
        child->writeLine(std::string("status then ") + command + " then sleep 4000000");
        ASSERT_TRUE(child->waitForLine("filters: none"));
        child->signal(SIGINT);
        EXPECT_EQ(child->wait(), 128 + SIGINT);
        EXPECT_EQ(child->lines().back(), "filters: none") << command;  // it never returned
    }
}

TEST_F(ServiceTest, EndsWithoutDestroyingWhenTheServiceHasStopped) {
    const EmulatorProcess emulator;
    const auto child = startForAStoppedService(emulator, "--timeout 0.1");
    child->closeInput();
    EXPECT_EQ(child->wait(), 4);
    EXPECT_EQ(child->lines(), (Lines{kCreated, kUp}));
    EXPECT_EQ(child->errorLines(), Lines{notDestroyed("destroySdfClient")});
}

TEST_F(ServiceTest, CommandsThatDestroyEndTheRunWhenTheServiceHasStopped) {
    const std::pair<const char*, const char*> kFunctions[] = {{"destroy", "destroySdfClient"},
                                                              {"disable", "lum_sdf_disable"}};
    for (const auto& [command, function] : kFunctions) {
        const EmulatorProcess emulator;
        const auto child = startForAStoppedService(emulator, "");
        child->writeLine(std::string(command) + " then status");
        EXPECT_EQ(child->wait(), 4);
        EXPECT_EQ(child->lines(), (Lines{kCreated, kUp}));
        EXPECT_EQ(child->errorLines(), Lines{notDestroyed(function)});
    }
}

// The first signal ends the run, which then says what keeps it from ending in order.
TEST_F(ServiceTest, SignalWhenTheServiceHasStoppedEndsItWithoutDestroying) {
    const EmulatorProcess emulator;
    const auto child = startForAStoppedService(emulator, "");
    child->signal(SIGTERM);
    EXPECT_EQ(child->wait(), 128 + SIGTERM);
    EXPECT_EQ(child->errorLines(), Lines{notDestroyed("destroySdfClient")});
}

TEST_F(ServiceTest, HangUpIsIgnoredWhereItWasBefore) {
    const EmulatorProcess emulator;
    (void)std::signal(SIGHUP, SIG_IGN);
    ChildProcess child(sdfctlCommand(""));
    child.writeLine("create");
    ASSERT_TRUE(child.waitForLine(kUp));
    child.signal(SIGHUP);
    child.writeLine("status");
    ASSERT_TRUE(child.waitForLine("filters: none"));
    child.closeInput();
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ServiceTest, LostServiceThatWasWaitedForIsNoFailure) {
    EmulatorProcess emulator;
    ChildProcess child(sdfctlCommand(""));
    child.writeLine("create");
    ASSERT_TRUE(child.waitForLine(kUp));
    emulator.kill();
    ASSERT_TRUE(child.waitForLine(kDown));
    child.writeLine("wait down");
    child.closeInput();
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.errorLines(), Lines{});
}

TEST_F(ServiceTest, RefusedMessageIsAFailureForTheOlderCallbackToo) {
    const EmulatorProcess emulator({"--rule", "on en_high_perf_gaming: refuse"});
    const Outcome run = runSdfctl("enable then high-perf-gaming off then wait legacy-status 2");
    ASSERT_GE(run.lines.size(), 2U);
    EXPECT_EQ(run.lines[run.lines.size() - 2], "event legacy-status: status=2 (internal error)");
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.status, 1);
}

// The message fails, too, but it is the service's death that is reported.
TEST_F(ServiceTest, MessageThatTheServiceDiesOfIsNotRefused) {
    const EmulatorProcess emulator({"--rule", "on en_high_perf_gaming: die before"});
    const Outcome run = runSdfctl("high-perf-gaming off then wait down");
    EXPECT_TRUE(std::count(run.lines.begin(), run.lines.end(), kDown) == 1);
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.status, 0);
}

// The commands that destroy the client wait until it is known what the message failed of, as the
// end of the run does.
TEST_F(ServiceTest, ClientIsDestroyedWhenItIsKnownThatTheServiceDied) {
    for (const char* const command : {"destroy", "disable"}) {
        const EmulatorProcess emulator({"--rule", "on en_high_perf_gaming: die before"});
        const Outcome run =
            runSdfctl(std::string("high-perf-gaming off then wait status -3 then ") + command);
        EXPECT_TRUE(std::count(run.lines.begin(), run.lines.end(), kDown) == 1) << command;
        EXPECT_EQ(run.errors, Lines{}) << command;
        EXPECT_EQ(run.status, 0) << command;
    }
}

TEST_F(ServiceTest, AnswerOfAServiceThatDiesOfTheRequestIsWaitedFor) {
    const EmulatorProcess emulator({"--rule", "on set_latency_level: die before"});
    const Outcome run = runSdfctl("--timeout 3 set-latency first 1 1");
    EXPECT_TRUE(std::count(run.lines.begin(), run.lines.end(), kDown) == 1);
    EXPECT_EQ(run.errors, Lines{"sdfctl: no event \"levels\" within 3 s"});
    EXPECT_EQ(run.status, 4);
}

TEST_F(ServiceTest, SignalEndsAScriptThatWaitsForItsNextLine) {
    const EmulatorProcess emulator;
    ChildProcess child(sdfctlCommand(""));
    child.writeLine("create");
    ASSERT_TRUE(child.waitForLine(kUp));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 128 + SIGINT);
    EXPECT_EQ(child.lines(), withClient({}));
}

}  // namespace
