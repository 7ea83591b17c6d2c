// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/PeerTest.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Driver.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Pattern.h"
#include "tools/emulator/ProcessStats.h"

namespace {

constexpr char kOwn[] = "lum.test.own";

size_t filesIn(const std::string& directory) {
    const std::filesystem::directory_iterator files(directory);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

// Whether nobody serves it any more. The driver's service manager may be the last to hear of a
// death.
bool isFree(const std::string& name) {
    const auto nobodyServes = [&name] {
        return ndk::SpAIBinder(AServiceManager_checkService(name.c_str())).get() == nullptr;
    };
    return overDriver() ? eventually(nobodyServes) : nobodyServes();
}

int32_t ask(const ndk::SpAIBinder& peer, transaction_code_t code, const Fill& fill = nullptr) {
    int32_t answer = -1;
    EXPECT_EQ(callPeer(peer, code, fill, into(&answer)), STATUS_OK);
    return answer;
}

class RegistryTest : public testing::Test {
  protected:
    binder_exception_t serve(const std::string& name = kName) {
        return AServiceManager_addService(mObject.get(), name.c_str());
    }
    // Serves, under kOwn, an object that replies 0 after `first`.
    void serveOwn(const std::function<void()>& first = [] {}) {
        mOwn = makePeerObject([first](transaction_code_t, const AParcel*, AParcel* out) {
            first();
            return AParcel_writeInt32(out, 0);
        });
        ASSERT_EQ(AServiceManager_addService(mOwn.get(), kOwn), EX_NONE);
        ABinderProcess_startThreadPool();
    }
    // Each name served has its link and its socket; nothing that was replaced stays behind.
    void expectFilesOf(size_t names) const {
        EXPECT_EQ(filesIn(mDirectory.path()), overDriver() ? 0 : 2 * names);
    }
    static void useDirectory(const std::string& path) { setenv("LUM_BINDER_DIR", path.c_str(), 1); }

    // Nothing is served or found there; `said` says why.
    void expectDirectoryRefused(const std::string& path, binder_exception_t refusal,
                                const std::string& said) {
        useDirectory(path);
        const LogCapture log;
        EXPECT_EQ(serve(), refusal);
        EXPECT_EQ(log.lines(), std::vector<LogLine>{logE("binder: the socket directory" + said)});
        EXPECT_EQ(find(kName).get(), nullptr);
    }

    const TestDirectory mDirectory;
    const ndk::SpAIBinder mObject = makePeerObject(
        [](transaction_code_t, const AParcel*, AParcel*) { return binder_status_t{STATUS_OK}; });
    ndk::SpAIBinder mOwn;
};

TEST_F(RegistryTest, NameThatNobodyServesIsNullAtOnce) {
    const LogCapture log;
    EXPECT_EQ(AServiceManager_waitForService(kName), nullptr);
    EXPECT_EQ(AServiceManager_checkService(kName), nullptr);
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    const std::string none = mDirectory.path() + "/none";
    useDirectory(none);
    EXPECT_EQ(AServiceManager_waitForService(kName), nullptr);
    EXPECT_FALSE(std::filesystem::exists(none));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RegistryTest, OwnServiceIsTheObjectItselfUntilAnotherReplacesIt) {
    EXPECT_EQ(serve(), EX_NONE);
    EXPECT_EQ(find(kName), mObject);
    EXPECT_EQ(AIBinder_debugGetRefCount(mObject.get()), 2);
    const ndk::SpAIBinder other = makePeerObject(nullptr);
    EXPECT_EQ(AServiceManager_addService(other.get(), kName), EX_NONE);
    EXPECT_EQ(find(kName), other);
    // Over the driver it hears of that with a later command.
    ABinderProcess_startThreadPool();
    EXPECT_TRUE(eventually([&] { return AIBinder_debugGetRefCount(mObject.get()) == 1; }));
}

TEST_F(RegistryTest, NamesOfOtherCharactersOrLengthsAreRefusedAndFindNothing) {
    const std::vector<std::string> names = {
        "",     "a b", "a%2fb", "a:b",      "a@b",   "a+b",
        "a\nb", "\\a", "~a",    "\xc3\xa9", "a\x7f", std::string(128, 'x'),
    };
    for (const std::string& name : names) {
        LogCapture log;
        EXPECT_EQ(serve(name), EX_ILLEGAL_ARGUMENT);
        EXPECT_EQ(
            log.lines(),
            (std::vector<LogLine>{logE("binder: \"" + name + "\" cannot be a service's name")}));
        EXPECT_EQ(find(name).get(), nullptr) << name;
        EXPECT_EQ(log.lines().size(), 1U) << name;
    }
    EXPECT_EQ(AServiceManager_addService(mObject.get(), nullptr), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(AServiceManager_addService(nullptr, kName), EX_ILLEGAL_ARGUMENT);
    EXPECT_TRUE(std::filesystem::is_empty(mDirectory.path()));
}

TEST_F(RegistryTest, ObjectOfAnotherProcessCannotBeServed) {
    const PeerProcess peer(kName);
    const LogCapture log;
    EXPECT_EQ(AServiceManager_addService(find(kName).get(), kOwn), EX_ILLEGAL_ARGUMENT);
    EXPECT_TRUE(
        log.has(logE("binder: lum.test.own cannot be served with an object of another process")));
}

TEST_F(RegistryTest, NamesAreKeptApartAndInsideTheDirectory) {
    const std::vector<std::string> names = {
        "a",  "A",      "a/b",      "a_b",           "../a", ".",
        "..", "a.lock", "a.socket", "a.lock.socket", "-/9Z", std::string(127, 'x'),
    };
    std::vector<ndk::SpAIBinder> objects;
    for (const std::string& name : names) {
        objects.push_back(makePeerObject(nullptr));
        EXPECT_EQ(AServiceManager_addService(objects.back().get(), name.c_str()), EX_NONE) << name;
    }
    for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(find(names[i]), objects[i]) << names[i];
    EXPECT_TRUE(std::filesystem::exists(mDirectory.path() + "/a%b.service"));
    EXPECT_TRUE(std::filesystem::exists(mDirectory.path() + "/..%a.service"));
    expectFilesOf(names.size());
}

TEST_F(RegistryTest, DirectoryTooLongForItsSocketsIsRefused) {
    const std::string longest =
        mDirectory.path() + "/" + std::string(64 - mDirectory.path().size() - 1, 'x');
    useDirectory(longest);
    EXPECT_EQ(serve(), EX_NONE);
    EXPECT_EQ(find(kName), mObject);
    expectDirectoryRefused(longest + "x", EX_ILLEGAL_ARGUMENT,
                           "'s path may have 64 bytes at most, not 65: " + longest + "x");
}

TEST_F(RegistryTest, DirectoryIsMadeForItsUserAlone) {
    const std::string directory = mDirectory.path() + "/made";
    useDirectory(directory);
    umask(0);
    EXPECT_EQ(serve(), EX_NONE);
    struct stat about {};
    ASSERT_EQ(stat(directory.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777U, 0700U);
}

TEST_F(RegistryTest, DirectoryOfTheRunningSessionIsUsedWithoutOne) {
    unsetenv("LUM_BINDER_DIR");
    setenv("XDG_RUNTIME_DIR", mDirectory.path().c_str(), 1);
    EXPECT_EQ(serve(), EX_NONE);
    EXPECT_TRUE(std::filesystem::exists(mDirectory.path() + "/lum-binder/lum.test.peer.service"));
}

TEST_F(RegistryTest, DirectoryOpenToOthersIsRefused) {
    const std::string& path = mDirectory.path();
    ASSERT_EQ(chmod(path.c_str(), 0710), 0);
    expectDirectoryRefused(path, EX_SECURITY, " " + path + " is open to others (mode 710)");
}

TEST_F(RegistryTest, DirectoryOfAnotherUserIsRefused) {
    const std::string& path = mDirectory.path();
    const uid_t other = geteuid() + 1;
    if (chown(path.c_str(), other, static_cast<gid_t>(-1)) != 0) {
        GTEST_SKIP() << "only root can give a directory away";
    }
    expectDirectoryRefused(path, EX_SECURITY,
                           " " + path + " belongs to user " + std::to_string(other) + ", not to " +
                               std::to_string(geteuid()));
}

TEST_F(RegistryTest, DirectoryThatIsNoneIsRefused) {
    const std::string file = mDirectory.path() + "/file";
    std::ofstream(file) << "no directory";
    // A link to a safe directory could be turned elsewhere by whoever made it.
    const std::string link = mDirectory.path() + "/link";
    ASSERT_EQ(symlink(mDirectory.path().c_str(), link.c_str()), 0);
    for (const std::string& path : {file, link}) {
        expectDirectoryRefused(path, EX_SECURITY, " " + path + " is not a directory");
    }
}

TEST_F(RegistryTest, NameIsTakenOverFromALivingProcess) {
    PeerProcess first(kName);
    const ndk::SpAIBinder old = find(kName);
    ASSERT_EQ(callPeer(old, kNote, args(0)), STATUS_OK);
    PeerProcess second(kName);
    // Those who come now reach the second, and who is with the first stays with it.
    EXPECT_EQ(ask(find(kName), kNoted), 0);
    EXPECT_EQ(ask(old, kNoted), 1);
    // Once the second has died nobody serves the name, though the first lives.
    second.kill();
    EXPECT_TRUE(isFree(kName));
    EXPECT_EQ(ask(old, kNoted), 1);
    // The first can take it again, and is found as the one it is.
    EXPECT_EQ(ask(old, kServe, args(kName)), EX_NONE);
    EXPECT_EQ(find(kName), old);
    expectFilesOf(1);
}

TEST_F(RegistryTest, NameTakenOverIsTheNewServersForTheOldOneToo) {
    EXPECT_EQ(serve(), EX_NONE);
    const PeerProcess peer(kName);
    const ndk::SpAIBinder found = find(kName);
    EXPECT_NE(found, mObject);
    EXPECT_EQ(AIBinder_ping(found.get()), STATUS_OK);
    EXPECT_EQ(serve(), EX_NONE);
    EXPECT_EQ(find(kName), mObject);
}

TEST_F(RegistryTest, TwoNamesOfOneObjectAreOneProxyOfOneConnection) {
    const PeerProcess peer(kName);
    ndk::SpAIBinder service = find(kName);
    EXPECT_EQ(ask(service, kServe, args("lum.test.other")), EX_NONE);
    const size_t descriptors = openDescriptors();
    EXPECT_EQ(find("lum.test.other"), service);
    // The connection outlives its last proxy.
    service = nullptr;
    service = find(kName);
    EXPECT_EQ(AIBinder_ping(service.get()), STATUS_OK);
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= descriptors; }));
}

TEST_F(RegistryTest, ProcessesThatTakeANameAtOnceLeaveItServedAtAnyTime) {
    const PeerProcess one("lum.test.one");
    const PeerProcess two("lum.test.two");
    const std::vector<ndk::SpAIBinder> services = {find("lum.test.one"), find("lum.test.two")};
    EXPECT_EQ(ask(services[0], kServe, args(kName)), EX_NONE);
    std::atomic<int> taking{2};
    Threads takers(2, [&](int taker) {
        for (int round = 0; round < 200; ++round) {
            EXPECT_EQ(ask(services[static_cast<size_t>(taker)], kServe, args(kName)), EX_NONE);
        }
        --taking;
    });
    while (taking != 0) EXPECT_EQ(AIBinder_ping(find(kName).get()), STATUS_OK);
    takers.join();
    expectFilesOf(3);
}

TEST_F(RegistryTest, NameIsFreedByDeathAndManyConnectionsLeaveNoDescriptors) {
    size_t after = 0;
    for (int round = 0; round < 60; ++round) {
        PeerProcess peer(kName);
        const ndk::SpAIBinder service = find(kName);
        EXPECT_EQ(AIBinder_ping(service.get()), STATUS_OK);
        peer.kill();
        EXPECT_TRUE(isFree(kName));
        if (round == 9) {
            after = openDescriptors();
        } else if (round > 9) {
            // The connection is closed when its end has been read.
            EXPECT_TRUE(eventually([&] { return openDescriptors() <= after; }));
        }
    }
    EXPECT_EQ(serve(), EX_NONE);
}

TEST_F(RegistryTest, ManyClientsLeaveNoDescriptorsInTheService) {
    serveOwn();
    const size_t before = openDescriptors();
    for (int round = 0; round < 20; ++round) {
        PeerProcess peer(kName);
        EXPECT_EQ(ask(find(kName), kRelay, args(kOwn)), 1);
        peer.kill();
    }
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }));
}

TEST_F(RegistryTest, LookupWithoutDescriptorsIsNullAndLeaksNothing) {
    const PeerProcess peer(kName);
    const size_t before = openDescriptors();
    bool found = false;
    for (size_t free = 0; free < 7 && !found; ++free) {
        LogCapture log;
        const DescriptorLimit few(static_cast<int>(free));
        const ndk::SpAIBinder service = find(kName);
        found = service.get() != nullptr;
        EXPECT_EQ(log.lines().empty(), found) << free;
    }
    ASSERT_TRUE(found);
    // What stays: what the threads wait with, and the connection.
    EXPECT_TRUE(eventually([&] { return openDescriptors() == before + 4; }));
    EXPECT_EQ(AIBinder_ping(find(kName).get()), STATUS_OK);
}

TEST_F(RegistryTest, ServiceAddedWithoutDescriptorsIsRefusedAndLeaksNothing) {
    const size_t before = openDescriptors();
    const std::vector<std::string> said = {
        "binder: cannot listen at PATH (Too many open files)",
        "binder: no descriptor to spare for lum.test.peer (Too many open files)",
        "binder: cannot wait for sockets (Too many open files)",
        "binder: cannot wait for sockets (Too many open files)",
        "binder: cannot wait for sockets (Too many open files)",
    };
    for (size_t free = 0; free < said.size(); ++free) {
        const DescriptorLimit few(static_cast<int>(free));
        {
            LogCapture log;
            EXPECT_EQ(serve(), EX_ILLEGAL_STATE);
            ASSERT_EQ(log.lines().size(), 1U);
            EXPECT_EQ(replaceAll(log.lines()[0].text, "/[^ ]*", "PATH"), said[free]);
        }
        EXPECT_EQ(find(kName).get(), nullptr);
    }
    EXPECT_EQ(filesIn(mDirectory.path()), 0U);
    {
        LogCapture log;
        const DescriptorLimit few(static_cast<int>(said.size()));
        EXPECT_EQ(serve(), EX_NONE);
        EXPECT_EQ(find(kName), mObject);
        EXPECT_TRUE(log.lines().empty());
    }
    // What stays: what the threads wait with, the socket, and the spare.
    EXPECT_EQ(openDescriptors(), before + 5);
}

TEST_F(RegistryTest, ClientIsTurnedAwayWhileTheServiceHasNoDescriptors) {
    serveOwn();
    const PeerProcess peer(kName);
    ASSERT_EQ(AIBinder_ping(find(kName).get()), STATUS_OK);  // the connection is there from now on
    LogCapture log;
    for (int round = 0; round < 3; ++round) {
        const DescriptorLimit few(0);
        EXPECT_EQ(callPeer(find(kName), kRelay, args(kOwn)), STATUS_DEAD_OBJECT);
    }
    EXPECT_TRUE(
        log.has(logE("binder: cannot accept a client of lum.test.own (Too many open files)")));
    EXPECT_EQ(ask(find(kName), kRelay, args(kOwn)), 1);
}

TEST_F(RegistryTest, DescriptorsAreClosedOnExec) {
    // Looked at while a client is being served, whose connection ends soon after.
    serveOwn([this] {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
            if (target.find("socket:") != 0 && target.find("anon_inode:") != 0 &&
                target.find(mDirectory.path()) != 0 && target.find("binder") == std::string::npos) {
                continue;
            }
            const int fd = std::stoi(entry.path().filename().string());
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << target;
        }
    });
    const PeerProcess peer(kName);
    EXPECT_EQ(ask(find(kName), kRelay, args(kOwn)), 1);
}

TEST_F(RegistryTest, ThreadsThatLookUpAtOnceShareOneConnection) {
    const PeerProcess peer(kName);
    std::vector<ndk::SpAIBinder> found(8);
    Threads(8, [&](int i) { found[static_cast<size_t>(i)] = find(kName); }).join();
    for (const ndk::SpAIBinder& service : found) EXPECT_EQ(service, found.front());
    EXPECT_NE(found.front().get(), nullptr);
}

}  // namespace
