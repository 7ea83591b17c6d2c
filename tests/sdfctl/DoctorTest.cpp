// SPDX-License-Identifier: Apache-2.0
// "sdfctl doctor" in each situation that it tells apart.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "tests/sdfctl/OrdinaryUser.h"
#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Driver.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kRefusedAdvice[] = "        Its log should say why; ";
constexpr char kDiedAdvice[] = "        It died of this call: look into its log, start it again.";
constexpr char kStuckAdvice[] = "        It runs, but does not return from calls: ";
constexpr char kNotUpAdvice[] = "        Until it does, the library refuses all requests with -8. ";
constexpr char kLibraryAdvice[] = "        The service itself works, as seen above: ";
constexpr char kDead[] = "Status(-129, EX_TRANSACTION_FAILED): 'STATUS_DEAD_OBJECT: '";
constexpr char kRefused[] = "Status(-5, EX_ILLEGAL_STATE): 'refused by a rule'";

// A service that is none, or not what it should be, until this object goes.
class OddService {
  public:
    explicit OddService(Lines way) {
        way.insert(way.begin(), LUM_ODD_SERVICE_PROGRAM);
        mProcess = std::make_unique<ChildProcess>(way);
        EXPECT_TRUE(mProcess->waitForLine("ready"));
    }

  private:
    std::unique_ptr<ChildProcess> mProcess;
};

class DoctorTest : public testing::Test {
  protected:
    // The lines of the steps before the named one, as they are when all is well.
    Lines linesBefore(const std::string& step) const {
        Lines lines;
        for (const std::string& line : mAll) {
            if (line.rfind("ok      " + step + ":", 0) == 0) return lines;
            lines.push_back(line);
        }
        return lines;
    }

    // Runs it and expects it to fail at that step, and the advice to begin like that.
    void expectFailure(const std::string& step, int status, const std::string& trouble,
                       const std::string& advice, const std::string& arguments = "doctor") const {
        const Outcome run = runSdfctl(arguments);
        EXPECT_EQ(run.status, status);
        Lines expected = linesBefore(step);
        std::string name = step + ":";
        name.resize(11, ' ');
        expected.push_back("failed  " + name + trouble);
        ASSERT_EQ(run.lines.size(), expected.size() + 1);  // the advice comes last
        for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(run.lines[i], expected[i]);
        EXPECT_EQ(run.lines.back().substr(0, advice.size()), advice);
    }

    // Runs it with that directory and expects it to see what is wrong with it.
    static void expectWrongDirectory(const std::string& path, const std::string& trouble,
                                     const std::string& advice) {
        const Outcome run = runSdfctl("doctor", {}, {"LUM_BINDER_DIR=" + path});
        EXPECT_EQ(run.status, 10);
        ASSERT_EQ(run.lines.size(), 2U);
        EXPECT_EQ(run.lines[0], "failed  directory: " + path + ": " + trouble);
        EXPECT_EQ(run.lines[1].substr(0, advice.size()), advice);
    }

    const TestDirectory mDirectory;
    const Lines mAll{
        overDriver() ? "ok      driver:    " + std::string(getenv("LUM_BINDER")) + " can be used"
                     : "ok      directory: " + mDirectory.path() + " can be used",
        "ok      service:   somebody serves the name vendor.orn.data.lumservice.ILumService",
        "ok      callback:  the service accepts a callback object",
        "ok      send:      the service accepts the request to serve this client",
        "ok      up:        the service says that it is up",
        "ok      answer:    the service answers a request",
        "ok      library:   the library learns that the service is up"};
};

TEST_F(DoctorTest, EverythingWorks) {
    EmulatorProcess emulator;
    const Outcome run = runSdfctl("doctor");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.lines, mAll);
    EXPECT_EQ(run.errors, Lines{});
    EXPECT_TRUE(emulator.waitForClients(0));
}

TEST_F(DoctorTest, ObjectsForPrograms) {
    const EmulatorProcess emulator;
    for (const char* const arguments : {"doctor --json", "--json doctor"}) {
        const Outcome run = runSdfctl(arguments);
        EXPECT_EQ(run.status, 0);
        ASSERT_EQ(run.lines.size(), mAll.size());
        for (size_t i = 0; i < run.lines.size(); ++i) {
            const nlohmann::json object = nlohmann::json::parse(run.lines[i]);
            EXPECT_EQ(object.size(), 4U);
            EXPECT_EQ(object["ok"], true);
            EXPECT_EQ(object["advice"], nullptr);
            std::string name = object["step"].get<std::string>() + ":";
            name.resize(11, ' ');
            EXPECT_EQ("ok      " + name + object["detail"].get<std::string>(), mAll[i]);
        }
    }
}

TEST_F(DoctorTest, ObjectForProgramsOfADirectory) {
    const Outcome failed = runSdfctl("doctor --json", {}, {"LUM_BINDER_DIR=/dev/null"});
    EXPECT_EQ(failed.status, 10);
    ASSERT_EQ(failed.lines.size(), 1U);
    const nlohmann::json object = nlohmann::json::parse(failed.lines[0]);
    EXPECT_EQ(object["ok"], false);
    EXPECT_EQ(object["step"], "directory");
    EXPECT_EQ(object["detail"], "/dev/null: it is not a directory");
    EXPECT_TRUE(object["advice"].is_string());
}

TEST_F(DoctorTest, DirectoryThatIsOpenToOthers) {
    ASSERT_EQ(chmod(mDirectory.path().c_str(), 0750), 0);
    expectFailure("directory", 10, mDirectory.path() + ": it is open to others",
                  "        Make it this user's alone (chmod 700), ");
}

TEST_F(DoctorTest, NobodyServesTheName) {
    expectFailure("service", 11, "nobody serves the name vendor.orn.data.lumservice.ILumService",
                  "        Start it: ");
}

TEST_F(DoctorTest, DirectoryThatDoesNotExistYetOrHasNoParent) {
    const std::string parent = mDirectory.path() + "/none";
    const Outcome run = runSdfctl("doctor", {}, {"LUM_BINDER_DIR=" + parent});
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.lines[0], "ok      directory: " + parent + " can be used");
    for (const char* const path : {"/binder", "/binder//"}) {
        expectWrongDirectory(
            parent + path,
            "neither it nor its parent " + parent + " is there (No such file or directory)",
            "        Make it (mkdir -p), or set LUM_BINDER_DIR ");
    }
}

TEST_F(DoctorTest, DirectoryThatThisUserMayNotWriteTo) {
    if (!canBeOrdinaryUser()) GTEST_SKIP() << "root cannot do without its rights here";
    ASSERT_EQ(chmod(mDirectory.path().c_str(), 0500), 0);
    const std::pair<std::string, std::string> kTroubles[] = {
        {mDirectory.path(), "no socket can be made in it (Permission denied)"},
        {mDirectory.path() + "/binder",
         "it does not exist, and this user cannot make it (Permission denied)"}};
    for (const auto& [path, trouble] : kTroubles) {
        ChildProcess doctor(asOrdinaryUser(sdfctlCommand("doctor")), {"LUM_BINDER_DIR=" + path});
        EXPECT_EQ(doctor.wait(), 10);
        EXPECT_EQ(doctor.lines().at(0), "failed  directory: " + path + ": " + trouble);
    }
}

// 107 bytes with "/vendor.orn.data.lumservice.ILumService.socket" is what a socket's address holds.
TEST_F(DoctorTest, DirectoryWhoseNameIsTooLong) {
    const std::string longest =
        mDirectory.path() + "/" + std::string(64 - mDirectory.path().size() - 1, 'x');
    setenv("LUM_BINDER_DIR", longest.c_str(), 1);
    const EmulatorProcess emulator;
    const Outcome run = runSdfctl("doctor");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.lines[0], "ok      directory: " + longest + " can be used");
    expectWrongDirectory(longest + "y", "its path has 65 bytes, and may have 64 at most",
                         "        Set LUM_BINDER_DIR to a shorter path, ");
    ChildProcess refused({EmulatorProcess::program()}, {"LUM_BINDER_DIR=" + longest + "y"});
    EXPECT_EQ(refused.wait(), 1);
}

TEST_F(DoctorTest, NameServedByAnotherInterface) {
    const OddService service({"other"});
    expectFailure(
        "service", 11, "what has the service's name is of another interface",
        "        Another program has taken the service's name: end it, and start the service. "
        "Where they meet in a directory, the name is a link in it, "
        "vendor.orn.data.lumservice.ILumService.service, to that program's socket ");
    EXPECT_TRUE(overDriver() ||
                std::filesystem::is_socket(mDirectory.path() +
                                           "/vendor.orn.data.lumservice.ILumService.service"));
}

TEST_F(DoctorTest, ServicesThatFailEveryCallOrHangWhenTheLibraryLeaves) {
    {
        const OddService service({"fails"});
        expectFailure("callback", 12,
                      "Status(-129, EX_TRANSACTION_FAILED): 'STATUS_UNKNOWN_ERROR: '",
                      "        It was reached, but does not carry the call out: ");
    }
    const OddService service({"hangs", "5"});
    expectFailure("library", 16, "destroySdfClient() does not return", kStuckAdvice);
}

TEST_F(DoctorTest, ServiceThatHasStopped) {
    const EmulatorProcess emulator;
    ASSERT_TRUE(stopChild(emulator.pid()));
    expectFailure("service", 11, "the call does not return", kStuckAdvice, "--timeout 0.3 doctor");
    expectFailure("service", 11, "the call does not return", kStuckAdvice, "doctor --timeout 0.3");
}

TEST_F(DoctorTest, ServicesThatMisbehave) {
    const struct {
        const char* rule;
        const char* step;
        int status;
        const char* trouble;
        const char* advice;
    } kCases[] = {
        {"on register: refuse", "callback", 12, kRefused, kRefusedAdvice},
        {"on register: die before", "callback", 12, kDead, kDiedAdvice},
        {"on any: refuse", "send", 13, kRefused, kRefusedAdvice},
        {"on enable: die after", "send", 13, kDead, kDiedAdvice},
        {"on enable: never", "up", 14, "it says nothing", kNotUpAdvice},
        {"on enable: never, status SERVICE_DOWN", "up", 14, "its status is SERVICE_DOWN",
         kNotUpAdvice},
        {"on enable: status SERVICE_DOWN", "answer", 15, "it then said SERVICE_DOWN",
         "        It is there, but no longer serves this client: "},
        {"on get_filters: refuse", "answer", 15, kRefused, kRefusedAdvice},
        {"on get_filters: never", "answer", 15, "it says nothing",
         "        It takes requests and leaves them without an answer: "},
        {"on enable nth 2: never, status NOT_SUPPORTED", "library", 16,
         "it reports status=-4 (not supported)", kLibraryAdvice},
        {"on enable nth 2: never", "library", 16, "it reports nothing", kLibraryAdvice},
    };
    for (const auto& aCase : kCases) {
        SCOPED_TRACE(aCase.rule);
        const EmulatorProcess emulator({"--rule", aCase.rule});
        expectFailure(aCase.step, aCase.status, aCase.trouble, aCase.advice, "--timeout 2 doctor");
    }
}

TEST_F(DoctorTest, HelpListsTheSteps) {
    const Outcome run = runSdfctl("doctor --help");
    EXPECT_EQ(run.status, 0);
    std::string text;
    for (const std::string& line : run.lines) text += line + "\n";
    for (const char* const word :
         {"  directory ", "  driver ", "  service ", "  callback ", "  send ", "  up ", "  answer ",
          "  library ", "10 directory or driver", "16 library"}) {
        EXPECT_NE(text.find(word), std::string::npos) << word;
    }
}

}  // namespace
