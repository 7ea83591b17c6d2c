// SPDX-License-Identifier: Apache-2.0
// The program and a service that is missing, comes, goes, or leaves requests without an answer.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <optional>
#include <vector>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
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

    const TestDirectory mDirectory;
};

TEST_F(ServiceTest, ServiceThatIsNotUp) {
    const std::string late = "the service is not up after 0.2 s (\"sdfctl doctor\" says why)";
    const Lines made{kCreated, kDestroyed};
    check({
        {nullptr, "--timeout 0.2 high-perf-gaming off", 3, made, {late}},
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
         {"the service is not up: its status is -3 (internal error) (\"sdfctl doctor\" says why)"}},
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
        for (const char* const line : {"create then sleep 4000000 then status", "create"}) {
            ChildProcess child(sdfctlCommand(""));
            child.writeLine(line);
            ASSERT_TRUE(child.waitForLine(kUp));
            child.signal(signal);
            EXPECT_EQ(child.wait(), 128 + signal);
            EXPECT_EQ(child.lines(), withClient({}));
            EXPECT_TRUE(emulator.waitForClients(0));
        }
    }
}

// What ends the run of a client whose service has stopped, so that no destroy returns.
struct StoppedCase {
    const char* options;
    const char* line;  // the last one of its input
    int signal;        // once that has printed "service: -7 (service up)"; 0: its input ends
    int status;
    const char* stuck;  // the function that is reported not to return
};

class StoppedServiceTest : public ServiceTest, public testing::WithParamInterface<StoppedCase> {};

bool hasEnded(pid_t pid) {
    siginfo_t about{};
    return waitid(P_PID, static_cast<id_t>(pid), &about, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           about.si_pid == pid;
}

TEST_P(StoppedServiceTest, EndsAllTheSame) {
    const StoppedCase& known = GetParam();
    const EmulatorProcess emulator;
    ChildProcess child(sdfctlCommand(known.options));
    child.writeLine("create");
    ASSERT_TRUE(child.waitForLine(kUp));
    ASSERT_TRUE(stopChild(emulator.pid()));
    child.writeLine(known.line);
    ASSERT_TRUE(child.waitForLine("service: -7 (service up)"));
    if (known.signal == 0) {
        child.closeInput();
    } else {
        child.signal(known.signal);
    }
    if (known.stuck == nullptr) {
        // The first signal may come before the destroy that another one is to end.
        EXPECT_TRUE(eventually([&] {
            child.signal(known.signal);
            return hasEnded(child.pid());
        }));
    }
    EXPECT_EQ(child.wait(), known.status);
    EXPECT_EQ(child.lines().back(), "service: -7 (service up)");  // no destroy has returned
    if (known.stuck == nullptr) return;
    EXPECT_EQ(child.errorLines(),
              Lines{std::string("sdfctl: the client is not destroyed: ") + known.stuck +
                    "() has not returned after 10 s; the service hangs, or is gone with requests "
                    "still queued (\"sdfctl doctor\" tells which)"});
}

const StoppedCase kStoppedCases[] = {
    {"--timeout 86400", "status then quit", SIGTERM, 128 + SIGTERM, nullptr},
    {"--timeout 86400", "status then destroy then sleep 4000000", SIGINT, 128 + SIGINT, nullptr},
    {"--timeout 86400", "status then disable then sleep 4000000", SIGINT, 128 + SIGINT, nullptr},
    // The first signal ends the run, which then says what keeps it from ending in order.
    {"", "status then sleep 4000000", SIGTERM, 128 + SIGTERM, "destroySdfClient"},
    {"--timeout 5", "status", 0, 4, "destroySdfClient"},
    {"", "status then destroy then status", 0, 4, "destroySdfClient"},
    {"", "status then disable then status", 0, 4, "lum_sdf_disable"},
};
INSTANTIATE_TEST_SUITE_P(Each, StoppedServiceTest, testing::ValuesIn(kStoppedCases));

TEST_F(ServiceTest, HangUpIsIgnoredWhereItWasBefore) {
    const EmulatorProcess emulator;
    (void)std::signal(SIGHUP, SIG_IGN);
    ChildProcess child(sdfctlCommand(""));
    child.writeLine("create");
    ASSERT_TRUE(child.waitForLine(kUp));
    child.signal(SIGHUP);
    child.writeLine("status");
    ASSERT_TRUE(child.waitForLine("service: -7 (service up)"));
    child.closeInput();
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ServiceTest, RefusedMessageIsAFailureForTheOlderCallbackToo) {
    const EmulatorProcess emulator({"--rule", "on en_high_perf_gaming: refuse"});
    const Outcome run = runSdfctl("enable then high-perf-gaming off then wait legacy-status 2");
    ASSERT_GE(run.lines.size(), 2U);
    EXPECT_EQ(run.lines[run.lines.size() - 2], "event legacy-status: status=2 (internal error)");
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.status, 1);
}

TEST_F(ServiceTest, AnswerIsNotWaitedForOnceTheServiceIsGone) {
    EmulatorProcess emulator({"--print", "--rule", "on set_latency_level: late 86400000"});
    ChildProcess child(sdfctlCommand("--timeout 86400 set-latency first 1 1"));
    ASSERT_TRUE(child.waitForLine(kSetLatency));
    // The request has been sent: with one to send, the library would wait for another service.
    ASSERT_TRUE(emulator.process().waitFor([](const std::string& line) {
        return line.find(" SET_LATENCY_LEVEL: ") != std::string::npos;
    }));
    emulator.kill();
    EXPECT_NE(child.wait(), 0);
    ASSERT_EQ(child.errorLines().size(), 1U);
    // That of the death, or of the message, whose call may not have returned.
    EXPECT_EQ(child.errorLines()[0].rfind("sdfctl: no event \"levels\": the status has been -", 0),
              0U);
}

}  // namespace
