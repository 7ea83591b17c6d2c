// SPDX-License-Identifier: Apache-2.0
// "keep" and "watch": what they print, and what the service then has.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Pattern.h"
#include "tests/support/TerminalProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kGame[] =
    R"({"name": "game", "src": "192.0.2.1:5000", "dest": "198.51.100.7:443", "protocol": "udp"})";
constexpr char kDisable[] = "ENABLE: data { enable_msg { } }";
constexpr char kUp[] = "event session: state=up";

// Without the numbers that differ from run to run.
std::string plainText(const std::string& line) {
    std::string plain = line;
    for (const char* const before : {"filter", "filter_id:", "unique_id:", "filter=", "pid="}) {
        plain = replaceAll(plain, before + std::string(" ?[0-9]+"), before + std::string(" N"));
    }
    return plain;
}

Lines plainLines(const Lines& lines) {
    Lines plain;
    for (const std::string& line : lines) plain.push_back(plainText(line));
    return plain;
}

class KeepTest : public testing::Test {
  protected:
    // As an editor that writes to the file.
    void write(const std::string& text) const { std::ofstream(mFile) << text; }
    // As one that puts another file in its place.
    void replace(const std::string& text) const {
        std::ofstream(mFile + "~") << text;
        ASSERT_EQ(std::rename((mFile + "~").c_str(), mFile.c_str()), 0);
    }

    Lines keep(const std::string& options = "") const {
        return sdfctlCommand("keep " + mFile + " " + options);
    }
    std::string fileLine(const std::string& counts) const {
        return "event file: path=" + mFile + " " + counts;
    }

    // Those of the lines that begin so: lines of different kinds may change places.
    static Lines beginningWith(const std::string& start, const Lines& lines) {
        Lines found;
        for (const std::string& line : plainLines(lines)) {
            if (line.rfind(start, 0) == 0) found.push_back(line);
        }
        return found;
    }

    // What the service keeps for its client, but for the ids of filters.
    static nlohmann::json state() {
        const Outcome dump = runSdfctl("dump --json");
        EXPECT_EQ(dump.status, 0);
        nlohmann::json feature =
            nlohmann::json::parse(dump.lines.at(0))["clients"][0]["features"][0];
        for (nlohmann::json& filter : feature["filters"]) filter.erase("filter_id");
        return feature;
    }

    // Waits until an emulator with --print has printed so many requests with this text. Returns all
    // that it has printed then.
    static Lines requestsUpTo(const std::string& last, const EmulatorProcess& emulator,
                              size_t times = 1) {
        EXPECT_TRUE(emulator.process().waitFor(
            [&](const std::string& line) {
                return line.rfind("received ", 0) == 0 && line.find(last) != std::string::npos;
            },
            times));
        Lines requests;
        for (const std::string& line : plainLines(emulator.process().lines())) {
            const std::string before = "received pid= N type=5 ";
            if (line.rfind(before, 0) == 0) requests.push_back(line.substr(before.size()));
        }
        return requests;
    }

    const TestDirectory mDirectory;
    const std::string mFile = mDirectory.path() + "/flows.json";
};

TEST_F(KeepTest, KeepsTheFileThroughTheDeathOfTheService) {
    write(R"({
        "filters": [
            {"name": "game", "src": "192.0.2.1:5000", "dest": "198.51.100.7:443",
             "src_range": 10, "dest_range": 1, "protocol": "udp", "app_type": "highest",
             "first": 2, "second": 3, "ood": "enabled", "pdcp_timer": 50, "dscp": 46},
            {"name": "voice", "src": "2001:db8::1", "dest": "[2001:db8::2]:5060", "extra": 9,
             "renewed": false}
        ],
        "levels": {"first": {"first": 1, "second": 3}, "second": {"first": 4, "second": 5,
                                                                  "flag": true}},
        "gaming": true,
        "data_priority": {"first": true, "second": false},
        "dds": {"priority": true, "ood": "disabled", "pdcp_timer": 7},
        "queue_reports": 86400000,
        "auto_filters": true
    })");
    EmulatorProcess emulator;
    ChildProcess child(keep());
    const auto kept = nlohmann::json::parse(R"({
        "type": 5, "filter_status": true, "auto_filter_info": false, "report_value": 86400000,
        "report_interval_ms": 86400000, "high_perf_gaming": true, "auto_filter_id": 2147483649,
        "prioritize_dds": true, "dds_ood": "SDF_OOD_DISABLED", "dds_pdcp_timer": 7,
        "prioritized_slots": ["SLOT_ID_FIRST"],
        "levels": [
            {"slot_id": "SLOT_ID_FIRST", "first_level": "L1", "second_level": "L3",
             "level_flag": false},
            {"slot_id": "SLOT_ID_SECOND", "first_level": "L4", "second_level": "L5",
             "level_flag": true}
        ],
        "filters": [
            {"status": "FILTER_ACTIVE", "src_ip": "192.0.2.1", "dest_ip": "198.51.100.7",
             "src_port": 5000, "dest_port": 443, "protocol": "PROTOCOL_UDP", "filter_arg6": 0,
             "first_level": "L2", "second_level": "L3", "pdcp_timer": 50,
             "ood": "SDF_OOD_ENABLED", "filter_arg11": 0,
             "app_type": "APP_TYPE_TRAFFIC_PRIO_HIGHEST", "filter_arg13": 0,
             "src_port_range": 10, "dest_port_range": 1, "filter_arg16": 0, "filter_arg17": 0,
             "filter_arg18": null, "filter_arg19": 0, "filter_arg20": 0, "target_dscp": 46},
            {"status": "FILTER_ACTIVE", "src_ip": "2001:db8::1", "dest_ip": "2001:db8::2",
             "src_port": 0, "dest_port": 5060, "protocol": "PROTOCOL_NONE", "filter_arg6": 0,
             "first_level": "L1", "second_level": "L1", "pdcp_timer": 0,
             "ood": "SDF_OOD_UNSPECIFIED", "filter_arg11": 0,
             "app_type": "APP_TYPE_UNSPECIFIED", "filter_arg13": 0, "src_port_range": 0,
             "dest_port_range": 0, "filter_arg16": 0, "filter_arg17": 0, "filter_arg18": 9,
             "filter_arg19": 0, "filter_arg20": 0, "target_dscp": null}
        ]
    })");
    ASSERT_TRUE(child.waitForLine(kUp));
    EXPECT_EQ(state(), kept);
    emulator.kill();
    // For the death, or for the last request, whose call may not have returned.
    ASSERT_TRUE(child.waitFor([](const std::string& line) {
        return line.rfind("event session: state=down reason=", 0) == 0;
    }));
    emulator.restart();
    ASSERT_TRUE(child.waitForLine(kUp, 2));
    EXPECT_EQ(state(), kept);
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 128 + SIGINT);
    EXPECT_EQ(child.errorLines(), Lines{});
    EXPECT_TRUE(emulator.waitForClients(0));

    const Lines lines = child.lines();
    EXPECT_EQ(lines.at(0), fileLine("filters=2 added=2 removed=0 changed=9"));
    EXPECT_EQ(lines.at(1), "event session: state=connecting");
    const Lines game{"event filter: name=game state=requested",
                     "event filter: name=game state=active filter= N"};
    Lines twice = game;
    twice.emplace_back("event filter: name=game state=lost");
    twice.insert(twice.end(), game.begin(), game.end());
    EXPECT_EQ(beginningWith("event filter: name=game", lines), twice);
    EXPECT_EQ(beginningWith("event filter: name=voice", lines).size(), 5U);
    const std::string first = "event levels: slot=first first=level-1 second=level-3";
    const std::string second = "event levels: slot=second first=level-4 second=level-5";
    EXPECT_EQ(beginningWith("event levels", lines), (Lines{first, second, first, second}));
    EXPECT_EQ(beginningWith("event auto-filter", lines),
              Lines(2,
                    "event auto-filter: filter= N src=192.0.2.10:50000 "
                    "dest=198.51.100.20:27015 protocol=udp app_type=highest"));
}

TEST_F(KeepTest, SendsOnlyTheDifferenceOfAChangedFile) {
    const auto file = [](const std::string& filters, const std::string& rest) {
        return R"({"filters": [)" + filters + "], " + rest + "}";
    };
    const std::string voice = R"({"name": "voice", "src": "::1", "dest": "::2", "dscp": 3})";
    write(file(std::string(kGame) + ", " + voice,
               R"("gaming": true, "dds": {"pdcp_timer": 1}, "levels": {"first": {"first": 1,
                   "second": 2}})"));
    const EmulatorProcess emulator({"--print"});
    ChildProcess child(keep());
    ASSERT_TRUE(child.waitForLine(kUp));
    // With a DSCP sent, it is up when filters have been listed, and again.
    const size_t before = requestsUpTo(" GET_FILTERS: ", emulator, 2).size();

    // Everything that can be changed of a filter, all settings, and another name.
    const std::string games = R"({"name": "games", "src": "192.0.2.1:5000",
        "dest": "198.51.100.7:443", "protocol": "udp", "first": 5, "second": 6, "ood": "disabled",
        "pdcp_timer": 8, "dscp": 9})";
    write(file(voice + ", " + games,
               R"("auto_filters": true, "queue_reports": 86400000,
                   "data_priority": {"second": true},
                   "dds": {"priority": true, "ood": "enabled", "pdcp_timer": 2},
                   "levels": {"first": {"first": 1, "second": 2}, "second": {"first": 3,
                   "second": 4}})"));
    ASSERT_TRUE(child.waitForLine(fileLine("filters=2 added=0 removed=0 changed=9")));
    ASSERT_TRUE(child.waitForLine("event levels: slot=second first=level-3 second=level-4"));
    // One goes, one comes, and one cannot do without its DSCP; by an editor that replaces the file.
    replace(file(R"({"name": "voice", "src": "::1", "dest": "::2"},
                    {"name": "new", "src": "::1", "dest": "::3", "extra": 1})",
                 R"("queue_reports": 1)"));
    ASSERT_TRUE(child.waitForLine(fileLine("filters=2 added=2 removed=2 changed=8")));
    ASSERT_TRUE(child.waitFor([](const std::string& line) {
        return plainText(line) == "event filter: name=new state=active filter= N";
    }));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);

    Lines requests = requestsUpTo(kDisable, emulator);
    requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(
        requests,
        (Lines{
            "UPDATE_LATENCY_LEVEL: event_id: UPDATE_LATENCY_LEVEL data { update_latency_level { "
            "filter_id: N first_level: L5 second_level: L6 } }",
            "UPDATE_OOD: event_id: UPDATE_OOD data { update_ood { filter_id: N ood: "
            "SDF_OOD_DISABLED } }",
            "UPDATE_PDCP_TIMER: event_id: UPDATE_PDCP_TIMER data { update_pdcp_timer { filter_id: "
            "N pdcp_timer: 8 } }",
            "UPDATE_TARGET_DSCP: event_id: UPDATE_TARGET_DSCP data { update_target_dscp { "
            "filter_id: N target_dscp: 9 } }",
            "SET_LATENCY_LEVEL: event_id: SET_LATENCY_LEVEL unique_id: N data { set_latency_level "
            "{ slot_id: SLOT_ID_SECOND first_level: L3 second_level: L4 } }",
            "PRIORITIZE_DATA: event_id: PRIORITIZE_DATA data { prioritize_data { slot_id: "
            "SLOT_ID_SECOND enable: true } }",
            "EN_HIGH_PERF_GAMING: event_id: EN_HIGH_PERF_GAMING data { en_high_perf_gaming { } }",
            "PRIORITIZE_DDS: event_id: PRIORITIZE_DDS data { prioritize_dds { enable: true } }",
            "UPDATE_DDS_OOD: event_id: UPDATE_DDS_OOD data { update_dds_ood { ood: "
            "SDF_OOD_ENABLED } }",
            "UPDATE_DDS_PDCP_TIMER: event_id: UPDATE_DDS_PDCP_TIMER data { update_dds_pdcp_timer { "
            "pdcp_timer: 2 } }",
            "REG_PRIORITY_QUEUE_REPORTS: event_id: REG_PRIORITY_QUEUE_REPORTS data { "
            "reg_priority_queue_reports { enable: true report_value: 86400000 } }",
            // Of the other file.
            "DELETE_FILTER: event_id: DELETE_FILTER data { delete_filter { filter_id: N } }",
            "DELETE_FILTER: event_id: DELETE_FILTER data { delete_filter { filter_id: N } }",
            "ADD_FILTER: event_id: ADD_FILTER unique_id: N data { add_filter { src_ip: \"::1\" "
            "dest_ip: \"::2\" app_type: APP_TYPE_UNSPECIFIED } }",
            "ADD_FILTER: event_id: ADD_FILTER unique_id: N data { add_filter { src_ip: \"::1\" "
            "dest_ip: \"::3\" app_type: APP_TYPE_UNSPECIFIED filter_arg18: 1 } }",
            "PRIORITIZE_DATA: event_id: PRIORITIZE_DATA data { prioritize_data { slot_id: "
            "SLOT_ID_SECOND } }",
            "PRIORITIZE_DDS: event_id: PRIORITIZE_DDS data { prioritize_dds { } }",
            "UPDATE_DDS_OOD: event_id: UPDATE_DDS_OOD data { update_dds_ood { } }",
            "REG_PRIORITY_QUEUE_REPORTS: event_id: REG_PRIORITY_QUEUE_REPORTS data { "
            "reg_priority_queue_reports { enable: true report_value: 1 } }",
            kDisable,
        }));
    Lines lines;
    for (const std::string& line : beginningWith("event filter: ", child.lines())) {
        if (line.find("removed") != std::string::npos || line.find("games") != std::string::npos) {
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines, (Lines{"event filter: name=game state=removed filter= N",
                            "event filter: name=games state=active filter= N",
                            "event filter: name=voice state=removed filter= N",
                            "event filter: name=games state=removed filter= N"}));
}

TEST_F(KeepTest, NamesThatChangePlacesStay) {
    const auto flow = [](const std::string& name, const std::string& dest) {
        return R"({"name": ")" + name + R"(", "src": "::1", "dest": ")" + dest + "\"}";
    };
    write("{\"filters\": [" + flow("a", "::2") + ", " + flow("b", "::2") + "]}");
    const EmulatorProcess emulator;
    ChildProcess child(keep());
    ASSERT_TRUE(child.waitForLine(kUp));
    write("{\"filters\": [" + flow("b", "::2") + ", " + flow("a", "::2") + "]}");
    ASSERT_TRUE(child.waitForLine(fileLine("filters=2 added=0 removed=0 changed=2")));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);
    const Lines lines = plainLines(child.lines());
    ASSERT_EQ(lines.size(), 12U);
    EXPECT_EQ(
        Lines(lines.begin() + 7, lines.begin() + 11),
        (Lines{"event filter: name=a state=removed filter= N", "event filter: name=b state=removed",
               "event filter: name=b state=active filter= N",
               "event filter: name=a state=rejected why=duplicate"}));
}

TEST_F(KeepTest, ReadsAgainUponHangUpAndKeepsItsStateWhenTheFileIsWrong) {
    write(std::string("{\"filters\": [") + kGame + "]}");
    const EmulatorProcess emulator({"--print"});
    ChildProcess child(keep());
    ASSERT_TRUE(child.waitForLine(kUp));
    Lines requests = requestsUpTo(" ADD_FILTER: ", emulator);

    write("{\n\"gaming\": 1}");
    ASSERT_TRUE(child.waitForError("sdfctl: " + mFile + ":2: gaming: 1 is not true or false"));
    child.signal(SIGHUP);
    ASSERT_TRUE(child.waitForError("sdfctl: " + mFile + ":2: gaming: 1 is not true or false", 2));
    ASSERT_EQ(std::remove(mFile.c_str()), 0);
    child.signal(SIGHUP);
    ASSERT_TRUE(child.waitForError("sdfctl: " + mFile + ": No such file or directory"));
    write(std::string("{\"filters\":\n[") + kGame + "]}");
    ASSERT_TRUE(child.waitForLine(fileLine("filters=1 added=0 removed=0 changed=0")));
    child.signal(SIGHUP);
    ASSERT_TRUE(child.waitForLine(fileLine("filters=1 added=0 removed=0 changed=0"), 2));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);
    requests.emplace_back(kDisable);
    EXPECT_EQ(requestsUpTo(kDisable, emulator), requests);
}

TEST_F(KeepTest, FollowsALinkToTheFile) {
    const std::string link = mDirectory.path() + "/link.json";
    ASSERT_EQ(mkdir((mDirectory.path() + "/other").c_str(), 0700), 0);
    const std::string target = mDirectory.path() + "/other/flows.json";
    std::ofstream(target) << "{}";
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    ChildProcess child(sdfctlCommand("keep " + link));
    ASSERT_TRUE(
        child.waitForLine("event file: path=" + link + " filters=0 added=0 removed=0 changed=0"));
    std::ofstream(target) << "{\"gaming\": true}";
    ASSERT_TRUE(
        child.waitForLine("event file: path=" + link + " filters=0 added=0 removed=0 changed=1"));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);
}

TEST_F(KeepTest, ReportsWhatTheServiceRefuses) {
    const std::string same = R"({"name": "same", "src": "192.0.2.1:5000",
        "dest": "198.51.100.7:443", "protocol": "udp"})";
    write(std::string("{\"filters\": [") + kGame + ", " + same + "]}");
    const EmulatorProcess emulator;
    ChildProcess child(keep());
    ASSERT_TRUE(child.waitForLine(kUp));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);
    EXPECT_EQ(beginningWith("event filter: name=same", child.lines()),
              (Lines{"event filter: name=same state=requested",
                     "event filter: name=same state=rejected why=duplicate"}));
}

TEST_F(KeepTest, ObjectsForPrograms) {
    write(std::string("{\"filters\": [") + kGame + "]}");
    const EmulatorProcess emulator;
    ChildProcess child(keep("--json"));
    ASSERT_TRUE(child.waitFor([](const std::string& line) {
        return line.find("\"state_name\":\"up\"") != std::string::npos;
    }));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);
    const Lines lines = child.lines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], R"({"event":"file","path":")" + mFile +
                            R"(","filters":1,"added":1,"removed":0,"changed":0})");
    EXPECT_EQ(lines[1],
              R"({"event":"session","state":0,"state_name":"connecting","reason":0,"reason_name":)"
              R"("success"})");
    EXPECT_EQ(lines[2],
              R"({"event":"filter","name":"game","state":0,"state_name":"requested","filter":0,)"
              R"("why":0,"why_name":"pending"})");
    const auto active = nlohmann::json::parse(lines[3]);
    EXPECT_EQ(active["state_name"], "active");
    EXPECT_GT(active["filter"], 0);
}

TEST_F(KeepTest, WrongFromTheStart) {
    write("{\"first\": 1}");
    const struct {
        std::string arguments;
        std::string error;
    } rows[] = {
        {"keep", "keep: FILE is required"},
        {"keep a b", "keep: The following argument was not expected: b"},
        {"keep " + mFile, mFile + ":1: first: is not one of $schema, filters, levels, gaming, "
                                  "data_priority, dds, queue_reports, auto_filters"},
        {"watch " + mFile + "x", mFile + "x: No such file or directory"},
        {"keep " + mDirectory.path(), mDirectory.path() + ": Is a directory"},
        {"keep " + mDirectory.path() + "/none/x",
         mDirectory.path() + "/none: cannot be watched: No such file or directory"},
        {"keep /dev/zero", "/dev/zero: is larger than 16 MiB"},
        {"create then keep " + mFile, "\"keep\" stands alone on the command line"},
    };
    for (const auto& row : rows) {
        const Outcome run = runSdfctl(row.arguments);
        EXPECT_EQ(run.status, 2) << row.arguments;
        EXPECT_EQ(run.lines, Lines{}) << row.arguments;
        EXPECT_EQ(run.errors, Lines{"sdfctl: " + row.error});
    }
}

TEST_F(KeepTest, EndsAllTheSameWhenTheServiceHangs) {
    write("{}");
    const EmulatorProcess emulator;
    ChildProcess child(keep());
    ASSERT_TRUE(child.waitForLine(kUp));
    ASSERT_TRUE(stopChild(emulator.pid()));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 128 + SIGTERM);
    EXPECT_EQ(
        child.errorLines(),
        Lines{"sdfctl: the client is not destroyed: it has not left after 10 s; the service "
              "hangs, or is gone with requests still queued (\"sdfctl doctor\" tells which)"});
}

// ---- watch
// -----------------------------------------------------------------------------------------

TEST_F(KeepTest, WatchPrintsLinesWhereThereIsNoTerminal) {
    EmulatorProcess emulator({"--print"});
    (void)std::signal(SIGHUP, SIG_DFL);  // whatever this process was started with
    for (const int signal : {SIGHUP, SIGINT}) {
        ChildProcess child(sdfctlCommand("watch"));
        ASSERT_TRUE(child.waitForLine(kUp));
        child.signal(signal);
        EXPECT_EQ(child.wait(), 128 + signal);
        EXPECT_EQ(child.lines(), (Lines{"event session: state=connecting", kUp}));
    }
    write(std::string("{\"filters\": [") + kGame + "]}");
    ChildProcess child(sdfctlCommand("watch " + mFile));
    ASSERT_TRUE(child.waitForLine(kUp));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 128 + SIGINT);
    EXPECT_EQ(plainLines(child.lines()),
              (Lines{fileLine("filters=1 added=1 removed=0 changed=0"),
                     "event session: state=connecting", "event filter: name=game state=requested",
                     "event filter: name=game state=active filter= N", kUp}));
}

class WatchTest : public KeepTest {
  protected:
    void SetUp() override {
        if (!TerminalProcess::canBe()) GTEST_SKIP() << "there are no pseudo-terminals";
    }

    // The lines as they are drawn.
    static std::string drawn(const Lines& lines) {
        std::string text;
        for (const std::string& line : lines) text += line + "\033[K\r\n";
        return text + "\033[J";
    }
};

TEST_F(WatchTest, DrawsInPlace) {
    write(R"({"levels": {"first": {"first": 1, "second": 3}}})");
    const EmulatorProcess emulator;
    const std::string file = "file: path=" + mFile + " filters=0 added=0 removed=0 changed=";
    TerminalProcess terminal(sdfctlCommand("watch " + mFile), {"TERM=xterm"});
    EXPECT_TRUE(terminal.waitFor(drawn({file + "1"})));
    EXPECT_TRUE(terminal.waitFor("\r\033[1A"));
    EXPECT_TRUE(
        terminal.waitFor(drawn({"session: state=up", file + "1", "levels",
                                "  slot  first   second  error", "  first level-1 level-3"})));
    write("{\"gaming\": 1}");
    EXPECT_TRUE(terminal.waitFor(
        "\r\033[5A" +
        drawn({"sdfctl: " + mFile + ":1: gaming: 1 is not true or false", "session: state=up",
               file + "1", "levels", "  slot  first   second  error", "  first level-1 level-3"})));
    terminal.resize(4, 12);
    EXPECT_TRUE(
        terminal.waitFor("\033[H\033[2J" + drawn({"sdfctl: /tm", "session: st", "... 4 more "})));
    EXPECT_FALSE(terminal.isOrdinary());  // what is typed would move the table
    terminal.type("\x03");
    EXPECT_EQ(terminal.wait(), 128 + SIGINT);
}

// By a shell that does not put the terminal's modes in order itself.
TEST_F(WatchTest, LeavesTheTerminalAsItWas) {
    const EmulatorProcess emulator;
    TerminalProcess shell({"/bin/sh", "-i"}, {"TERM=xterm", "PS1=shell> ", "ENV="});
    EXPECT_TRUE(shell.waitFor("shell> "));
    shell.type(sdfctlCommand("")[0] + " watch\n");
    EXPECT_TRUE(shell.waitFor("session: state=up"));
    for (int round = 0; round < 2; ++round) {
        shell.type("typed\x1A");
        EXPECT_TRUE(shell.waitFor("Stopped"));
        EXPECT_TRUE(shell.waitFor("shell> "));
        EXPECT_TRUE(shell.isOrdinary());
        shell.type("fg\n");
        EXPECT_TRUE(shell.waitFor("\r\n" + drawn({"session: state=up"})));
    }
    shell.type("typed\x03");
    EXPECT_TRUE(shell.waitFor("shell> "));
    EXPECT_TRUE(shell.isOrdinary());
    shell.type("exit\n");
    EXPECT_EQ(shell.wait(), 128 + SIGINT);
}

TEST_F(WatchTest, PrintsLinesAtATerminalThatCanDoNoMore) {
    TerminalProcess terminal(sdfctlCommand("watch"), {"TERM=dumb"});
    EXPECT_TRUE(terminal.waitFor("event session: state=connecting\r\n"));
    terminal.type("\x03");
    EXPECT_EQ(terminal.wait(), 128 + SIGINT);
}

}  // namespace
