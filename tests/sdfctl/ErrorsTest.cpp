// SPDX-License-Identifier: Apache-2.0
// The program given a wrong command line or script: clear errors, status 2, nothing done.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

class ErrorsTest : public testing::Test {
  protected:
    const TestDirectory mDirectory;
};

TEST_F(ErrorsTest, WrongCommandsAndOptionsDoNothing) {
    const struct {
        const char* arguments;
        const char* error;
    } kCases[] = {
        {"foo", "sdfctl: \"foo\" is not a command (\"help\" lists them)"},
        {"create then set-latency third 1 1",
         "sdfctl: set-latency: SLOT: \"third\" is not a number or one of unspecified, first, "
         "second"},
        {"create then", "sdfctl: a command is missing after \"then\""},
        {"update-ood last 1", "sdfctl: FILTER: no filter has been added yet"},
        {"help foo", "sdfctl: help: COMMAND: \"foo\" is not a command"},
        {"wait 5 foo", "sdfctl: wait: VALUE: \"foo\" is not taken behind a number, up or down"},
        {"wait up -7", "sdfctl: wait: VALUE: \"-7\" is not taken behind a number, up or down"},
        {"f\x1B[31m\x7F\u00FC",
         "sdfctl: \"f\\x1B[31m\\x7F\u00FC\" is not a command (\"help\" lists them)"},
        {"f\u0080\u009B31m\u009F\u00A0",
         "sdfctl: \"f\\xC2\\x80\\xC2\\x9B31m\\xC2\\x9F\u00A0\" is not a command (\"help\" lists them)"},
        {"f\xC2", "sdfctl: \"f\xC2\" is not a command (\"help\" lists them)"},
        {"doctor now", "sdfctl: doctor: The following argument was not expected: now"},
        {"dump now", "sdfctl: dump: The following argument was not expected: now"},
        {"create then doctor", "sdfctl: \"doctor\" stands alone on the command line"},
        {"--json foo", "sdfctl: \"foo\" is not a command (\"help\" lists them)"},
        {"--timeout x create", "sdfctl: --timeout: \"x\" is not a number of seconds"},
        {"--timeout -1 create", "sdfctl: --timeout: \"-1\" is not a number of seconds"},
        {"--timeout= create", "sdfctl: --timeout: \"\" is not a number of seconds"},
        {"--timeout \x1Bx create", "sdfctl: --timeout: \"\\x1Bx\" is not a number of seconds"},
        {"--timeout nan create", "sdfctl: --timeout: \"nan\" is not a number of seconds"},
    };
    for (const auto& aCase : kCases) {
        const Outcome run = runSdfctl(aCase.arguments);
        EXPECT_EQ(run.status, 2) << aCase.arguments;
        EXPECT_EQ(run.lines, Lines{}) << aCase.arguments;
        EXPECT_EQ(run.errors, Lines{aCase.error});
    }
}

TEST_F(ErrorsTest, WrongLineOfAScriptEndsItAndIsNamed) {
    const Outcome run = runSdfctl("", {"# a script", "", "status", "wait 1 then foo", "status"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.lines, (Lines{"client: no", "service: not heard of"}));
    EXPECT_EQ(run.errors, Lines{"sdfctl: line 4: \"foo\" is not a command (\"help\" lists them)"});
}

TEST_F(ErrorsTest, WhatIsWrongIsNotRepeatedAtAnyLength) {
    const std::string word(5000, 'x');
    const Outcome run = runSdfctl("wait " + word);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors,
              Lines{"sdfctl: wait: WHAT: \"" + word.substr(0, 387) + " [... 4381 bytes ...] " +
                    word.substr(0, 232) +
                    "\" is not a number of milliseconds or one of up, down, status, "
                    "legacy-status, levels, filter-added, filter-listed, filter-status, "
                    "auto-filter, queue-report, queue-answer"});
    // No character is cut.
    std::string umlauts = "x";
    for (int i = 0; i < 3000; ++i) umlauts += "\u00FC";
    const Outcome cut = runSdfctl(umlauts);
    ASSERT_EQ(cut.errors.size(), 1U);
    EXPECT_NE(cut.errors[0].find("\u00FC [... "), std::string::npos) << cut.errors[0];
    EXPECT_NE(cut.errors[0].find(" bytes ...] \u00FC"), std::string::npos) << cut.errors[0];
}

TEST_F(ErrorsTest, LineOfAScriptWithoutAnEnd) {
    ChildProcess child(
        {"/bin/sh", "-c", "echo status | cat - /dev/zero | \"$0\"", sdfctlCommand("")[0]});
    EXPECT_EQ(child.wait(), 2);
    EXPECT_EQ(child.errorLines(), Lines{"sdfctl: line 2: longer than 1048576 bytes"});
}

TEST_F(ErrorsTest, OutputThatCannotBeWritten) {
    for (const char* const arguments :
         {"status", "help", "help create", "create --help", "--help", "doctor --help"}) {
        ChildProcess child({"/bin/sh", "-c",
                            std::string("exec \"$0\" ") + arguments + " >/dev/full",
                            sdfctlCommand("")[0]});
        EXPECT_EQ(child.wait(), 1) << arguments;
        EXPECT_EQ(child.errorLines(), Lines{"sdfctl: standard output: No space left on device"})
            << arguments;
    }
}

TEST_F(ErrorsTest, ClosedStandardStreams) {
    const std::string program = sdfctlCommand("")[0];
    ChildProcess input({"/bin/sh", "-c", "exec \"$0\" <&-", program});
    EXPECT_EQ(input.wait(), 1);
    EXPECT_EQ(input.errorLines(), Lines{"sdfctl: standard input: Bad file descriptor"});
    ChildProcess output({"/bin/sh", "-c", "exec \"$0\" status >&-", program});
    EXPECT_EQ(output.wait(), 1);
    EXPECT_EQ(output.errorLines(), Lines{"sdfctl: standard output: Bad file descriptor"});
}

TEST_F(ErrorsTest, HelpIsComplete) {
    const Outcome run = runSdfctl("--help");
    EXPECT_EQ(run.status, 0);
    std::string text;
    for (const std::string& line : run.lines) text += line + "\n";
    for (const char* const word :
         {"--json", "--timeout", "--manual", "--no-answers", "then", "doctor", "Exit status",
          "LUM_BINDER_DIR", "  set-latency  ", "  quit  "}) {
        EXPECT_NE(text.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(run.errors, Lines{});
}

TEST_F(ErrorsTest, VersionIsThatOfTheHeader) {
    const Outcome run = runSdfctl("--version");
    EXPECT_EQ(run.lines, Lines{"sdfctl (lum SDF) " LUM_SDF_SDK_VERSION});
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.status, 0);
}

TEST_F(ErrorsTest, CandidatesForAShell) {
    ChildProcess child({sdfctlCommand("")[0], "--complete", "sdfctl set-latency f"});
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.lines(), Lines{"first"});
    ChildProcess none({sdfctlCommand("")[0], "--complete", "sdfctl foo "});
    EXPECT_EQ(none.wait(), 0);
    EXPECT_EQ(none.lines(), Lines{});
}

TEST_F(ErrorsTest, HelpLeavesStandardOutputToObjects) {
    const Outcome people = runSdfctl("help create");
    const Outcome programs = runSdfctl("--json help create");
    EXPECT_EQ(people.status, 0);
    EXPECT_EQ(programs.status, 0);
    EXPECT_EQ(people.lines[0], "createSdfClient(): make the client, or ask for the service again");
    EXPECT_EQ(programs.lines, Lines{});
    EXPECT_EQ(programs.errors, people.lines);
}

}  // namespace
