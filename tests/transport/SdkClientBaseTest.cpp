// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <vector>

#include "tests/support/AllocationLimit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/transport/ListenerRecord.h"
#include "transport/SdkClientBase.h"

namespace {

constexpr auto kSdf = LUM_SDK_CLIENT_SDF;
constexpr auto kOther = static_cast<LumSdkClientType>(6);

using Status = SdkClientBase::SdkStatus;
using Bytes = std::vector<uint8_t>;

// A transport whose link is whatever the test says.
class FakeTransport : public SdkClientBase {
  public:
    using SdkClientBase::gate;
    using SdkClientBase::leave;
    using SdkClientBase::listenerAfter;
    using SdkClientBase::onSdkThread;
    using SdkClientBase::SdkClientBase;

    void connectLumSdkClient(LumSdkClientType type) override {
        ++connects;
        if (hangInConnect) {
            inConnect.add();
            mayConnect.waitFor();
        }
        connected = reachable.load();
        if (connected) notifyServiceUp(type);
    }
    bool isConnected(LumSdkClientType /*type*/) override { return connected; }
    bool sendBlobToService(LumSdkClientType type, Bytes blob) override {
        const std::lock_guard<std::mutex> guard(lock);
        sent.emplace_back(type, blob);
        return accepting;
    }
    void notifyServiceDown(LumSdkClientType /*type*/) override {}
    void cleanup(LumSdkClientType type) override {
        cleanups.push_back(type);
        if (throwInCleanup) throw std::runtime_error("cleanup");
    }

    using SdkClientBase::begin;
    bool join(LumSdkClientType type, Listener listener, std::shared_ptr<SdkClientEvent> first) {
        return SdkClientBase::join(type, std::move(listener), std::move(first), [] {});
    }
    void start(LumSdkClientType type, std::shared_ptr<SdkClientEvent> first,
               std::shared_ptr<SdkClientBase> self) {
        SdkClientBase::start(type, std::move(first), std::move(self), [] {});
    }
    std::vector<std::pair<int, Bytes>> allSent() {
        const std::lock_guard<std::mutex> guard(lock);
        return sent;
    }

    std::atomic<bool> reachable{true};
    std::atomic<bool> accepting{true};
    std::atomic<bool> connected{false};
    std::atomic<int> connects{0};
    bool hangInConnect = false;
    bool throwInCleanup = false;
    Counter inConnect;
    Counter mayConnect;
    std::vector<int> cleanups;  // read after the loop has ended

  private:
    std::mutex lock;
    std::vector<std::pair<int, Bytes>> sent;
};

class SdkClientBaseTest : public testing::Test {
  protected:
    // Brings the SDK thread up with `type` in use.
    void start(const std::shared_ptr<SdkClientEvent>& first, const ListenerRecord& listener,
               LumSdkClientType type = kSdf) {
        ASSERT_TRUE(transport->begin(type, listener, first));
        transport->start(type, first, transport);
    }
    void post(LumSdkClientType type, Bytes blob, bool release = false) {
        transport->postEvent(makeEvent(type, std::move(blob), release));
    }
    // Ends the loop with type's release event and waits for that.
    void end(LumSdkClientType type = kSdf) {
        post(type, {0xEE}, true);
        waitForEnd();
    }
    void waitForEnd() {
        for (auto limit = std::chrono::steady_clock::now() + kLimit;
             transport->isRunning() && std::chrono::steady_clock::now() < limit;) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(transport->isRunning());
        // The thread drops its own hold last.
        while (transport.use_count() > 1) std::this_thread::yield();
    }

    LumTimer timer{nullptr};
    lum::utils::EventManager eventManager;
    std::shared_ptr<FakeTransport> transport =
        std::make_shared<FakeTransport>(&timer, &eventManager);
};

void expectFields(const SdkClientEvent& event, const std::vector<uint8_t>& blob, bool release) {
    EXPECT_EQ(event.mReserved, 0);
    EXPECT_EQ(event.mRelease, release);
    EXPECT_EQ(event.mType, LUM_SDK_CLIENT_SDF);
    EXPECT_EQ(event.mBlob, blob);
    EXPECT_EQ(event.mKind, 0);
}

TEST(SdkClientEventTest, BothConstructorsFillAllFields) {
    const std::vector<uint8_t> bytes{1, 2, 3};
    std::vector<uint8_t> given = bytes;
    const SdkClientEvent request(LUM_SDK_CLIENT_SDF, given);
    const SdkClientEvent ordinary(LUM_SDK_CLIENT_SDF, given, false);
    const SdkClientEvent last(LUM_SDK_CLIENT_SDF, given, true);
    EXPECT_EQ(given, bytes);
    given.clear();
    expectFields(request, bytes, false);
    expectFields(ordinary, bytes, false);
    expectFields(last, bytes, true);
}

TEST_F(SdkClientBaseTest, StartsIdle) {
    EXPECT_FALSE(transport->isRunning());
    EXPECT_FALSE(transport->listenerAfter(std::nullopt));
    for (int type = -1; type <= 14; ++type) {
        EXPECT_FALSE(transport->isActive(static_cast<LumSdkClientType>(type))) << type;
    }
    EXPECT_EQ(SdkClientBase::mTransactionId, 1U);
    EXPECT_EQ(SdkClientBase::mTransactionId32, 1U);
}

TEST_F(SdkClientBaseTest, QueueIsNamedAfterTheClass) {
    const LogCapture log;
    const FakeTransport named(&timer, &eventManager);
    bool seen = false;
    for (const LogLine& line : log.lines()) {
        seen = seen || line.text.find("name[SdkClientBase]") != std::string::npos;
    }
    EXPECT_TRUE(seen);
}

TEST_F(SdkClientBaseTest, FirstEventIsHandledFirst) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    post(kSdf, {2});
    end();
    const std::vector<std::pair<int, Bytes>> expected{{5, {1}}, {5, {2}}, {5, {0xEE}}};
    EXPECT_EQ(transport->allSent(), expected);
    EXPECT_EQ(transport->connects, 1);
    EXPECT_EQ(listener.statuses(), std::vector<Status>{SdkClientBase::SDK_SERVICE_UP});
}

TEST_F(SdkClientBaseTest, ThreadOwnsTheGateAndTheObjectWhenStartReturns) {
    for (int round = 0; round < 200; ++round) {
        transport = std::make_shared<FakeTransport>(&timer, &eventManager);
        const ListenerRecord listener;
        start(makeEvent(kSdf, {1}), listener);
        EXPECT_FALSE(transport->gate().try_lock());
        EXPECT_EQ(transport.use_count(), 2);
        end();
        EXPECT_TRUE(transport->gate().try_lock());
        transport->gate().unlock();
    }
}

TEST_F(SdkClientBaseTest, NoFirstEventIsFine) {
    const ListenerRecord listener;
    ASSERT_TRUE(transport->begin(kSdf, listener, nullptr));
    transport->start(kSdf, nullptr, transport);
    end();
    EXPECT_EQ(transport->connects, 0);  // a release event never connects
    EXPECT_TRUE(transport->allSent().empty());
    EXPECT_EQ(transport->cleanups, std::vector<int>{5});
}

TEST_F(SdkClientBaseTest, UnreachableServiceIsNotReported) {
    transport->reachable = false;
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    post(kSdf, {2});
    end();
    EXPECT_EQ(transport->connects, 2);  // each request tries anew
    EXPECT_TRUE(transport->allSent().empty());
    EXPECT_TRUE(listener.calls().empty());
}

TEST_F(SdkClientBaseTest, RefusedRequestIsReportedOnce) {
    transport->connected = true;
    transport->accepting = false;
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    ASSERT_TRUE(listener.waitForCalls(1));
    transport->accepting = true;
    end();
    EXPECT_EQ(listener.statuses(), std::vector<Status>{SdkClientBase::SDK_SEND_FAILED});
    EXPECT_TRUE(listener.calls()[0].bytes.empty());
    EXPECT_NE(listener.calls()[0].thread, std::this_thread::get_id());
}

TEST_F(SdkClientBaseTest, ReleaseOfOneOfTwoTypesLeavesTheThreadRunning) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    const auto first = makeEvent(kOther, {2});
    ASSERT_TRUE(transport->join(kOther, listener, first));
    post(kSdf, {3}, true);
    post(kOther, {4});
    auto delivered = makeEvent(kOther, {5});
    delivered->mKind = SdkClientEvent::kDeliver;
    transport->postEvent(delivered);
    ASSERT_TRUE(listener.waitForCalls(2));  // service up, and what was just delivered
    EXPECT_TRUE(transport->isRunning());
    EXPECT_FALSE(transport->isActive(kSdf));
    EXPECT_TRUE(transport->isActive(kOther));
    end(kOther);
    EXPECT_EQ(transport->cleanups, (std::vector<int>{5, 6}));
}

TEST_F(SdkClientBaseTest, ReleaseOfTheLastTypeEndsTheLoop) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    end();
    EXPECT_FALSE(transport->isActive(kSdf));
    EXPECT_TRUE(transport->leave(kSdf));  // and leaving afterwards finds nothing to wait for
}

TEST_F(SdkClientBaseTest, EventsBehindTheLastReleaseAreDropped) {
    transport->hangInConnect = true;
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    ASSERT_TRUE(transport->inConnect.waitFor());
    post(kSdf, {2}, true);
    post(kSdf, {3});
    transport->mayConnect.add();
    waitForEnd();
    const std::vector<std::pair<int, Bytes>> expected{{5, {1}}, {5, {2}}};
    EXPECT_EQ(transport->allSent(), expected);
}

TEST_F(SdkClientBaseTest, ListenerIsReplacedAndTheOldOneDestroyed) {
    const ListenerRecord first;
    const ListenerRecord second;
    transport->setClientListener(kSdf, first);
    EXPECT_EQ(first.copies(), 1);
    transport->setClientListener(kSdf, second);
    EXPECT_EQ(first.copies(), 0);
    transport->notifyReceivedBlob(kSdf, {7});
    transport->notifyServiceUp(kSdf);
    EXPECT_TRUE(first.calls().empty());
    ASSERT_EQ(second.statuses(), (std::vector<Status>{SdkClientBase::SDK_BLOB_RECEIVED,
                                                      SdkClientBase::SDK_SERVICE_UP}));
    EXPECT_EQ(second.calls()[0].bytes, Bytes{7});
    EXPECT_TRUE(second.calls()[1].bytes.empty());
}

TEST_F(SdkClientBaseTest, NotifyingATypeWithoutListenerDoesNothing) {
    transport->notifyReceivedBlob(kSdf, {7});
    transport->notifyServiceUp(kSdf);
    EXPECT_FALSE(transport->listenerAfter(std::nullopt));
}

TEST_F(SdkClientBaseTest, DeliveredBlobGoesToTheListenerAndNotToTheService) {
    const ListenerRecord listener;
    auto event = makeEvent(kSdf, {8, 9});
    event->mKind = SdkClientEvent::kDeliver;
    start(event, listener);
    ASSERT_TRUE(listener.waitForCalls(1));
    end();
    EXPECT_EQ(listener.calls()[0].status, SdkClientBase::SDK_BLOB_RECEIVED);
    EXPECT_EQ(listener.calls()[0].bytes, (Bytes{8, 9}));
    EXPECT_EQ(transport->connects, 0);
    EXPECT_TRUE(transport->allSent().empty());
}

TEST_F(SdkClientBaseTest, DeliveredBlobEndsThereWhateverItsReleaseFlag) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    auto event = makeEvent(kSdf, {8}, true);
    event->mKind = SdkClientEvent::kDeliver;
    transport->postEvent(event);
    ASSERT_TRUE(listener.waitForCalls(2));
    post(kSdf, {2});
    end();
    const std::vector<std::pair<int, Bytes>> expected{{5, {1}}, {5, {2}}, {5, {0xEE}}};
    EXPECT_EQ(transport->allSent(), expected);
}

TEST_F(SdkClientBaseTest, DeliveredBlobOfATypeWithoutListenerIsSentAndLeavesAnEmptyEntry) {
    const ListenerRecord listener;
    auto event = makeEvent(kOther, {8});
    event->mKind = SdkClientEvent::kDeliver;
    start(event, listener);
    end();
    const std::vector<std::pair<int, Bytes>> expected{{6, {8}}, {5, {0xEE}}};
    EXPECT_EQ(transport->allSent(), expected);
    const auto entry = transport->listenerAfter(kSdf);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->first, kOther);
    EXPECT_FALSE(entry->second);
}

TEST_F(SdkClientBaseTest, FailedSendOfATypeWithoutListenerLeavesAnEmptyEntry) {
    transport->accepting = false;
    const ListenerRecord listener;
    start(makeEvent(kOther, {8}), listener);
    end();
    const auto entry = transport->listenerAfter(kSdf);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->first, kOther);
    EXPECT_FALSE(entry->second);
}

TEST_F(SdkClientBaseTest, ListenerThatThrowsDoesNotSkipTheRelease) {
    const LogCapture log;
    transport->connected = true;
    transport->accepting = false;
    const ListenerRecord listener([](Status) { throw std::runtime_error("listener"); });
    start(makeEvent(kSdf, {1}), listener);
    post(kSdf, {2});
    end();
    EXPECT_EQ(listener.calls().size(), 3U);
    EXPECT_EQ(log.count(logE("SDK thread: a callback threw: listener")), 3U);
    EXPECT_EQ(transport->cleanups, std::vector<int>{5});
}

TEST_F(SdkClientBaseTest, CleanupThatThrowsDoesNotSkipTheRelease) {
    const LogCapture log;
    transport->throwInCleanup = true;
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    end();
    EXPECT_EQ(log.count(logE("SDK thread: a callback threw: cleanup")), 1U);
}

TEST_F(SdkClientBaseTest, WhatIsNoExceptionClassEndsInTheThreadToo) {
    const LogCapture log;
    transport->connected = true;
    transport->accepting = false;
    const ListenerRecord listener([](Status) { throw 42; });
    start(makeEvent(kSdf, {1}), listener);
    end();
    EXPECT_EQ(log.count(logE("SDK thread: a callback threw something that is no std::exception")),
              2U);
}

TEST_F(SdkClientBaseTest, ReleasePostedBeforeTheTypeWasTakenUpAgainDoesNotEndTheNewUse) {
    transport->hangInConnect = true;
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    ASSERT_TRUE(transport->inConnect.waitFor());
    ASSERT_TRUE(transport->join(kOther, listener, makeEvent(kOther, {2})));
    post(kSdf, {3}, true);
    EXPECT_FALSE(transport->leave(kSdf));
    const auto again = makeEvent(kSdf, {4});
    ASSERT_TRUE(transport->join(kSdf, listener, again));
    EXPECT_FALSE(transport->leave(kOther));
    transport->mayConnect.add();

    auto last = makeEvent(kSdf, {5});
    last->mKind = SdkClientEvent::kDeliver;
    transport->postEvent(last);
    ASSERT_TRUE(listener.waitForCalls(2));  // service up, and the last one
    EXPECT_TRUE(transport->isRunning());
    EXPECT_TRUE(transport->isActive(kSdf));
    end();
    const std::vector<std::pair<int, Bytes>> expected{
        {5, {1}}, {6, {2}}, {5, {3}}, {5, {4}}, {5, {0xEE}}};
    EXPECT_EQ(transport->allSent(), expected);
}

TEST_F(SdkClientBaseTest, LateReleaseThatLeavesNoTypeActiveEndsTheLoop) {
    transport->hangInConnect = true;
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    ASSERT_TRUE(transport->inConnect.waitFor());
    const auto other = makeEvent(kOther, {2});
    ASSERT_TRUE(transport->join(kOther, listener, other));
    post(kSdf, {3}, true);
    EXPECT_FALSE(transport->leave(kSdf));
    post(kOther, {4});
    post(kOther, {5}, true);
    EXPECT_TRUE(transport->leave(kOther));
    transport->mayConnect.add();  // only now is the first release handled
    waitForEnd();
    // What was queued behind it is dropped.
    const std::vector<std::pair<int, Bytes>> expected{{5, {1}}, {6, {2}}, {5, {3}}};
    EXPECT_EQ(transport->allSent(), expected);
    EXPECT_EQ(transport->cleanups, std::vector<int>{5});
}

TEST_F(SdkClientBaseTest, OnlyTheLastToLeaveTearsDownAndNobodyComesInAfterwards) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    const auto first = makeEvent(kOther, {2});
    ASSERT_TRUE(transport->join(kOther, listener, first));
    EXPECT_FALSE(transport->leave(kSdf));
    EXPECT_TRUE(transport->leave(kOther));
    EXPECT_FALSE(transport->leave(kOther));
    EXPECT_FALSE(transport->join(kSdf, listener, makeEvent(kSdf, {3})));
    EXPECT_FALSE(transport->isActive(kSdf));
    end(kOther);
}

TEST_F(SdkClientBaseTest, NobodyJoinsALoopThatHasEnded) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    end();
    const ListenerRecord late;
    EXPECT_FALSE(transport->join(kOther, late, makeEvent(kOther, {2})));
    EXPECT_FALSE(transport->isActive(kOther));
    EXPECT_EQ(late.copies(), 0);
}

TEST_F(SdkClientBaseTest, TypesOutsideTheKnownOnesAreRefused) {
    const ListenerRecord listener;
    for (const int type : {-1, 14, 1000}) {
        EXPECT_FALSE(
            transport->begin(static_cast<LumSdkClientType>(type), listener, makeEvent(type, {1})))
            << type;
    }
    for (const int type : {0, 13}) {
        EXPECT_TRUE(
            transport->begin(static_cast<LumSdkClientType>(type), listener, makeEvent(type, {1})))
            << type;
    }
}

TEST_F(SdkClientBaseTest, EventsOfUnknownTypesAndEmptyOnesAreSurvived) {
    const ListenerRecord listener;
    start(makeEvent(kSdf, {1}), listener);
    transport->postEvent(nullptr);
    post(static_cast<LumSdkClientType>(99), {2}, true);
    post(static_cast<LumSdkClientType>(-1), {3});
    end();
    const std::vector<std::pair<int, Bytes>> expected{{5, {1}}, {99, {2}}, {-1, {3}}, {5, {0xEE}}};
    EXPECT_EQ(transport->allSent(), expected);
}

TEST_F(SdkClientBaseTest, ThreadBlocksWhatAProgramHandlesAndNoFault) {
    sigset_t blocked;
    sigemptyset(&blocked);
    const ListenerRecord listener([&](Status) { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    start(makeEvent(kSdf, {1}), listener);
    end();
    for (const int signal : {SIGTERM, SIGINT, SIGUSR1, SIGCHLD, SIGPIPE, SIGALRM, SIGRTMIN}) {
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
    }
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        EXPECT_EQ(sigismember(&blocked, signal), 0) << signal;
    }
    sigset_t after;
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    }
}

TEST_F(SdkClientBaseTest, ThreadRefusedIsTheStandardLibrarysException) {
    const ListenerRecord listener;
    ASSERT_TRUE(transport->begin(kSdf, listener, makeEvent(kSdf, {1})));
    {
        const ThreadRefusal refused;
        EXPECT_THROW(transport->start(kSdf, makeEvent(kSdf, {1}), transport), std::system_error);
    }
    EXPECT_FALSE(transport->isRunning());
    EXPECT_EQ(transport.use_count(), 1);
}

TEST_F(SdkClientBaseTest, ThreadThatCannotQueueTheFirstEventForWantOfMemoryEndsAndSaysSo) {
    const ListenerRecord listener;
    const auto first = makeEvent(kSdf, {1});
    ASSERT_TRUE(transport->begin(kSdf, listener, first));
    // Until there is no memory for one more.
    const auto queued = makeEvent(kSdf, {2});
    size_t count = 0;
    EXPECT_THROW(
        {
            const AllocationLimit none(0);
            for (;; ++count) transport->postEvent(queued);
        },
        std::bad_alloc);
    {
        const FirstAllocationRefusal refused;
        EXPECT_THROW(transport->start(kSdf, first, transport), std::bad_alloc);
    }
    waitForEnd();
    EXPECT_EQ(first.use_count(), 2);  // this one, and that of the type's use
    EXPECT_TRUE(transport->gate().try_lock());
    transport->gate().unlock();
    EXPECT_TRUE(transport->allSent().empty());

    transport->start(kSdf, first, transport);
    end();
    std::vector<std::pair<int, Bytes>> expected(count, {5, {2}});
    expected.push_back({5, {1}});
    expected.push_back({5, {0xEE}});
    EXPECT_EQ(transport->allSent(), expected);
}

}  // namespace
