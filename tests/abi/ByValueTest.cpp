// SPDX-License-Identifier: Apache-2.0
// What an application compiled as C passes and receives by value, through the library as it is
// installed.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

using Lines = std::vector<std::string>;

std::string zeros(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += " 00";
    return text;
}

// Three messages of the service whose values fill their types.
//
// A list of one filter: its id (80000001), state 23 (reported as 2), levels 5 and 2 (reported as 6
// and 3), timer (ffffffff), out-of-order delivery 2 (reported as 3).
constexpr char kFilters[] =
    "08 04 1A 18 2A 16 12 14 08 81 80 80 80 08 10 17 20 05 28 02 30 FF FF FF FF 0F 38 02";
// A report of one entry: 80000001, 8000000000000001, 100000000.
constexpr char kReport[] =
    "08 05 1A 1B 32 19 12 17 08 81 80 80 80 08 10 81 80 80 80 80 80 80 80 80 01 18 80 80 80 80 10";
// An automatic filter (80000001) from 2001:db8::1, port 443, to fe80::a:9, port 53, protocol 2,
// application type 33 (reported as 32).
constexpr char kAuto[] =
    "08 06 1A 2D 3A 2B 08 81 80 80 80 08 12 21 0A 0B 32 30 30 31 3A 64 62 38 3A 3A 31"
    " 12 09 66 65 38 30 3A 3A 61 3A 39 18 BB 03 20 35 28 02 60 21 18 01";

std::string answerBy(const std::string& request, const std::string& message) {
    return "on " + request + ": never, garbage " + message;
}

// In a fresh process the ids are the first numbers of the C library's unseeded rand().
TEST(ByValueTest, ValuesArriveWhole) {
    const TestDirectory directory;
    const std::string path = directory.path() + "/record";
    EmulatorProcess emulator({"--record", path, "--rule", answerBy("get_filters", kFilters),
                              "--rule", answerBy("get_priority_queue_report", kReport), "--rule",
                              answerBy("en_high_perf_gaming", kAuto)});
    ChildProcess client({LUM_CLIENT_PROGRAM});
    EXPECT_EQ(client.wait(), 0);
    EXPECT_EQ(client.errorLines(), Lines{});
    EXPECT_EQ(
        client.lines(),
        (Lines{
            "sdfUpdateOod fffffffffffffffb",
            "createSdfClient fffffffffffffffe",
            "createSdfClient 0000000000000000",
            "status -7",
            "lum_sdf_enable 0000000000000001",
            "legacy status 5",
            "status -7",
            "sdfUpdateOod fffffffffffffffe",
            "sdfSetLatencyLvl 000000006b8b4567",
            "levels 000000006b8b4567 2 4",
            "sdfAddFilter 00000000327b23c6",
            "added 327b23c6 1",
            "sdfAddFilterV2 00000000643c9869",
            "added 643c9869 1",
            "sdfGetFilters 0000000000000000",
            "filter 80000001 2 6 3 3 ffffffff",
            "sdfGetPriorityQueueReport 0000000000000000",
            "report 80000001 8000000000000001 0000000100000000",
            "sdfRegAutoFilterInfo 0000000000000000",
            "sdfEnHighPerfGaming 0000000000000000",
            "auto 80000001",
            "  src_addr 0A 00 01 BB 00 00 00 00 20 01 0D B8" + zeros(11) + " 01" + zeros(104),
            "  dest_addr 0A 00 00 35 00 00 00 00 FE 80" + zeros(11) + " 0A 00 09" + zeros(104),
            "  first_level 00 00 00 00",
            "  second_level 00 00 00 00",
            "  ood 00 00 00 00",
            "  app_type 20 00 00 00",
            "  protocol 02 00 00 00",
            "  filter_arg6 00",
            "  pdcp_timer 00 00 00 00",
            "  filter_arg11 00 00 00 00",
            "  filter_arg13 00 00 00 00",
            "  src_port_range 00 00",
            "  dest_port_range 00 00",
            "  filter_arg19 00",
            "  filter_arg20 00",
            "  filter_arg16 00",
            "  filter_arg17 00",
            "lum_sdf_disable 0000000000000001",
            "lum_sdf_disable 0000000000000000",
            "destroySdfClient fffffffffffffffb",
        }));
    EXPECT_EQ(emulator.terminate(), 0);

    // The flow up to the place of the one value that only sdfAddFilterV2() takes, and behind it.
    const std::string flow =
        "0a0b323030313a6462383a3a31"
        "1209666538303a3a613a39"
        "18bb03203528"
        "0230c901"
        "38014005"
        "48ac02"
        "5002"
        "58ffffffff0f"
        "6021"
        "680d"
        "7064"
        "78ff01"
        "8001c801"
        "880111";
    EXPECT_EQ(recordedRequests(path),
              (Lines{
                  "1a040a020801",
                  "1a040a020801",
                  "080110e78aaddc061a081a06100118032001",
                  "080410c6c7ec93031a493247" + flow + "980113a00114",
                  "080410e9b0f2a1061a4d324b" + flow + "9001fb01980113a00115",
                  "0805",
                  "0810",
                  "080d1a046a020801",
                  "1a020a00",
              }));
}

}  // namespace
