// SPDX-License-Identifier: Apache-2.0
// Every command, in a run of its own or a script, against the service emulator: what is printed,
// whole, and the exit status. The ids are those of the C library's rand() when nobody has seeded
// it.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kFirst[] = "1804289383";
constexpr char kSecond[] = "846930886";

struct Case {
    const char* arguments;
    int status;
    Lines lines;
};

class CommandsTest : public testing::Test {
  protected:
    static void check(const std::vector<Case>& cases) {
        for (const Case& aCase : cases) {
            const Outcome run = runSdfctl(aCase.arguments);
            EXPECT_EQ(run.lines, aCase.lines) << aCase.arguments;
            EXPECT_EQ(run.errors, Lines{}) << aCase.arguments;
            EXPECT_EQ(run.status, aCase.status) << aCase.arguments;
        }
    }

    const TestDirectory mDirectory;
    const std::string mRecord = mDirectory.path() + "/record";
    EmulatorProcess mEmulator{{"--record", mRecord}};
};

// "prioritizedds" for sdfPrioritizeDds and PRIORITIZE_DDS. Functions say Lvl, events LEVEL.
std::string plain(const std::string& name) {
    std::string letters = replaceAll(replaceAll(name, "^sdf|_", ""), "Lvl", "Level");
    for (char& letter : letters) letter = static_cast<char>(tolower(letter));
    return letters;
}

// The functions of the requests, by command, as the help lists them.
std::vector<std::pair<std::string, std::string>> requests() {
    std::vector<std::pair<std::string, std::string>> found;
    for (const std::string& line : runSdfctl("help").lines) {
        std::istringstream words(line);
        std::string command;
        std::string function;
        words >> command >> function;
        const size_t end = function.find("()");
        if (function.rfind("sdf", 0) == 0 && end != std::string::npos) {
            found.emplace_back(command, function.substr(0, end));
        }
    }
    return found;
}

// The command with an argument for each that its help says is required.
std::string withArguments(const std::string& command) {
    const std::map<std::string, std::string> words = {
        {"FILTER", "last"}, {"SWITCH", "on"}, {"SLOT", "first"}};
    std::string line = command;
    std::istringstream usage(runSdfctl("help " + command).lines.at(1));
    for (std::string word; usage >> word;) {
        if (word == "Usage:" || word == command || word == "[OPTIONS]") continue;
        const auto known = words.find(word);
        line += " " + (known == words.end() ? "1" : known->second);
    }
    return line;
}

// A new request's command is tested here once it is in the program's table.
TEST_F(CommandsTest, EachRequestCallsTheFunctionThatItsHelpNames) {
    Lines script;
    Lines functions;
    Lines events;
    const auto issue = [&](const std::string& line, const std::string& function) {
        script.push_back(line);
        functions.push_back(function);
        if (function != "sdfRegAutoFilterInfo") events.push_back(plain(function));
    };
    int port = 1;
    const auto add = [&port] {
        return "add-filter --dest 192.0.2.2 --src 192.0.2.1:" + std::to_string(port++);
    };
    for (const auto& [command, function] : requests()) {
        issue(add(), "sdfAddFilter");
        issue(command == "add-filter" ? add() : withArguments(command), function);
    }
    EXPECT_GE(functions.size(), 36U);
    Lines called;
    for (const std::string& line : runSdfctl("", script).lines) {
        if (line.rfind("sdf", 0) == 0) called.push_back(line.substr(0, line.find('(')));
    }
    EXPECT_EQ(called, functions);
    EXPECT_TRUE(mEmulator.waitForClients(0));
    Lines received;
    std::ifstream record(mRecord);
    for (std::string line; std::getline(record, line);) {
        const auto message = nlohmann::json::parse(line);
        if (message["direction"] != "received" || message["event"] == "ENABLE") continue;
        received.push_back(plain(message["event"]));
    }
    EXPECT_EQ(received, events);
}

TEST_F(CommandsTest, Lifecycle) {
    const std::string created = "createSdfClient() = 0 (success)";
    const std::string up = "event status: status=-7 (service up)";
    const std::string enabled = "lum_sdf_enable() = 1 (success)";
    const std::string olderUp = "event legacy-status: status=5 (service up)";
    const std::string destroyed = "destroySdfClient() = 0 (success)";
    check({
        {"create", 0, {created, up, destroyed}},
        {"create then destroy", 0, {created, up, destroyed}},
        {"create --null-callback", 1, {"createSdfClient() = -2 (invalid argument)"}},
        {"enable", 0, {enabled, olderUp, destroyed}},
        {"enable then disable", 0, {enabled, olderUp, "lum_sdf_disable() = 1 (success)"}},
        {"enable --null-callback", 1, {"lum_sdf_enable() = 0 (failure)"}},
        // The answer in between comes when both callbacks have been called the first time.
        {"enable then get-priority-queue-report then create then wait status",
         0,
         {enabled, olderUp, "sdfGetPriorityQueueReport() = 0 (success)",
          "event queue-answer: key=32 first_value=4294968296 second_value=5153961955200", created,
          olderUp, up, destroyed}},
        {"destroy", 1, {"destroySdfClient() = -5 (invalid operation)"}},
        {"disable", 1, {"lum_sdf_disable() = 0 (failure)"}},
        {"create then destroy then create", 0, {created, up, destroyed, created, up, destroyed}},
    });
}

TEST_F(CommandsTest, RequestsWithoutAClient) {
    const std::string refused = " = -5 (invalid operation)";
    check({
        {"--manual get-filters", 1, {"sdfGetFilters()" + refused}},
        {"--manual delete-all-filters", 1, {"sdfDeleteAllFilter()" + refused}},
        {"destroy then prioritize-dds on",
         1,
         {"destroySdfClient()" + refused, "sdfPrioritizeDds(enable=on)" + refused}},
        {"--manual update-ood 5 9", 1, {"sdfUpdateOod(filter=5, ood=9)" + refused}},
        {"--manual add-filter",
         1,
         {"sdfAddFilter(src=none, dest=none, first=level-1, second=level-1, ood=unspecified)" +
          refused}},
    });
}

TEST_F(CommandsTest, SetLatency) {
    const std::string invalid = " = -2 (invalid argument)";
    check({
        {"set-latency first 1 3", 0,
         withClient({"sdfSetLatencyLvl(slot=first, first=level-1, second=level-3, flag=off) = "
                     "1804289383 (success)",
                     "event levels: id=1804289383 first=level-1 second=level-3"})},
        {"set-latency -1 level-6 0x2 --flag", 0,
         withClient({"sdfSetLatencyLvl(slot=unspecified, first=level-6, second=level-2, flag=on) = "
                     "1804289383 (success)",
                     "event levels: id=1804289383 first=level-6 second=level-2"})},
        {"set-latency 2 1 1", 1,
         withClient(
             {"sdfSetLatencyLvl(slot=2, first=level-1, second=level-1, flag=off)" + invalid})},
        {"set-latency first 0 7", 1,
         withClient({"sdfSetLatencyLvl(slot=first, first=0, second=7, flag=off)" + invalid})},
        {"set-latency first 1 1 --null-callback", 1,
         withClient(
             {"sdfSetLatencyLvl(slot=first, first=level-1, second=level-1, flag=off)" + invalid})},
    });
}

TEST_F(CommandsTest, RequestsWithoutAnAnswer) {
    check({
        {"update-dds-ood 4", 1, withClient({"sdfUpdateDdsOod(ood=4) = -2 (invalid argument)"})},
        {"update-dds-pdcp-timer 4294967295", 0,
         withClient({"sdfUpdateDdsPdcpTimer(pdcp_timer=4294967295) = 0 (success)"})},
        {"prioritize-data second on", 0,
         withClient({"sdfPrioritizeData(slot=second, enable=on) = 0 (success)"})},
        {"prioritize-data -2 off", 1,
         withClient({"sdfPrioritizeData(slot=-2, enable=off) = -2 (invalid argument)"})},
        {"prioritize-dds on then prioritize-dds off", 0,
         withClient({"sdfPrioritizeDds(enable=on) = 0 (success)",
                     "sdfPrioritizeDds(enable=off) = 0 (success)"})},
        {"reg-filter-status --null-callback", 1,
         withClient({"sdfRegFilterStatus() = -2 (invalid argument)"})},
        {"reg-auto-filter-info --null-callback", 1,
         withClient({"sdfRegAutoFilterInfo() = -2 (invalid argument)"})},
    });
}

TEST_F(CommandsTest, PriorityQueues) {
    const std::string answer1 =
        "event queue-answer: key=32 first_value=4294968296 second_value=5153961955200";
    const std::string report1 =
        "event queue-report: key=32 first_value=4294968296 second_value=5153961955200";
    check({
        {"get-priority-queue-report", 0,
         withClient({"sdfGetPriorityQueueReport() = 0 (success)", answer1})},
        {"get-priority-queue-report --null-callback", 1,
         withClient({"sdfGetPriorityQueueReport() = -2 (invalid argument)"})},
        {"reg-priority-queue-reports on 100000 then get-priority-queue-report", 0,
         withClient({"sdfRegPriorityQueueReports(enable=on, report_value=100000) = 0 (success)",
                     "sdfGetPriorityQueueReport() = 0 (success)", report1, answer1})},
        {"reg-priority-queue-reports off 0 --null-callback", 1,
         withClient({"sdfRegPriorityQueueReports(enable=off, report_value=0) = -2 (invalid "
                     "argument)"})},
    });
    // Without the one report that is asked for, those that come on their own.
    const Outcome run = runSdfctl("reg-priority-queue-reports on 1 then wait queue-report");
    EXPECT_EQ(run.status, 0);
    ASSERT_GE(run.lines.size(), 5U);
    EXPECT_EQ(run.lines[3], report1);
}

TEST_F(CommandsTest, FilterFromItsAdditionToItsEnd) {
    const std::string status = std::string("event filter-status: filter=") + kFirst + " status=";
    const std::string filter = std::string("(filter=") + kFirst;
    const std::string add =
        "add-filter --src 192.0.2.1:5000 --dest 198.51.100.7:443 --src-range 10 --dest-range 1 "
        "--protocol udp --app-type best-effort --first 2 --second level-3 --ood enabled "
        "--pdcp-timer 100 --arg6 6 --arg11 11 --arg13 13 --arg16 16 --arg17 17 --arg19 19 "
        "--arg20 20";
    const std::string added =
        "sdfAddFilter(src=192.0.2.1:5000, dest=198.51.100.7:443, src_range=10, dest_range=1, "
        "protocol=udp, app_type=best-effort, first=level-2, second=level-3, ood=enabled, "
        "pdcp_timer=100, arg6=6, arg11=11, arg13=13, arg16=16, arg17=17, arg19=19, arg20=20) = "
        "1804289383 (success)";
    const std::string listed =
        "event filter-listed: filter=1804289383 status=active first=level-5 second=level-6 "
        "ood=disabled pdcp_timer=7";
    const Outcome run =
        runSdfctl("", {"reg-filter-status", add, "update-latency last 5 6 then wait filter-status",
                       "update-ood 1804289383 disabled then wait filter-status",
                       "update-pdcp-timer last 7 then wait filter-status",
                       "update-target-dscp last 46 then wait filter-status",
                       "get-filters then wait filter-listed", "status",
                       "delete-filter last then wait filter-status deleted", "delete-filter last",
                       "get-filters", "delete-all-filters"});
    EXPECT_EQ(run.lines,
              withClient({
                  "sdfRegFilterStatus() = 0 (success)",
                  added,
                  "event filter-added: filter=1804289383 status=active",
                  "sdfUpdateLatencyLvl" + filter + ", first=level-5, second=level-6) = 0 (success)",
                  status + "active",
                  "sdfUpdateOod" + filter + ", ood=disabled) = 0 (success)",
                  status + "active",
                  "sdfUpdatePdcpTimer" + filter + ", pdcp_timer=7) = 0 (success)",
                  status + "active",
                  "sdfUpdateTargetDscp" + filter + ", target_dscp=46) = 0 (success)",
                  status + "active",
                  "sdfGetFilters() = 0 (success)",
                  listed,
                  "client: yes",
                  "service: -7 (service up)",
                  "sdfDeleteFilter" + filter + ") = 0 (success)",
                  status + "deleted",
                  "sdfDeleteFilter" + filter + ") = -2 (invalid argument)",
                  "sdfGetFilters() = 0 (success)",
                  "sdfDeleteAllFilter() = -5 (invalid operation)",
              }));
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.status, 1);
}

TEST_F(CommandsTest, WhatTheServiceAndTheLibraryRefuse) {
    const std::string treated = ", first=level-1, second=level-1, ood=unspecified";
    const std::string flow = "src=[2001:db8::1]:1, dest=2001:db8::2" + treated;
    const std::string add = "add-filter --src [2001:db8::1]:1 --dest 2001:db8::2 --extra 255";
    const Outcome run = runSdfctl(add + " then " + add + " then update-ood 846930886 1");
    EXPECT_EQ(run.lines,
              withClient({
                  "sdfAddFilterV2(" + flow + ", extra=255) = " + kFirst + " (success)",
                  std::string("event filter-added: filter=") + kFirst + " status=active",
                  "sdfAddFilterV2(" + flow + ", extra=255) = " + kSecond + " (success)",
                  std::string("event filter-added: filter=") + kSecond + " status=duplicate",
                  std::string("sdfUpdateOod(filter=") + kSecond +
                      ", ood=unspecified) = -2 (invalid argument)",
              }));
    EXPECT_EQ(run.status, 1);
    check({
        {"add-filter --src 192.0.2.1:65000 --dest 192.0.2.2 --src-range 536", 1,
         withClient({"sdfAddFilter(src=192.0.2.1:65000, dest=192.0.2.2, src_range=536" + treated +
                     ") = -2 (invalid argument)"})},
        {"add-filter --src 192.0.2.1 --dest 192.0.2.2 --dest-family unix", 1,
         withClient({"sdfAddFilter(src=192.0.2.1, dest=family unix" + treated +
                     ") = -2 (invalid argument)"})},
        {"add-filter --src 192.0.2.1 --dest 192.0.2.2 --null-callback", 1,
         withClient({"sdfAddFilter(src=192.0.2.1, dest=192.0.2.2" + treated +
                     ") = -2 (invalid argument)"})},
        {"get-filters --null-callback", 1, withClient({"sdfGetFilters() = -2 (invalid argument)"})},
    });
}

TEST_F(CommandsTest, EventsThatCommandsWaitFor) {
    const std::string event = "event auto-filter: filter=2147483649 ";
    check({
        {"add-filter --src 192.0.2.1 --dest 192.0.2.2 then delete-all-filters then get-filters", 0,
         withClient({"sdfAddFilter(src=192.0.2.1, dest=192.0.2.2, first=level-1, "
                     "second=level-1, ood=unspecified) = 1804289383 (success)",
                     "event filter-added: filter=1804289383 status=active",
                     "sdfDeleteAllFilter() = 0 (success)", "sdfGetFilters() = 0 (success)"})},
        {"reg-auto-filter-info then high-perf-gaming on then wait auto-filter then "
         "high-perf-gaming off then wait auto-filter none",
         0,
         withClient({"sdfRegAutoFilterInfo() = 0 (success)",
                     "sdfEnHighPerfGaming(enable=on) = 0 (success)",
                     event + "src=192.0.2.10:50000 dest=198.51.100.20:27015 protocol=udp "
                             "app_type=highest",
                     "sdfEnHighPerfGaming(enable=off) = 0 (success)",
                     event + "src=none dest=none protocol=none app_type=unspecified"})},
    });
}

TEST_F(CommandsTest, ScriptsHaveCommentsSeveralCommandsALineAndAnEnd) {
    for (const Lines& script : {Lines{"# nothing", "", "create # here", "  sleep 0 then wait 1",
                                      "wait up", "quit", "foo"},
                                Lines{"create", "exit", "foo"}}) {
        const Outcome run = runSdfctl("", script);
        EXPECT_EQ(run.lines, withClient({}));
        EXPECT_EQ(run.errors, Lines{});
        EXPECT_EQ(run.status, 0);
    }
}

TEST_F(CommandsTest, OtherWordsForHelp) {
    const Outcome help = runSdfctl("help sleep");
    EXPECT_EQ(help.lines.at(0), "Wait for milliseconds, printing what comes");
    EXPECT_EQ(runSdfctl("? sleep").lines, help.lines);
    EXPECT_EQ(runSdfctl("?").lines, runSdfctl("help").lines);
}

TEST_F(CommandsTest, ObjectsForPrograms) {
    const Outcome run = runSdfctl(
        "--json set-latency first 1 3 then set-latency 2 1 7 --flag then add-filter --src "
        "192.0.2.1:5 --dest 192.0.2.2 --extra 0 then status");
    std::vector<nlohmann::json> objects;
    for (const std::string& line : run.lines) objects.push_back(nlohmann::json::parse(line));
    const char* const kExpected[] = {
        R"({"call":"createSdfClient","arguments":{},"result":0,"result_name":"success"})",
        R"({"event":"status","status":-7,"status_name":"service up"})",
        R"({"call":"sdfSetLatencyLvl","arguments":{"slot":0,"slot_name":"first","first":1,
            "first_name":"level-1","second":3,"second_name":"level-3","flag":false},
            "result":1804289383,"result_name":"success"})",
        R"({"event":"levels","id":1804289383,"first":1,"first_name":"level-1","second":3,
            "second_name":"level-3"})",
        R"({"call":"sdfSetLatencyLvl","arguments":{"slot":2,"first":1,"first_name":"level-1",
            "second":7,"flag":true},"result":-2,"result_name":"invalid argument"})",
        R"({"call":"sdfAddFilterV2","arguments":{"src":"192.0.2.1:5","dest":"192.0.2.2",
            "src_range":0,"dest_range":0,"protocol":0,"protocol_name":"none","app_type":0,
            "app_type_name":"unspecified","first":1,"first_name":"level-1","second":1,
            "second_name":"level-1","ood":1,"ood_name":"unspecified","pdcp_timer":0,"arg6":0,
            "arg11":0,"arg13":0,"arg16":0,"arg17":0,"arg19":0,"arg20":0,"extra":0},
            "result":846930886,"result_name":"success"})",
        R"({"event":"filter-added","filter":846930886,"status":1,"status_name":"active"})",
        R"x({"status":{"client":true,"up":true,"told":"-7 (service up)"}})x",
        R"({"call":"destroySdfClient","arguments":{},"result":0,"result_name":"success"})",
    };
    ASSERT_EQ(objects.size(), std::size(kExpected));
    for (size_t i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(objects[i], nlohmann::json::parse(kExpected[i])) << i;
    }
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_EQ(run.status, 1);
}

}  // namespace
