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
#include "tests/transport/ListenerRecord.h"
#include "transport/SdkClientBase.h"

namespace {

constexpr auto kSdf = LUM_SDK_CLIENT_SDF;
constexpr auto kOther = static_cast<LumSdkClientType>(6);

using Status = SdkClientBase::SdkStatus;
using Bytes = std::vector<uint8_t>;
using Sent = std::vector<std::pair<int, Bytes>>;  // client type and blob

// A transport whose link is whatever the test says.
class FakeTransport : public SdkClientBase {
  public:
    using SdkClientBase::begin;
    using SdkClientBase::gate;
    using SdkClientBase::leave;
    using SdkClientBase::listenerAfter;
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

    bool join(LumSdkClientType type, Listener listener, std::shared_ptr<SdkClientEvent> first) {
        return SdkClientBase::join(type, std::move(listener), std::move(first), [] {});
    }
    void start(LumSdkClientType type, std::shared_ptr<SdkClientEvent> first,
               std::shared_ptr<SdkClientBase> self) {
        SdkClientBase::start(type, std::move(first), std::move(self), [] {});
    }
    Sent allSent() {
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
    Sent sent;
};

class SdkClientBaseTest : public testing::Test {
  protected:
    // Brings the SDK thread up with `type` in use.
    void start(const std::shared_ptr<SdkClientEvent>& first, const ListenerRecord& heard,
               LumSdkClientType type = kSdf) {
        ASSERT_TRUE(transport->begin(type, heard, first));
        transport->start(type, first, transport);
    }
    void start() { start(makeEvent(kSdf, {1}), listener); }
    // The same, up to the attempt to connect, which waits for mayConnect.
    void startAndHang() {
        transport->hangInConnect = true;
        start();
        ASSERT_TRUE(transport->inConnect.waitFor());
    }
    static std::shared_ptr<SdkClientEvent> delivery(LumSdkClientType type, Bytes blob,
                                                    bool release = false) {
        auto event = makeEvent(type, std::move(blob), release);
        event->mKind = SdkClientEvent::kDeliver;
        return event;
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
        EXPECT_TRUE(eventually([this] { return !transport->isRunning(); }));
        // The thread drops its own hold last.
        EXPECT_TRUE(eventually([this] { return transport.use_count() == 1; }));
    }
    void expectEmptyEntryOf(LumSdkClientType type) const {
        const auto entry = transport->listenerAfter(kSdf);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->first, type);
        EXPECT_FALSE(entry->second);
    }

    LumTimer timer{nullptr};
    lum::utils::EventManager eventManager;
    std::shared_ptr<FakeTransport> transport =
        std::make_shared<FakeTransport>(&timer, &eventManager);
    const ListenerRecord listener;
};

TEST(SdkClientEventTest, BothConstructorsFillAllFields) {
    const Bytes bytes{1, 2, 3};
    Bytes given = bytes;
    const SdkClientEvent request(kSdf, given);
    const SdkClientEvent ordinary(kSdf, given, false);
    const SdkClientEvent last(kSdf, given, true);
    EXPECT_EQ(given, bytes);
    given.clear();
    for (const SdkClientEvent* const event : {&request, &ordinary, &last}) {
        EXPECT_EQ(event->mReserved, 0);
        EXPECT_EQ(event->mRelease, event == &last);
        EXPECT_EQ(event->mType, kSdf);
        EXPECT_EQ(event->mBlob, bytes);
        EXPECT_EQ(event->mKind, 0);
    }
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

TEST_F(SdkClientBaseTest, ThreadOwnsTheGateAndTheObjectWhenStartReturns) {
    for (int round = 0; round < 200; ++round) {
        transport = std::make_shared<FakeTransport>(&timer, &eventManager);
        start();
        EXPECT_FALSE(transport->gate().try_lock());
        EXPECT_EQ(transport.use_count(), 2);
        end();
        EXPECT_TRUE(transport->gate().try_lock());
        transport->gate().unlock();
    }
}

TEST_F(SdkClientBaseTest, NoFirstEventIsFine) {
    start(nullptr, listener);
    end();
    EXPECT_EQ(transport->connects, 0);  // a release event never connects
    EXPECT_TRUE(transport->allSent().empty());
    EXPECT_EQ(transport->cleanups, std::vector<int>{5});
}

TEST_F(SdkClientBaseTest, ReleaseOfOneOfTwoTypesLeavesTheThreadRunning) {
    start();
    ASSERT_TRUE(transport->join(kOther, listener, makeEvent(kOther, {2})));
    post(kSdf, {3}, true);
    post(kOther, {4});
    transport->postEvent(delivery(kOther, {5}));
    ASSERT_TRUE(listener.waitForCalls(2));  // service up, and what was just delivered
    EXPECT_TRUE(transport->isRunning());
    EXPECT_FALSE(transport->isActive(kSdf));
    EXPECT_TRUE(transport->isActive(kOther));
    end(kOther);
    EXPECT_EQ(transport->cleanups, (std::vector<int>{5, 6}));
}

TEST_F(SdkClientBaseTest, EventsBehindTheLastReleaseAreDropped) {
    startAndHang();
    post(kSdf, {2}, true);
    post(kSdf, {3});
    transport->mayConnect.add();
    waitForEnd();
    EXPECT_EQ(transport->allSent(), (Sent{{5, {1}}, {5, {2}}}));
}

TEST_F(SdkClientBaseTest, ListenerIsReplacedAndTheOldOneDestroyed) {
    const ListenerRecord second;
    transport->setClientListener(kSdf, listener);
    EXPECT_EQ(listener.copies(), 1);
    transport->setClientListener(kSdf, second);
    EXPECT_EQ(listener.copies(), 0);
    transport->notifyReceivedBlob(kSdf, {7});
    transport->notifyServiceUp(kSdf);
    EXPECT_TRUE(listener.calls().empty());
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

TEST_F(SdkClientBaseTest, DeliveredBlobGoesToTheListenerWhateverItsReleaseFlag) {
    start(delivery(kSdf, {8, 9}), listener);
    ASSERT_TRUE(listener.waitForCalls(1));
    EXPECT_EQ(listener.calls()[0].status, SdkClientBase::SDK_BLOB_RECEIVED);
    EXPECT_EQ(listener.calls()[0].bytes, (Bytes{8, 9}));
    EXPECT_EQ(transport->connects, 0);
    transport->postEvent(delivery(kSdf, {8}, true));
    ASSERT_TRUE(listener.waitForCalls(2));
    post(kSdf, {2});
    end();
    EXPECT_EQ(transport->allSent(), (Sent{{5, {2}}, {5, {0xEE}}}));
}

TEST_F(SdkClientBaseTest, DeliveredBlobOfATypeWithoutListenerIsSentAndLeavesAnEmptyEntry) {
    start(delivery(kOther, {8}), listener);
    end();
    EXPECT_EQ(transport->allSent(), (Sent{{6, {8}}, {5, {0xEE}}}));
    expectEmptyEntryOf(kOther);
}

TEST_F(SdkClientBaseTest, FailedSendOfATypeWithoutListenerLeavesAnEmptyEntry) {
    transport->accepting = false;
    start(makeEvent(kOther, {8}), listener);
    end();
    expectEmptyEntryOf(kOther);
}

TEST_F(SdkClientBaseTest, WhatACallbackThrowsDoesNotSkipTheRelease) {
    const LogCapture log;
    transport->connected = true;
    transport->accepting = false;
    transport->throwInCleanup = true;
    int calls = 0;
    const ListenerRecord throwing([&](Status) {
        ++calls;
        if (calls == 1) throw 42;
        if (calls == 2) throw std::runtime_error("listener");
    });
    start(makeEvent(kSdf, {1}), throwing);
    post(kSdf, {2});
    end();
    EXPECT_EQ(throwing.calls().size(), 3U);
    for (const char* const line :
         {"SDK thread: a callback threw something that is no std::exception",
          "SDK thread: a callback threw: listener", "SDK thread: a callback threw: cleanup"}) {
        EXPECT_EQ(log.count(logE(line)), 1U) << line;
    }
}

TEST_F(SdkClientBaseTest, ListenerThatThrowsAtTheLastSendDoesNotSkipTheRelease) {
    transport->connected = true;
    transport->accepting = false;
    const ListenerRecord throwing([](Status) { throw std::runtime_error("listener"); });
    start(makeEvent(kSdf, {1}), throwing);
    end();
    EXPECT_EQ(throwing.calls().size(), 2U);
    EXPECT_EQ(transport->cleanups, std::vector<int>{5});
}

TEST_F(SdkClientBaseTest, ReleasePostedBeforeTheTypeWasUsedAgainDoesNotEndTheNewUse) {
    startAndHang();
    ASSERT_TRUE(transport->join(kOther, listener, makeEvent(kOther, {2})));
    post(kSdf, {3}, true);
    EXPECT_FALSE(transport->leave(kSdf));
    ASSERT_TRUE(transport->join(kSdf, listener, makeEvent(kSdf, {4})));
    EXPECT_FALSE(transport->leave(kOther));
    transport->mayConnect.add();

    transport->postEvent(delivery(kSdf, {5}));
    ASSERT_TRUE(listener.waitForCalls(2));  // service up, and what was just delivered
    EXPECT_TRUE(transport->isRunning());
    EXPECT_TRUE(transport->isActive(kSdf));
    end();
    EXPECT_EQ(transport->allSent(), (Sent{{5, {1}}, {6, {2}}, {5, {3}}, {5, {4}}, {5, {0xEE}}}));
}

TEST_F(SdkClientBaseTest, LateReleaseThatLeavesNoTypeActiveEndsTheLoop) {
    startAndHang();
    ASSERT_TRUE(transport->join(kOther, listener, makeEvent(kOther, {2})));
    post(kSdf, {3}, true);
    EXPECT_FALSE(transport->leave(kSdf));
    post(kOther, {4});
    post(kOther, {5}, true);
    EXPECT_TRUE(transport->leave(kOther));
    EXPECT_FALSE(transport->leave(kOther));  // only the last to leave tears down,
    EXPECT_FALSE(transport->join(kSdf, listener, makeEvent(kSdf, {6})));  // and nobody comes in
    EXPECT_FALSE(transport->isActive(kSdf));
    transport->mayConnect.add();  // only now is the first release handled
    waitForEnd();
    // What was queued behind it is dropped.
    EXPECT_EQ(transport->allSent(), (Sent{{5, {1}}, {6, {2}}, {5, {3}}}));
    EXPECT_EQ(transport->cleanups, std::vector<int>{5});
}

TEST_F(SdkClientBaseTest, NobodyJoinsALoopThatHasEnded) {
    start();
    end();
    const ListenerRecord late;
    EXPECT_FALSE(transport->join(kOther, late, makeEvent(kOther, {2})));
    EXPECT_FALSE(transport->isActive(kOther));
    EXPECT_EQ(late.copies(), 0);
}

TEST_F(SdkClientBaseTest, TypesOutsideTheKnownOnesAreRefused) {
    for (const int type : {-1, 0, 13, 14, 1000}) {
        EXPECT_EQ(
            transport->begin(static_cast<LumSdkClientType>(type), listener, makeEvent(type, {1})),
            type == 0 || type == 13)
            << type;
    }
}

TEST_F(SdkClientBaseTest, EventsOfUnknownTypesAndEmptyOnesAreSurvived) {
    start();
    transport->postEvent(nullptr);
    post(static_cast<LumSdkClientType>(99), {2}, true);
    post(static_cast<LumSdkClientType>(-1), {3});
    end();
    EXPECT_EQ(transport->allSent(), (Sent{{5, {1}}, {99, {2}}, {-1, {3}}, {5, {0xEE}}}));
}

// Which signals those are is SignalMask's own concern.
TEST_F(SdkClientBaseTest, ThreadBlocksWhatAProgramHandlesAndNoFault) {
    sigset_t blocked;
    sigemptyset(&blocked);
    const ListenerRecord asking([&](Status) { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
    start(makeEvent(kSdf, {1}), asking);
    end();
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
    EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

TEST_F(SdkClientBaseTest, ThreadThatCannotQueueTheFirstEventForWantOfMemoryEndsAndSaysSo) {
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
    Sent expected(count, {5, {2}});
    expected.push_back({5, {1}});
    expected.push_back({5, {0xEE}});
    EXPECT_EQ(transport->allSent(), expected);
}

}  // namespace
