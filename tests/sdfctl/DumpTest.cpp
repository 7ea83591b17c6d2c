// SPDX-License-Identifier: Apache-2.0
// "sdfctl dump" of services that write down their state, and of those that do not.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

class DumpTest : public testing::Test {
  protected:
    // Runs it with a service that is not what it should be.
    static Outcome runWithOdd(const std::string& way) {
        const ChildProcess service({LUM_ODD_SERVICE_PROGRAM, way});
        EXPECT_TRUE(service.waitForLine("ready"));
        return runSdfctl("dump");
    }

    const TestDirectory mDirectory;
};

TEST_F(DumpTest, TextAndObjectAreCopied) {
    EmulatorProcess emulator;
    const std::string pid = std::to_string(emulator.pid());
    const Outcome text = runSdfctl("dump");
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.lines, (Lines{"pid=" + pid, "clients: 0"}));
    for (const char* const arguments : {"dump --json", "--json dump"}) {
        const Outcome object = runSdfctl(arguments);
        EXPECT_EQ(object.status, 0);
        EXPECT_EQ(object.lines, Lines{"{\"pid\":" + pid + ",\"clients\":[]}"});
        EXPECT_EQ(object.errors, Lines{});
    }
    EXPECT_EQ(emulator.terminate(), 0);
}

TEST_F(DumpTest, OwnRequestsAreSeen) {
    const EmulatorProcess emulator;
    const Outcome run = runSdfctl(
        "set-latency first 1 3 then add-filter --src 192.0.2.1:5000 --dest 198.51.100.7:443 "
        "then dump --json");
    EXPECT_EQ(run.status, 0);
    const auto state = nlohmann::json::parse(run.lines.at(run.lines.size() - 2));
    ASSERT_EQ(state["clients"].size(), 1U);
    const auto& feature = state["clients"][0]["features"][0];
    EXPECT_EQ(feature["type"], 5);
    EXPECT_EQ(feature["levels"][0]["second_level"], "L3");
    EXPECT_EQ(feature["filters"][0]["src_ip"], "192.0.2.1");
}

// What the rest of a pipe's 64 KiB would not hold.
TEST_F(DumpTest, LongOneIsCopiedWhole) {
    const EmulatorProcess emulator({"--filter-limit", "1000"});
    Lines script;
    for (int port = 1; port <= 400; ++port) {
        script.push_back("add-filter --src 192.0.2.1:" + std::to_string(port) +
                         " --dest 192.0.2.2:1");
    }
    script.emplace_back("dump --json");
    const Outcome run = runSdfctl("", script);
    EXPECT_EQ(run.status, 0);
    const std::string& object = run.lines.at(run.lines.size() - 2);
    EXPECT_GT(object.size(), 65536U);
    EXPECT_EQ(nlohmann::json::parse(object)["clients"][0]["features"][0]["filters"].size(), 400U);
}

TEST_F(DumpTest, NobodyServesTheName) {
    const Outcome run = runSdfctl("dump");
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.lines, Lines{});
    EXPECT_EQ(run.errors, Lines{"sdfctl: nobody serves the name "
                                "vendor.orn.data.lumservice.ILumService (\"sdfctl doctor\" says "
                                "why)"});
}

TEST_F(DumpTest, ServiceThatFailsHalfway) {
    const Outcome run = runWithOdd("fails");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.lines, Lines{"half"});
    EXPECT_EQ(run.errors, Lines{"sdfctl: the service does not write down its state: Status(-129, "
                                "EX_TRANSACTION_FAILED): 'STATUS_INVALID_OPERATION: '"});
}

TEST_F(DumpTest, ServiceThatDies) {
    const Outcome run = runWithOdd("dies");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, Lines{"sdfctl: the service does not write down its state: Status(-129, "
                                "EX_TRANSACTION_FAILED): 'STATUS_DEAD_OBJECT: '"});
}

TEST_F(DumpTest, ServiceWithoutADump) {
    const Outcome run = runWithOdd("other");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.lines, Lines{});
}

TEST_F(DumpTest, ServiceThatHangs) {
    const EmulatorProcess emulator;
    ASSERT_TRUE(stopChild(emulator.pid()));
    for (const char* const arguments : {"dump --timeout 0.2", "--timeout 0.2 dump"}) {
        const Outcome run = runSdfctl(arguments);
        EXPECT_EQ(run.status, 4);
        EXPECT_EQ(run.lines, Lines{});
        EXPECT_EQ(run.errors, Lines{"sdfctl: the service does not come to the end of its state"});
    }
}

TEST_F(DumpTest, OutputThatCannotBeWrittenIsAnError) {
    const EmulatorProcess emulator;
    ChildProcess shell({"/bin/sh", "-c", "\"$0\" dump >/dev/full", sdfctlCommand("").front()});
    EXPECT_EQ(shell.wait(), 1);
    EXPECT_EQ(shell.errorLines(), Lines{"sdfctl: standard output: No space left on device"});
}

}  // namespace
