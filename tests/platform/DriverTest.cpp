// SPDX-License-Identifier: Apache-2.0
// What the link over the kernel's driver does and sockets do not. Runs where there is a driver, in
// the virtual machines.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/linux/src/UniqueFd.h"
#include "tests/platform/DeathEvents.h"
#include "tests/platform/PeerTest.h"
#include "tests/support/Driver.h"
#include "tests/support/DriverCounts.h"
#include "tests/support/LogCapture.h"
#include "tools/emulator/ProcessStats.h"

namespace {

constexpr char kLate[] = "lum.test.late";

void expectSettlesAt(pid_t pid, const DriverCounts& limit) {
    eventually([&] { return driverCountsOf(pid).holdsNoMoreThan(limit); });
    EXPECT_TRUE(driverCountsOf(pid).holdsNoMoreThan(limit))
        << driverCountsOf(pid) << "; before " << limit;
}

class DriverTest : public PeerTest {
  protected:
    void SetUp() override {
        if (!overDriver()) GTEST_SKIP() << "needs the kernel's driver: ./dev test --vm";
    }

    // Runs in a child of this process, and returns what it exits with.
    static int inChild(const std::function<int()>& body) {
        const pid_t child = fork();
        if (child == 0) _exit(body());
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(DriverTest, ServiceIsWaitedForWithAndWithoutPool) {
    for (const bool withPool : {false, true}) {
        if (withPool) ABinderProcess_startThreadPool();
        const std::string name = kLate + std::to_string(withPool);
        ndk::SpAIBinder found;
        Threads waiting(1, [&](int) { found = find(name); });
        const PeerProcess late(name);
        waiting.join();
        EXPECT_EQ(AIBinder_ping(found.get()), STATUS_OK);
    }
}

TEST_F(DriverTest, NameOfAnotherUserIsRefused) {
    const auto serveAsNobody = [] {
        if (setuid(65534) != 0) return -1;
        execl(LUM_PEER_PROGRAM, LUM_PEER_PROGRAM, kName, nullptr);
        return -1;
    };
    EXPECT_EQ(inChild(serveAsNobody), 1);
    EXPECT_EQ(find(kName), mService);
}

TEST_F(DriverTest, ChildHasNoPartInIt) {
    ABinderProcess_startThreadPool();
    const Recipient recipient = makeRecipient();
    EXPECT_EQ(inChild([&] {
                  const LogCapture log;
                  if (AIBinder_linkToDeath(mService.get(), recipient.get(), nullptr) !=
                      STATUS_DEAD_OBJECT) {
                      return 1;
                  }
                  if (AIBinder_isAlive(mService.get())) return 2;
                  if (AIBinder_ping(mService.get()) != STATUS_DEAD_OBJECT) return 3;
                  return AServiceManager_checkService(kName) == nullptr ? 0 : 4;
              }),
              0);
    EXPECT_TRUE(AIBinder_isAlive(mService.get()));
    EXPECT_EQ(ask(kAdd, args(1, 2)), 3);
}

TEST_F(DriverTest, PoolGrowsToSixteenThreads) {
    Threads held(20, [this](int) { EXPECT_EQ(call(kHold), STATUS_DEAD_OBJECT); });
    // With the main one, which has added the service.
    EXPECT_TRUE(eventually([this] { return driverCountsOf(mPeer.pid()).threads == 17; }));
    mPeer.kill();
    held.join();
}

TEST_F(DriverTest, ObjectsGoAndComeAndLeaveNothingWithTheDriver) {
    ABinderProcess_startThreadPool();
    const auto round = [this] {
        EXPECT_EQ(find(kName), mService);
        const ndk::SpAIBinder mine =
            makePeerObject([](transaction_code_t, const AParcel*, AParcel*) {
                return binder_status_t{STATUS_OK};
            });
        EXPECT_EQ(call(kKeep, args(mine)), STATUS_OK);
        EXPECT_EQ(askObject(kGetKept), mine);
        const ndk::SpAIBinder theirs = askObject(kMakeObject);
        const Recipient recipient = makeRecipient();
        Events events;
        Cookie cookie{&events, "theirs", nullptr};
        EXPECT_EQ(AIBinder_linkToDeath(theirs.get(), recipient.get(), &cookie), STATUS_OK);
        EXPECT_EQ(ask(kIsOwnObject, args(theirs)), 1);
        EXPECT_EQ(AIBinder_unlinkToDeath(theirs.get(), recipient.get(), &cookie), STATUS_OK);
        EXPECT_EQ(call(kKeep, args(ndk::SpAIBinder())), STATUS_OK);
    };
    for (int i = 0; i < 10; ++i) round();
    const auto settled = [this](int rounds) {
        return eventually([&] { return ask(kObjectsEnded) == rounds; });
    };
    ASSERT_TRUE(settled(10));
    // The service. The service manager, handle 0, needs no reference.
    const DriverCounts here{0, 1, 1};
    const DriverCounts there{1};
    expectSettlesAt(getpid(), here);
    expectSettlesAt(mPeer.pid(), there);
    const size_t descriptors = openDescriptors();
    for (int i = 0; i < 200; ++i) round();
    ASSERT_TRUE(settled(210));
    expectSettlesAt(getpid(), here);
    expectSettlesAt(mPeer.pid(), there);
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= descriptors; }));
}

TEST_F(DriverTest, KilledServicesLeaveNothingWithTheDriver) {
    ABinderProcess_startThreadPool();
    const Recipient recipient = makeRecipient();
    const DriverCounts before = driverCountsOf(getpid());
    for (int i = 0; i < 40; ++i) {
        PeerProcess peer(kLate);
        ndk::SpAIBinder service = find(kLate);
        Events events;
        Cookie cookie{&events, "service", nullptr};
        ASSERT_EQ(AIBinder_linkToDeath(service.get(), recipient.get(), &cookie), STATUS_OK);
        peer.kill();
        ASSERT_TRUE(events.waitFor(2));
        service = nullptr;
    }
    expectSettlesAt(getpid(), before);
}

TEST_F(DriverTest, ThreadsThatEndAreForgotten) {
    ASSERT_EQ(ask(kAdd, args(1, 1)), 2);
    const int before = driverCountsOf(getpid()).threads;
    for (int i = 0; i < 50; ++i) {
        Threads(1, [this](int) { EXPECT_EQ(ask(kAdd, args(1, 1)), 2); }).join();
    }
    EXPECT_EQ(driverCountsOf(getpid()).threads, before);
}

TEST_F(DriverTest, SignalInterruptsNoCall) {
    static std::atomic<int> sCaught{0};
    struct sigaction action {};
    action.sa_handler = [](int) { ++sCaught; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    std::thread caller([this] { EXPECT_EQ(call(kHold), STATUS_OK); });
    EXPECT_TRUE(eventually([this] { return ask(kHolding) == 1; }));
    for (int times = 1; times <= 3; ++times) {
        pthread_kill(caller.native_handle(), SIGUSR1);
        EXPECT_TRUE(eventually([=] { return sCaught == times; }));
    }
    EXPECT_EQ(call(kLetGo), STATUS_OK);
    caller.join();
}

TEST_F(DriverTest, FrozenProcessFailsCallsAndKeepsOnewayCalls) {
    ASSERT_EQ(ask(kAdd, args(1, 2)), 3);
    const UniqueFd driver(open(getenv("LUM_BINDER"), O_RDWR | O_CLOEXEC));
    binder_freeze_info freeze{};
    freeze.pid = static_cast<uint32_t>(mPeer.pid());
    freeze.enable = 1;
    // The caller has its reply before the driver is through with the call.
    freeze.timeout_ms = static_cast<uint32_t>(std::chrono::milliseconds(kLimit).count());
    ASSERT_EQ(ioctl(driver.get(), BINDER_FREEZE, &freeze), 0);
    EXPECT_EQ(call(kAdd, args(1, 2)), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(oneway(kNote, args(0)), STATUS_OK);
    freeze.enable = 0;
    ASSERT_EQ(ioctl(driver.get(), BINDER_FREEZE, &freeze), 0);
    EXPECT_TRUE(eventually([this] { return ask(kNoted) == 1; }));
}

TEST_F(DriverTest, ObjectCallsAtItsEnd) {
    struct Watched {
        ndk::SpAIBinder service;
        Counter ended;
    };
    ABinderProcess_startThreadPool();
    Watched watched{mService, {}};
    static AIBinder_Class* const sWatched = plainClass("lum.test.IWatched", [](void* userData) {
        auto& object = *static_cast<Watched*>(userData);
        EXPECT_EQ(AIBinder_ping(object.service.get()), STATUS_OK);
        object.ended.add();
    });
    EXPECT_EQ(call(kKeep, args(ndk::SpAIBinder(AIBinder_new(sWatched, &watched)))), STATUS_OK);
    EXPECT_EQ(call(kKeep, args(ndk::SpAIBinder())), STATUS_OK);
    EXPECT_TRUE(watched.ended.waitFor(1));
}

}  // namespace
