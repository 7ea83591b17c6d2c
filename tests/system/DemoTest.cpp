// SPDX-License-Identifier: Apache-2.0
// The demo, judged by what it prints and returns.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Pattern.h"
#include "tests/support/SocketFolder.h"

namespace {

using Lines = std::vector<std::string>;

const char* const kDidNotStart =
    "The demo failed. This did not happen: the service, started with the program given, gets ready.";

// A line with the numbers that differ from run to run replaced by N.
std::string withoutNumbers(const std::string& line) {
    std::string masked = line;
    for (const char* const before : {"thread ", "process ", "-9 "}) {
        masked = replaceAll(masked, before + std::string("[0-9]+"), before + std::string("N"));
    }
    return masked;
}

bool isServiceReady(const std::string& line) {
    return line.rfind("    the service is ready: process ", 0) == 0;
}

// In a fresh process the ids are the first numbers of the C library's unseeded rand().
constexpr char kEverything[] = R"(An application uses the data service. Its main thread is thread N.

1. The data service is started, as a process of its own.
    the service is ready: process N

2. The client is created. The library connects in the background and tells onStatus().
    createSdfClient(onStatus) returned 0 (SDF_V2_SUCCESS: success)
    callback onStatus(-7, SDF_V2_SERVICE_UP: service up), brought by a binder thread (thread N)

3. Requests are accepted now. We ask for latency levels, and onLevels() gets the answer.
    sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4, false, onLevels) returned 1804289383 (the id of the request)
    callback onLevels(id 1804289383, first SDF_LATENCY_LVL_2, second SDF_LATENCY_LVL_4), brought by a binder thread (thread N)

4. The service is killed. The library notices and tells onStatus().
    kill -9 N
    callback onStatus(-8, SDF_V2_SERVICE_DOWN: service down), brought by a binder thread (thread N)

5. Without the service, requests are refused.
    sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3, false, onLevels) returned -8 (SDF_V2_SERVICE_DOWN: service down)

6. The service is started again.
    the service is ready: process N

7. Only createSdfClient() makes the library connect again. We call it until -7 comes.
    createSdfClient(onStatus) returned 0 (SDF_V2_SUCCESS: success)
    callback onStatus(-7, SDF_V2_SERVICE_UP: service up), brought by a binder thread (thread N)

8. Requests are accepted again.
    sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_6, SDF_LATENCY_LVL_1, false, onLevels) returned 846930886 (the id of the request)
    callback onLevels(id 846930886, first SDF_LATENCY_LVL_6, second SDF_LATENCY_LVL_1), brought by a binder thread (thread N)

9. The client is destroyed, and the service is told that it leaves.
    destroySdfClient() returned 0 (SDF_V2_SUCCESS: success)

The demo is done: everything happened as it should.
)";

// What the demo may print besides: the service may die after it has sent an answer and before it
// has finished with the request, which is then reported as failed; and a client that asks while the
// library is still busy with the loss of the service has to ask again.
bool isOfTheMoment(const std::string& line, const std::string& before) {
    return line.rfind("    callback onStatus(-3, SDF_V2_INTERNAL_ERROR: internal error)", 0) == 0 ||
           (line == before && line.rfind("    createSdfClient(onStatus) returned 0 ", 0) == 0);
}

TEST(DemoTest, EverythingHappens) {
    ChildProcess demo({LUM_DEMO_PROGRAM, EmulatorProcess::program()});
    EXPECT_EQ(demo.wait(), 0);
    std::string printed;
    std::string before;
    for (const std::string& line : demo.lines()) {
        if (isOfTheMoment(line, before)) continue;
        printed += withoutNumbers(line) + "\n";
        before = line;
    }
    EXPECT_EQ(printed, kEverything);
    EXPECT_EQ(demo.errorLines(), Lines{});
}

TEST(DemoTest, TwoRunAtOnce) {
    ChildProcess one({LUM_DEMO_PROGRAM, EmulatorProcess::program()});
    ChildProcess two({LUM_DEMO_PROGRAM, EmulatorProcess::program()});
    EXPECT_EQ(one.wait(), 0);
    EXPECT_EQ(two.wait(), 0);
}

TEST(DemoTest, FailsWhenTheServiceIsMissing) {
    ChildProcess demo({LUM_DEMO_PROGRAM, "/none"});
    EXPECT_EQ(demo.wait(), 1);
    EXPECT_EQ(demo.errorLines(),
              (Lines{"cannot run /none: No such file or directory", "", kDidNotStart}));
}

TEST(DemoTest, FailsWhenTheServiceEndsAtOnce) {
    ChildProcess demo({LUM_DEMO_PROGRAM, "/bin/false"});
    EXPECT_EQ(demo.wait(), 1);
    EXPECT_EQ(demo.errorLines(), (Lines{"", kDidNotStart}));
}

TEST(DemoTest, FailsWithoutAnArgument) {
    ChildProcess demo({LUM_DEMO_PROGRAM});
    EXPECT_EQ(demo.wait(), 2);
    EXPECT_EQ(demo.lines(), Lines{});
    EXPECT_EQ(demo.errorLines(),
              Lines{std::string("usage: ") + LUM_DEMO_PROGRAM + " PROGRAM_OF_THE_SERVICE"});
}

// Broken off while it waits for a service that gets ready and then serves nobody.
TEST(DemoTest, BrokenOffItLeavesNothingBehind) {
    const SocketFolder own;  // only to have a folder for two files
    const std::string script = own.path() + "/service";
    const std::string note = own.path() + "/note";
    std::ofstream(script) << "#!/bin/sh\necho \"$LUM_BINDER_DIR\" >'" << note
                          << "'\necho ready >&3\nexec sleep 1000\n";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    ChildProcess demo({LUM_DEMO_PROGRAM, script});
    // Printed once it has a service, so that both are there to be left behind.
    ASSERT_TRUE(demo.waitFor(isServiceReady));
    const Lines lines = demo.lines();
    const std::string ready = *std::find_if(lines.begin(), lines.end(), isServiceReady);
    const int service = std::stoi(ready.substr(ready.rfind(' ')));
    std::string folder;
    std::getline(std::ifstream(note), folder);
    ASSERT_TRUE(std::filesystem::is_directory(folder));
    demo.signal(SIGTERM);
    EXPECT_EQ(demo.wait(), 128 + SIGTERM);
    EXPECT_EQ(kill(service, 0), -1);
    EXPECT_FALSE(std::filesystem::exists(folder));
}

}  // namespace
