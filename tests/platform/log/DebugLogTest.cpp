// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/log/DebugLog.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Pattern.h"

namespace {

using Lines = std::vector<std::string>;

// A preloaded sanitizer build comes before its own runtime, which that would object to.
constexpr char kNoOrderCheck[] = "ASAN_OPTIONS=verify_asan_link_order=0";

// What the child logged. In an emulator the preloaded library is named to the emulator, too, whose
// own loader says that it is for another processor.
Lines logged(const ChildProcess& child) {
    Lines lines;
    for (const std::string& line : child.errorLines()) {
        if (line.find("cannot be preloaded (wrong ELF class") == std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

// The lines with the time, the process and its main thread replaced by T, P and P, another thread
// by O; a line that does not have the form is kept as it is.
Lines normalised(const ChildProcess& child) {
    const std::string pid = std::to_string(child.pid()) + " ";
    const std::string pidTwice = pid + " *" + pid;
    const std::string time = "^[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}\\.[0-9]{6} +";
    Lines lines;
    for (const std::string& line : logged(child)) {
        const std::string mainThread = replaceAll(line, time + pidTwice, "T P P ");
        lines.push_back(replaceAll(mainThread, time + pid + " *[0-9]+ ", "T P O "));
    }
    return lines;
}

// Everything that log_main.cpp logs, but for the last line.
const Lines kEverything = {
    "T P P D no tag, number 42",
    "T P P V tag: verbose",
    "T P P I empty tag",
    "T P P E tag: error",
    "T P P ? a priority that is none",
    "T P O W other thread",
};

void expectEverything(const ChildProcess& child) {
    Lines lines = normalised(child);
    ASSERT_EQ(lines.size(), kEverything.size() + 1);
    const std::string longLine = logged(child).back();
    lines.pop_back();
    EXPECT_EQ(lines, kEverything);
    EXPECT_EQ(longLine.size(), kLongestLine - 1);
    EXPECT_EQ(longLine.substr(longLine.size() - 10), "xxxxxxxxxx");
    EXPECT_EQ(child.lines(), Lines{"errno 77"});
}

// Without the switch liblog has the lines: in its own form, debug lines left out.
void expectWhatLiblogShows(const ChildProcess& child) {
    const Lines lines = logged(child);
    bool error = false;
    for (const std::string& line : lines) {
        error = error || replaceAll(line, "^.* E .*error$", "an error") == "an error";
        EXPECT_EQ(line.find("no tag"), std::string::npos) << line;
    }
    EXPECT_TRUE(error);
    EXPECT_EQ(lines.size(), 4U);
}

using Expect = void (*)(const ChildProcess&);

void expectOf(const char* program, const Lines& environment, Expect expect) {
    ChildProcess child({program}, environment);
    EXPECT_EQ(child.wait(), 0);
    expect(child);
}

TEST(DebugLogTest, SwitchedOnEveryLineComes) {
    expectOf(LUM_LOG_LINKED, {"LUM_DEBUG_LOG=1"}, expectEverything);
}

TEST(DebugLogTest, AnyOtherValueIsOff) {
    expectOf(LUM_LOG_LINKED, {"LUM_DEBUG_LOG="}, expectWhatLiblogShows);
    expectOf(LUM_LOG_LINKED, {"LUM_DEBUG_LOG=10"}, expectWhatLiblogShows);
}

TEST(DebugLogTest, PreloadedItServesAProgramThatDoesNotKnowIt) {
    const std::string preload = std::string("LD_PRELOAD=") + LUM_DEBUG_LOG_LIBRARY;
    expectOf(LUM_LOG_PLAIN, {preload, kNoOrderCheck, "LUM_DEBUG_LOG=1"}, expectEverything);
    expectOf(LUM_LOG_PLAIN, {preload, kNoOrderCheck, "LUM_DEBUG_LOG=0"}, expectWhatLiblogShows);
    expectOf(LUM_LOG_PLAIN, {"LUM_DEBUG_LOG=1"}, expectWhatLiblogShows);
}

}  // namespace
