// SPDX-License-Identifier: Apache-2.0
// What is typed, as commands and arguments; what is wrong with it.

#include <gtest/gtest.h>

#include "tools/sdfctl/Commands.h"

namespace {

using Texts = std::vector<std::string>;

// What is said of a line that is wrong; empty when it is not.
std::string wrongWith(const std::string& line) {
    try {
        (void)readCommands(splitLine(line));
        return "";
    } catch (const UsageError& error) {
        return error.what();
    }
}

TEST(CommandLineTest, WordsOfALine) {
    EXPECT_EQ(splitLine(""), Texts{});
    EXPECT_EQ(splitLine("  a\tb  c\r"), (Texts{"a", "b", "c"}));
    EXPECT_EQ(splitLine("a #b c"), Texts{"a"});
    EXPECT_EQ(splitLine("# a"), Texts{});
    EXPECT_EQ(splitLine("a#b"), Texts{"a#b"});
}

TEST(CommandLineTest, SeveralCommands) {
    EXPECT_EQ(readCommands({}).size(), 0U);
    EXPECT_EQ(readCommands({"create"}).size(), 1U);
    EXPECT_EQ(readCommands({"create", "then", "destroy", "then", "sleep", "1"}).size(), 3U);
    EXPECT_EQ(wrongWith("then"), "a command is missing before \"then\"");
    EXPECT_EQ(wrongWith("create then then create"), "a command is missing before \"then\"");
    EXPECT_EQ(wrongWith("create then"), "a command is missing after \"then\"");
    EXPECT_EQ(wrongWith("create then foo"), "\"foo\" is not a command (\"help\" lists them)");
    EXPECT_EQ(wrongWith("create then doctor"), "\"doctor\" stands alone on the command line");
}

TEST(CommandLineTest, EachCommandHasHelpAndNames) {
    for (const Command& command : commands()) {
        EXPECT_EQ(findCommand(command.name), &command);
        const std::string help = helpOf(command.name);
        EXPECT_EQ(help.rfind(command.about, 0), 0U) << help;
        EXPECT_NE(help.find(std::string("Usage: ") + command.name), std::string::npos) << help;
        EXPECT_NE(helpOfAll().find(std::string("\n  ") + command.name + " "), std::string::npos);
    }
    EXPECT_EQ(findCommand("nothing"), nullptr);
    EXPECT_EQ(wrongWith("create --help"), "");
}

TEST(CommandLineTest, ErrorsNameTheArgument) {
    const struct {
        const char* line;
        const char* error;
    } kCases[] = {
        {"set-latency", "set-latency: SLOT is required"},
        {"set-latency first 1", "set-latency: SECOND is required"},
        {"set-latency third 1 1",
         "set-latency: SLOT: \"third\" is not a number or one of unspecified, first, second"},
        {"set-latency first 1 2147483648",
         "set-latency: SECOND: \"2147483648\" is not a number or one of level-1, level-2, level-3, "
         "level-4, level-5, level-6"},
        {"set-latency first 1 1 1", "set-latency: The following argument was not expected: 1"},
        {"create --foo", "create: The following argument was not expected: --foo"},
        {"update-ood x enabled",
         "update-ood: FILTER: \"x\" is not last or a number from 0 to 4294967295"},
        {"update-ood -1 enabled",
         "update-ood: FILTER: \"-1\" is not last or a number from 0 to 4294967295"},
        {"update-ood 1 off",
         "update-ood: OOD: \"off\" is not a number or one of unspecified, enabled, disabled"},
        {"update-pdcp-timer 1 4294967296",
         "update-pdcp-timer: TIMER: \"4294967296\" is not a number from 0 to 4294967295"},
        {"update-target-dscp 1 x",
         "update-target-dscp: DSCP: \"x\" is not a number from 0 to 4294967295"},
        {"high-perf-gaming yes", "high-perf-gaming: SWITCH: \"yes\" is not on or off"},
        {"add-filter --src 192.0.2",
         "add-filter: --src: \"192.0.2\" is not an address such as 192.0.2.1:5000, "
         "[2001:db8::1]:443, 192.0.2.1, or none"},
        {"add-filter --arg6 256", "add-filter: --arg6: \"256\" is not a number from 0 to 255"},
        {"add-filter --extra -1", "add-filter: --extra: \"-1\" is not a number from 0 to 255"},
        {"add-filter --src-range 65536",
         "add-filter: --src-range: \"65536\" is not a number from 0 to 65535"},
        {"add-filter --app-type priority-1",
         "add-filter: --app-type: \"priority-1\" is not a number or one of unspecified, highest, "
         "priority-2 ... best-effort"},
        {"add-filter --src-family 70000",
         "add-filter: --src-family: \"70000\" is not a number from 0 to 65535 or one of "
         "unspecified, inet, inet6, unix"},
        {"add-filter --dest-family -1",
         "add-filter: --dest-family: \"-1\" is not a number from 0 to 65535 or one of "
         "unspecified, inet, inet6, unix"},
        {"sleep 4294967296", "sleep: MS: \"4294967296\" is not a number from 0 to 4294967295"},
        {"wait foo",
         "wait: WHAT: \"foo\" is not a number of milliseconds or one of up, down, status, "
         "legacy-status, levels, filter-added, filter-listed, filter-status, auto-filter, "
         "queue-report, queue-answer"},
    };
    for (const auto& aCase : kCases) EXPECT_EQ(wrongWith(aCase.line), aCase.error);
    EXPECT_EQ(wrongWith("add-filter --src").rfind("add-filter: --src", 0), 0U);
}

TEST(CommandLineTest, NumbersThatTheLibraryRefusesAreTaken) {
    for (const char* const line :
         {"set-latency -2147483648 0 2147483647", "set-latency 0x2 -0 7", "update-ood 0 -1",
          "add-filter --ood 0 --protocol -1 --app-type 33 --first 7 --src-family 65535",
          "prioritize-data -2 on"}) {
        EXPECT_EQ(wrongWith(line), "") << line;
    }
}

}  // namespace
