// SPDX-License-Identifier: Apache-2.0
// The demo, judged by what it prints and returns.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestDirectory.h"

namespace {

using Lines = std::vector<std::string>;

const char* const kUsage = "usage: lum_sdf_demo [PROGRAM_OF_THE_SERVICE]";
const char* const kDidNotStart =
    "The demo failed. This did not happen: the service is started and gets ready.";

// A line with the numbers that differ from run to run replaced by N.
std::string withoutNumbers(const std::string& line) {
    std::string masked = line;
    for (const char* const before : {"thread ", "process ", "-9 "}) {
        masked = replaceAll(masked, before + std::string("[0-9]+"), before + std::string("N"));
    }
    // A session is down for the first that it hears of a loss.
    return replaceAll(masked, "down, -3: internal error", "down, -8: service down");
}

bool isPeriodicReport(const std::string& line) {
    return line.rfind("    callback onPeriodicReport(", 0) == 0;
}

constexpr char kConnecting[] = "    callback onState(connecting)";

bool isServiceReady(const std::string& line) {
    return line.rfind("    the service is ready: process ", 0) == 0;
}

// In a fresh process the ids are the first numbers of the C library's unseeded rand().
constexpr char kBareInterface[] =
    R"(An application uses the data service. Its main thread is thread N.

1. The data service is started, as a process of its own.
    the service is ready: process N

2. The client is created. The library connects in the background and tells onStatus().
    createSdfClient(onStatus) returned 0: success
    callback onStatus(-7: service up), brought by another thread (thread N)

3. Requests are accepted now. We ask for latency levels, and onLevels() gets the answer.
    sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4, false, onLevels) returned 1804289383: the id of the request
    callback onLevels(1804289383, level 2, level 4), brought by another thread (thread N)

4. Settings of the link. The service sends no result of these.
    sdfPrioritizeData(SDF_SLOT_ID_FIRST, true) returned 0: success
    sdfPrioritizeDds(true) returned 0: success
    sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL) returned 0: success
    sdfUpdateDdsPdcpTimer(40) returned 0: success

5. While gaming is on, the service has a filter of its own, and tells onAutoFilter().
    sdfRegAutoFilterInfo(onAutoFilter) returned 0: success
    sdfEnHighPerfGaming(true) returned 0: success
    callback onAutoFilter(2147483649, UDP from 192.0.2.10 port 50000 to 198.51.100.20 port 27015, highest priority), brought by another thread (thread N)
    sdfEnHighPerfGaming(false) returned 0: success
    callback onAutoFilter(2147483649, not active), brought by another thread (thread N)

6. A filter is added, and becomes active. Its id is that of the request.
    sdfRegFilterStatus(onFilterStatus) returned 0: success
    sdfAddFilter(gameFlow(), onAdded) returned 846930886: the id of the request
    callback onAdded(846930886, pending), brought by another thread (thread N)
    callback onFilterStatus(846930886, active), brought by another thread (thread N)

7. Another one, with one value more.
    sdfAddFilterV2(callFlow(), 7, onAdded) returned 1681692777: the id of the request
    callback onAdded(1681692777, pending), brought by another thread (thread N)
    callback onFilterStatus(1681692777, active), brought by another thread (thread N)

8. The first one is changed. We have registered for that: onFilterStatus() is called.
    sdfUpdateLatencyLvl(game, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3) returned 0: success
    callback onFilterStatus(846930886, active), brought by another thread (thread N)
    sdfUpdateOod(game, SDF_OOD_ENABLED_LVL) returned 0: success
    callback onFilterStatus(846930886, active), brought by another thread (thread N)
    sdfUpdatePdcpTimer(game, 20) returned 0: success
    callback onFilterStatus(846930886, active), brought by another thread (thread N)
    sdfUpdateTargetDscp(game, 46) returned 0: success
    callback onFilterStatus(846930886, active), brought by another thread (thread N)

9. The service lists our filters.
    sdfGetFilters(onListed) returned 0: success
    callback onListed(846930886, active, level 1, level 3, OOD enabled, PDCP timer 20), brought by another thread (thread N)
    callback onListed(1681692777, active, level 4, level 4, OOD disabled, PDCP timer 0), brought by another thread (thread N)

10. It reports on the priority queues, once and then every half second until it is to stop.
    sdfGetPriorityQueueReport(onReport) returned 0: success
    callback onReport(0, 4294968296, 5153961955200), brought by another thread (thread N)
    callback onReport(1, 4294968296, 5153961955200), brought by another thread (thread N)
    callback onReport(32, 4294968296, 5153961955200), brought by another thread (thread N)
    sdfRegPriorityQueueReports(true, 500, onPeriodicReport) returned 0: success
    callback onPeriodicReport(0, 4294969296, 5153963155200), brought by another thread (thread N)
    callback onPeriodicReport(1, 4294969296, 5153963155200), brought by another thread (thread N)
    callback onPeriodicReport(32, 4294969296, 5153963155200), brought by another thread (thread N)
    sdfRegPriorityQueueReports(false, 0, onPeriodicReport) returned 0: success

11. The first filter is deleted.
    sdfDeleteFilter(game) returned 0: success
    callback onFilterStatus(846930886, deleted), brought by another thread (thread N)
    sdfDeleteFilter(game) returned -2: invalid argument

12. The service is killed. The library notices; requests are refused from now on. (-3 comes too when the service was not yet done with the last one.)
    kill -9 N
    callback onStatus(-8: service down), brought by another thread (thread N)
    sdfPrioritizeDds(true) returned -8: service down

13. The service is started again.
    the service is ready: process N

14. Only createSdfClient() makes the library connect again. We call it until -7 comes.
    createSdfClient(onStatus) returned 0: success
    callback onStatus(-7: service up), brought by another thread (thread N)

15. The library still knows the second filter, but this service does not. We forget it.
    sdfDeleteAllFilter() returned 0: success
    sdfDeleteAllFilter() returned -5: invalid operation

16. We register again, and add the filter again.
    sdfRegFilterStatus(onFilterStatus) returned 0: success
    sdfAddFilter(gameFlow(), onAdded) returned 1714636915: the id of the request
    callback onAdded(1714636915, pending), brought by another thread (thread N)
    callback onFilterStatus(1714636915, active), brought by another thread (thread N)

17. The client is destroyed, and the service learns that it leaves.
    destroySdfClient() returned 0: success

18. The same with the two older functions.
    lum_sdf_enable(onOldStatus) returned 1
    callback onOldStatus(5: service up), brought by another thread (thread N)
    lum_sdf_disable() returned 1

)";

#ifdef LUM_DEMO_SESSION
constexpr char kSession[] =
    R"(19. Now with a session. We say at once what we want; it is sent when the service is up.
    sdfSessionOpen(onState, NULL, &session) returned 0: success
    sdfSessionSetLevels(session, SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4, false, onLevelsInForce, NULL) returned 0: success
    sdfFilterAdd(session, flow, onFilter, NULL, &filter) returned 0: success

20. Our loop calls sdfSessionDispatch(). Callbacks come from there only, on our own thread.
    callback onState(connecting), brought by the main thread (thread N)
    callback onFilter(requested), brought by the main thread (thread N)
    callback onLevelsInForce(success, level 2, level 4), brought by the main thread (thread N)
    callback onFilter(pending), brought by the main thread (thread N)
    callback onState(up), brought by the main thread (thread N)
    callback onFilter(active), brought by the main thread (thread N)

21. The service is killed.
    kill -9 N
    callback onState(down, -8: service down), brought by the main thread (thread N)
    callback onFilter(lost), brought by the main thread (thread N)

22. We want other levels for the filter. There is no service; the request is recorded.
    sdfFilterSetLevels(filter, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3) returned 0: success

23. The service is started again. Our loop is all that runs: the session comes back.
    the service is ready: process N
    callback onState(connecting), brought by the main thread (thread N)
    callback onFilter(requested), brought by the main thread (thread N)
    callback onLevelsInForce(success, level 2, level 4), brought by the main thread (thread N)
    callback onFilter(pending), brought by the main thread (thread N)
    callback onState(up), brought by the main thread (thread N)
    callback onFilter(active), brought by the main thread (thread N)

24. The service lists our filter, once and with its new levels.
    sdfSessionAskFilters(session, 0, onList, &filter) returned 0: success
    callback onList(our filter, active, level 1, level 3), brought by the main thread (thread N)
    callback onList(the end: success), brought by the main thread (thread N)

25. The session is closed, and the service learns that we leave.
    sdfSessionClose(session, kLimitSeconds * 1000) returned 0: success

)";
#else
constexpr char kSession[] = "";
#endif

constexpr char kEnd[] = "The demo is done: everything happened as it should.\n";

// What the demo may print besides: the service may die after it has sent an answer and before it
// has finished with the request, which is then reported as failed; a client that asks while the
// library is still busy with the loss of the service has to ask again, and so does a session; and
// another report may be under way when the reports are stopped.
bool isOfTheMoment(const std::string& line, const Lines& before) {
    const auto starts = [&line](const char* with) { return line.rfind(with, 0) == 0; };
    if (starts("    callback onStatus(-3: internal error)")) return true;
    if (starts("    createSdfClient(onStatus) returned 0: success")) return line == before.back();
    if (before.back().rfind(kConnecting, 0) == 0) {
        return starts("    callback onState(down") || starts(kConnecting);
    }
    return isPeriodicReport(line) &&
           std::count_if(before.begin(), before.end(), isPeriodicReport) == 3;
}

TEST(DemoTest, EverythingHappens) {
    ChildProcess demo({LUM_DEMO_PROGRAM, EmulatorProcess::program()});
    EXPECT_EQ(demo.wait(), 0);
    std::string printed;
    Lines kept{""};
    for (const std::string& line : demo.lines()) {
        if (isOfTheMoment(line, kept)) continue;
        printed += withoutNumbers(line) + "\n";
        kept.push_back(line);
    }
    EXPECT_EQ(printed, std::string(kBareInterface) + kSession + kEnd);
    EXPECT_EQ(demo.errorLines(), Lines{});
}

TEST(DemoTest, EndsAtOnce) {
    const struct {
        Lines arguments;
        int status;
        Lines lines;
        Lines errors;
    } rows[] = {
        {{"/none"}, 1, {}, {"cannot run /none: No such file or directory", "", kDidNotStart}},
        {{"/bin/false"}, 1, {}, {"", kDidNotStart}},
        {{"one", "more"}, 2, {}, {kUsage}},
        {{"--help"}, 0, {kUsage}, {}},
        {{"--version"}, 0, {"lum_sdf_demo (lum SDF) " LUM_SDF_SDK_VERSION}, {}},
    };
    for (const auto& row : rows) {
        Lines command = row.arguments;
        command.insert(command.begin(), LUM_DEMO_PROGRAM);
        ChildProcess demo(command);
        EXPECT_EQ(demo.wait(), row.status) << row.arguments[0];
        EXPECT_EQ(demo.errorLines(), row.errors);
        // A demo that fails has printed what it was about to do.
        EXPECT_TRUE(row.status == 1 || demo.lines() == row.lines);
    }
}

// Without an argument it looks for the emulator.
TEST(DemoTest, TwoRunAtOnce) {
    const auto directory = std::filesystem::path(EmulatorProcess::program()).parent_path();
    ChildProcess one({LUM_DEMO_PROGRAM}, {"PATH=" + directory.string() + ":" + getenv("PATH")});
    ChildProcess two({LUM_DEMO_PROGRAM, EmulatorProcess::program()});
    EXPECT_EQ(one.wait(), 0);
    EXPECT_EQ(two.wait(), 0);
    EXPECT_EQ(one.errorLines(), Lines{});
}

// Broken off while it waits for a service that gets ready and then serves nobody.
TEST(DemoTest, BrokenOffItLeavesNothingBehind) {
    const TestDirectory own;  // only to have a directory for two files
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
    std::string directory;
    std::getline(std::ifstream(note), directory);
    ASSERT_TRUE(std::filesystem::is_directory(directory));
    demo.signal(SIGTERM);
    EXPECT_EQ(demo.wait(), 128 + SIGTERM);
    EXPECT_EQ(kill(service, 0), -1);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

}  // namespace
