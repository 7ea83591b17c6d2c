// SPDX-License-Identifier: Apache-2.0
// The emulator as a program: its command line, what it prints and records, its signals and status.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestDirectory.h"
#include "tests/system/EmulatorClient.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char kName[] = "vendor.orn.data.lumservice.ILumService";

std::string readyLine(pid_t pid) {
    return std::string("ready: ") + kName + " pid=" + std::to_string(pid);
}

Lines linesOf(const std::string& path) {
    std::ifstream file(path);
    Lines lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

class EmulatorProgramTest : public testing::Test {
  protected:
    // Starts it and expects it to end at once, with these lines on standard error beside those of
    // the platform log.
    void expectEnd(int status, const Lines& errors, Lines arguments,
                   const Lines& environment = {}) const {
        arguments.insert(arguments.begin(), mProgram);
        expectEndOf(arguments, status, errors, environment);
    }
    static void expectEndOf(const Lines& command, int status, Lines errors,
                            const Lines& environment = {}) {
        ChildProcess emulator(command, environment);
        EXPECT_EQ(emulator.wait(), status);
        EXPECT_EQ(emulator.lines(), Lines{});
        Lines said = emulator.errorLines();
        const auto isLog = [](const std::string& line) {
            return line.find(" binder: ") != std::string::npos;
        };
        said.erase(std::remove_if(said.begin(), said.end(), isLog), said.end());
        errors[0].insert(0, "lum_sdf_emulator: ");
        EXPECT_EQ(said, errors);
    }

    const std::string mProgram = EmulatorProcess::program();
    const TestDirectory mDirectory;
    const std::string mCannotServe = std::string("cannot serve ") + kName + ": ";
};

TEST_F(EmulatorProgramTest, SaysWhenItIsReadyAndEndsInOrderWhenAsked) {
    for (const int signal : {SIGTERM, SIGINT}) {
        ChildProcess emulator({mProgram});
        ASSERT_TRUE(emulator.waitForLine(readyLine(emulator.pid())));
        // Process lists show the program (under user emulation, the emulator's), not a pool thread.
        const Lines name = linesOf("/proc/" + std::to_string(emulator.pid()) + "/comm");
        ASSERT_EQ(name.size(), 1U);
        EXPECT_NE(name[0].substr(0, 7), "binder:");
        EXPECT_NE(findService(), nullptr);
        emulator.signal(signal);
        EXPECT_EQ(emulator.wait(), 0);
        EXPECT_EQ(emulator.lines(), Lines{readyLine(emulator.pid())});
        EXPECT_EQ(emulator.errorLines(), Lines{});
    }
}

TEST_F(EmulatorProgramTest, ReadyDescriptorGetsTheLineAndIsClosed) {
    // The shell makes the test's pipe descriptor 3 and gives the emulator another standard output.
    ChildProcess emulator({"/bin/sh", "-c", "exec \"$0\" --ready-fd 3 3>&1 >/dev/null", mProgram});
    EXPECT_TRUE(emulator.waitForOutputEnd());
    EXPECT_EQ(emulator.lines(), Lines{readyLine(emulator.pid())});
    EXPECT_NE(findService(), nullptr);
    emulator.signal(SIGTERM);
    EXPECT_EQ(emulator.wait(), 0);
}

TEST_F(EmulatorProgramTest, WhatKeepsItFromServingIsReported) {
    {
        EmulatorProcess first;
        expectEnd(1, {mCannotServe + "another process serves it"}, {});
        EXPECT_EQ(first.terminate(), 0);
    }
    expectEnd(1, {mCannotServe + "the socket directory cannot be used"}, {},
              {"LUM_BINDER_DIR=" + mDirectory.path() + "/none/none"});
    expectEnd(1, {mCannotServe + "the socket directory's path is too long"}, {},
              {"LUM_BINDER_DIR=" + mDirectory.path() + "/" + std::string(100, 'x')});
    ASSERT_EQ(chmod(mDirectory.path().c_str(), 0755), 0);
    expectEnd(1, {mCannotServe + "the socket directory is not safe to use"}, {});
}

// As one that is killed, of which a service manager has not heard yet.
TEST_F(EmulatorProgramTest, NameOfAServiceThatEndsWhenItIsCalledIsFree) {
    const std::string socketName = "0123456789abcdef-1-1.socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (mDirectory.path() + "/" + socketName).copy(address.sun_path, sizeof address.sun_path - 1);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listening, 1), 0);
    ASSERT_EQ(symlink(socketName.c_str(), (mDirectory.path() + "/" + kName + ".service").c_str()),
              0);
    ChildProcess emulator({mProgram});
    pollfd called{listening, POLLIN, 0};
    ASSERT_EQ(
        poll(&called, 1, static_cast<int>(std::chrono::milliseconds(ChildProcess::kLimit).count())),
        1);
    EXPECT_EQ(close(accept(listening, nullptr, nullptr)), 0);
    EXPECT_EQ(close(listening), 0);
    EXPECT_TRUE(emulator.waitForLine(readyLine(emulator.pid())));
}

TEST_F(EmulatorProgramTest, NameOfAServiceThatHangsIsTaken) {
    const EmulatorProcess first;
    first.process().signal(SIGSTOP);
    expectEnd(1, {mCannotServe + "another process serves it"}, {});
}

TEST_F(EmulatorProgramTest, FilesAndDescriptorsThatCannotBeUsedAreReported) {
    const std::string none = mDirectory.path() + "/none/record";
    expectEnd(1, {"cannot record to " + none + ": No such file or directory"}, {"--record", none});
    const std::string pipe = mDirectory.path() + "/record";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);  // without a reader
    expectEnd(1, {"cannot record to " + pipe + ": No such device or address"}, {"--record", pipe});
    // The emulator's own descriptors would take the number.
    expectEndOf({"/bin/sh", "-c", "exec \"$0\" --ready-fd 3 3>&-", mProgram}, 1,
                {"cannot write to descriptor 3: Bad file descriptor"});
    for (const char* const arguments : {" --help", ""}) {
        expectEndOf(
            {"/bin/sh", "-c", std::string("exec \"$0\"") + arguments + " >/dev/full", mProgram}, 1,
            {"cannot print: No space left on device"});
    }
}

TEST_F(EmulatorProgramTest, WrongCommandLineIsReported) {
    const auto expectWrong = [&](const Lines& arguments, const std::string& error) {
        expectEnd(2, {error, "Run with --help for more information."}, arguments);
    };
    expectWrong({"--colour"}, "The following argument was not expected: --colour");
    expectWrong({"--record", ""}, "--record: A file's name is empty");
    const std::vector<std::pair<std::string, std::string>> options{
        {"--ready-fd", "2147483647"},
        {"--deny-uid", "4294967295"},
        {"--filter-limit", "1000000"},
        {"--activation-delay", "86400000"},
        {"--inactivity-timeout", "86400000"}};
    for (const auto& [option, most] : options) {
        expectWrong({option, "-1"}, option + ": Value -1 not in range 0 to " + most);
    }
}

TEST_F(EmulatorProgramTest, WrongRulesAreReportedWithTheirPlace) {
    expectEnd(2, {"--rule 2:14: \"x\": expected a number from 0 to 86400000"},
              {"--rule", "on any: refuse", "--rule", "on any: late x"});
    const std::string path = mDirectory.path() + "/scenario";
    std::ofstream(path) << "# first\non any: refuse\non any: die\n";
    expectEnd(2, {path + ":3:12: at its end: expected \"before\" or \"after\""},
              {"--scenario", path});
    const std::string none = mDirectory.path() + "/none";
    expectEnd(2, {none + ": No such file or directory"}, {"--scenario", none});
    expectEnd(2, {mDirectory.path() + ": Is a directory"}, {"--scenario", mDirectory.path()});
    expectEnd(2, {"/dev/zero:1: longer than 65536 bytes"}, {"--scenario", "/dev/zero"});
}

TEST_F(EmulatorProgramTest, HelpExplainsEverythingAndVersionIsThatOfTheHeader) {
    ChildProcess emulator({mProgram, "--help"});
    EXPECT_EQ(emulator.wait(), 0);
    std::string text;
    for (const std::string& line : emulator.lines()) text += line + "\n";
    for (const char* const word : {"--scenario", "SIGTERM", "SIGUSR1", "SIGUSR2", "LUM_BINDER_DIR",
                                   "LUM_DEBUG_LOG", "ready: ", "stats: ", "notice: ", "state: ",
                                   "Exit status", "mismatch [EVENT]", "garbage random N [SEED]",
                                   "update_target_dscp", "AUTO_FILTER_INFO_IND", "INVALID_SLOT"}) {
        EXPECT_NE(text.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(emulator.errorLines(), Lines{});
    ChildProcess version({mProgram, "--version"});
    EXPECT_EQ(version.wait(), 0);
    EXPECT_EQ(version.lines(), Lines{"lum_sdf_emulator (lum SDF) " LUM_SDF_SDK_VERSION});
}

// Sends a few messages of every sort, and waits until they are dealt with.
void talk() {
    EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable).isOk());
    client.inbox().waitFor(1);
    ASSERT_TRUE(client.send(kSetLevels).isOk());
    client.inbox().waitFor(2);
    EXPECT_FALSE(client.send("FF 0A").isOk());
    ASSERT_TRUE(client.send("08 63").isOk());
    ASSERT_TRUE(client.send(kDisable).isOk());
}

TEST_F(EmulatorProgramTest, StatsThatCannotBeCountedAreReportedAndItServesOn) {
    EmulatorProcess emulator;
    rlimit before{};
    ASSERT_EQ(prlimit(emulator.pid(), RLIMIT_NOFILE, nullptr, &before), 0);
    // Below its own descriptors; poll() wants the limit to be at least what it is given.
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(prlimit(emulator.pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    emulator.process().signal(SIGUSR1);
    EXPECT_TRUE(
        emulator.process().waitForLine("notice: no stats: /proc/self/fd: Too many open files"));
    ASSERT_EQ(prlimit(emulator.pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_EQ(emulator.stats().clients, 0U);
    EXPECT_EQ(emulator.terminate(), 0);
}

TEST_F(EmulatorProgramTest, PrintsEachMessageAndClient) {
    EmulatorProcess emulator({"--print"});
    const std::string ready = readyLine(emulator.pid());
    talk();
    EXPECT_EQ(emulator.terminate(), 0);
    const std::string pid = "pid=" + std::to_string(getpid());
    EXPECT_EQ(
        emulator.process().lines(),
        (Lines{
            ready,
            "registered " + pid + " uid=" + std::to_string(getuid()),
            "received " + pid + " type=5 ENABLE: data { enable_msg { enable: true } }",
            "sent " + pid + " type=5 STATUS_IND: data { status_msg { status: SERVICE_UP } }",
            "received " + pid +
                " type=5 SET_LATENCY_LEVEL: event_id: SET_LATENCY_LEVEL unique_id: 7 data { "
                "set_latency_level { slot_id: SLOT_ID_FIRST first_level: L2 second_level: L4 } }",
            "sent " + pid +
                " type=5 EFFECTIVE_LEVELS_CB: event_id: EFFECTIVE_LEVELS_CB unique_id: 7 data { "
                "effective_levels_cb { first_level: L2 second_level: L4 } }",
            "received " + pid + " type=5 unreadable: ff 0a",
            "notice: refused a message, " + pid + ": 2 bytes that are no ServiceMsg",
            "received " + pid + " type=5 event 99: event_id: 99",
            "notice: ignored a request, " + pid + ": event 99 is not known here",
            "received " + pid + " type=5 ENABLE: data { enable_msg { } }",
            "left " + pid,
        }));
}

TEST_F(EmulatorProgramTest, RecordsEachMessageAndPrintsNoticesOnly) {
    const std::string path = mDirectory.path() + "/record.jsonl";
    std::ofstream(path) << "what was there before\n";
    EmulatorProcess emulator({"--record", path});
    const std::string ready = readyLine(emulator.pid());
    talk();
    EXPECT_EQ(emulator.terminate(), 0);
    const std::string pid = "pid=" + std::to_string(getpid());
    // Without --print.
    EXPECT_EQ(
        emulator.process().lines(),
        (Lines{ready, "notice: refused a message, " + pid + ": 2 bytes that are no ServiceMsg",
               "notice: ignored a request, " + pid + ": event 99 is not known here"}));
    Lines lines = linesOf(path);
    const std::string time =
        R"(^\{"time":"[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\.[0-9]{6}Z",)";
    for (std::string& line : lines) line = replaceAll(line, time, "{");
    const std::string who =
        R"(,"pid":)" + std::to_string(getpid()) + R"(,"uid":)" + std::to_string(getuid());
    const std::string received = R"({"direction":"received")" + who + R"(,"type":5,)";
    const std::string sent = R"({"direction":"sent")" + who + R"(,"type":5,)";
    EXPECT_EQ(
        lines,
        (Lines{
            "what was there before",
            received + R"("hex":"1a040a020801","event":"ENABLE",)" +
                R"("text":"data { enable_msg { enable: true } }"})",
            sent + R"("hex":"1a040a020806","event":"STATUS_IND",)" +
                R"("text":"data { status_msg { status: SERVICE_UP } }"})",
            received + R"("hex":"080110071a081a06080110011803","event":"SET_LATENCY_LEVEL",)" +
                R"("text":"event_id: SET_LATENCY_LEVEL unique_id: 7 data { set_latency_level { )" +
                R"(slot_id: SLOT_ID_FIRST first_level: L2 second_level: L4 } }"})",
            sent + R"("hex":"080110071a06120408011003","event":"EFFECTIVE_LEVELS_CB",)" +
                R"("text":"event_id: EFFECTIVE_LEVELS_CB unique_id: 7 data { )" +
                R"(effective_levels_cb { first_level: L2 second_level: L4 } }"})",
            received + R"("hex":"ff0a","event":null,"text":null})",
            received + R"("hex":"0863","event":"event 99","text":"event_id: 99"})",
            received + R"("hex":"1a020a00","event":"ENABLE","text":"data { enable_msg { } }"})",
        }));
}

TEST_F(EmulatorProgramTest, RecordIsNotTakenForAClosedOutput) {
    const std::string path = mDirectory.path() + "/record";
    ChildProcess emulator(
        {"/bin/sh", "-c", "exec \"$0\" --until-eof --record \"$1\" <&- >&-", mProgram, path});
    EXPECT_EQ(emulator.wait(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(path));
}

TEST_F(EmulatorProgramTest, QuotesInTextAreEscapedInTheRecord) {
    const std::string path = mDirectory.path() + "/record.jsonl";
    EmulatorProcess emulator({"--record", path});
    const EmulatorClient client;
    // ADD_FILTER with the source address "\n, which stands for nothing but itself.
    ASSERT_TRUE(client.send("08 04 1A 06 32 04 0A 02 22 0A").isOk());
    EXPECT_EQ(emulator.terminate(), 0);
    const Lines lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);  // it is answered
    EXPECT_NE(
        lines[0].find(R"("event":"ADD_FILTER","text":"event_id: ADD_FILTER data { add_filter )"
                      R"({ src_ip: \"\\\"\\n\" } }"})"),
        std::string::npos)
        << lines[0];
}

TEST_F(EmulatorProgramTest, RecordThatCannotBeWrittenIsReportedAndSurvived) {
    EmulatorProcess emulator({"--record", "/dev/full"});
    const EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable).isOk());
    EXPECT_EQ(client.inbox().waitFor(1).size(), 1U);
    EXPECT_TRUE(
        emulator.process().waitForLine("notice: cannot record: No space left on device", 2));
    EXPECT_EQ(emulator.terminate(), 1);
    EXPECT_EQ(emulator.process().errorLines(),
              Lines{"lum_sdf_emulator: cannot record: No space left on device"});
}

// A file may have 512 bytes; the first line and those of one client are more.
TEST_F(EmulatorProgramTest, LinesThatCannotBePrintedAreReportedAndSurvived) {
    ChildProcess emulator({"/bin/sh", "-c",
                           "trap '' XFSZ; ulimit -f 1; "
                           "exec \"$0\" --print --until-eof --ready-fd 3 3>&1 >\"$1\"",
                           mProgram, mDirectory.path() + "/output"});
    ASSERT_TRUE(emulator.waitForLine(readyLine(emulator.pid())));
    const EmulatorClient client;
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(client.send(kSetLevels).isOk());
    EXPECT_EQ(client.inbox().waitFor(10).size(), 10U);
    emulator.closeInput();
    EXPECT_EQ(emulator.wait(), 1);
    EXPECT_EQ(emulator.errorLines(), Lines{"lum_sdf_emulator: cannot print: File too large"});
}

TEST_F(EmulatorProgramTest, ServesOnWhenNobodyReadsWhatItPrints) {
    // The reader of its standard output closes that before it passes the line on.
    ChildProcess emulator(
        {"/bin/sh", "-c",
         "\"$0\" --print --until-eof | { read -r line; exec <&-; echo \"$line\"; }", mProgram});
    ASSERT_TRUE(
        emulator.waitFor([](const std::string& line) { return line.rfind("ready: ", 0) == 0; }));
    const EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable).isOk());
    ASSERT_TRUE(client.send(kSetLevels).isOk());
    EXPECT_EQ(client.inbox().waitFor(2).size(), 2U);
    emulator.closeInput();
    EXPECT_EQ(emulator.wait(), 0);
}

// Reads what a pipe holds until a line begins with `start`, 30 s at most; returns whether one did.
bool readUntilLine(int pipe, const std::string& start) {
    std::string text = "\n";
    char some[4096];
    pollfd waited{pipe, POLLIN, 0};
    while (text.find("\n" + start) == std::string::npos) {
        if (poll(&waited, 1, 30000) <= 0) return false;
        const ssize_t length = read(pipe, some, sizeof some);
        if (length > 0) text.append(some, static_cast<size_t>(length));
    }
    return true;
}

TEST_F(EmulatorProgramTest, ServesOnWhenItsReaderHasStopped) {
    const std::string path = mDirectory.path() + "/output";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ChildProcess emulator(
        {"/bin/sh", "-c", "exec \"$0\" --print --ready-fd 3 3>&1 >\"$1\"", mProgram, path});
    ASSERT_TRUE(emulator.waitForLine(readyLine(emulator.pid())));
    const EmulatorClient client;
    // More than a pipe holds.
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(client.send(kSetLevels).isOk());
    EXPECT_EQ(client.inbox().waitFor(1000).size(), 1000U);
    emulator.signal(SIGUSR1);
    emulator.signal(SIGUSR2);
    // There is space again before the next line, and the notice comes before that.
    std::vector<char> held(1 << 20);
    ASSERT_GT(read(reader, held.data(), held.size()), 0);
    ASSERT_TRUE(client.send(kEnable).isOk());
    EXPECT_TRUE(readUntilLine(reader, "notice: lines that could not be printed: "));
    emulator.signal(SIGTERM);
    EXPECT_EQ(emulator.wait(), 0);
    close(reader);
}

// Printing the flood at this speed would take many minutes.
TEST_F(EmulatorProgramTest, EndsWhateverItIsAt) {
    ChildProcess emulator(
        {"/bin/sh", "-c",
         "exec 3>&1; { \"$0\" --print --rule 'on enable: flood 100000'; echo status $? >&3; } "
         "| while read -r line; do echo \"$line\"; "
         "dd bs=4096 count=1 >/dev/null 2>&1; read -r rest; sleep 0.2; done",
         mProgram});
    pid_t pid = 0;
    ASSERT_TRUE(emulator.waitFor([&](const std::string& line) {
        return sscanf(line.c_str(), "ready: %*s pid=%d", &pid) == 1;
    }));
    const EmulatorClient client;
    std::thread asking([&] { EXPECT_FALSE(client.send(kEnable).isOk()); });
    EXPECT_TRUE(emulator.waitFor(
        [](const std::string& line) { return line.find(" STATUS_IND: ") != std::string::npos; }));
    EXPECT_EQ(kill(pid, SIGUSR1), 0);
    EXPECT_EQ(kill(pid, SIGUSR2), 0);
    EXPECT_EQ(kill(pid, SIGTERM), 0);
    EXPECT_TRUE(emulator.waitForLine("status 0"));
    asking.join();
}

TEST_F(EmulatorProgramTest, DebugLogShowsEveryLineOfThePlatformLog) {
    ASSERT_EQ(chmod(mDirectory.path().c_str(), 0755), 0);
    ChildProcess emulator({mProgram, "--debug-log"});
    EXPECT_EQ(emulator.wait(), 1);
    const std::string pid = std::to_string(emulator.pid());
    const std::string stamp =
        "^[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}\\.[0-9]{6} +" + pid + " +" + pid + " ";
    ASSERT_FALSE(emulator.errorLines().empty());
    EXPECT_EQ(
        replaceAll(emulator.errorLines().front(), stamp, ""),
        "E binder: the socket directory " + mDirectory.path() + " is open to others (mode 755)");
}

}  // namespace
