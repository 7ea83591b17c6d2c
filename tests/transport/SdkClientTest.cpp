// SPDX-License-Identifier: Apache-2.0
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <stdexcept>

#include "tests/support/AllocationLimit.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/transport/FakeBinder.h"
#include "tests/transport/ListenerRecord.h"
#include "tests/utils/OutOfMemory.h"
#include "tools/emulator/ProcessStats.h"
#include "transport/SdkClient.h"
#include "utils/SharedPointer.h"

using aidl::vendor::orn::data::lumservice::BnLumServiceCallback;
using aidl::vendor::orn::data::lumservice::ILumServiceCallback;
using aidl::vendor::orn::data::lumservice::LumSdkType;

namespace {

constexpr auto kSdf = LUM_SDK_CLIENT_SDF;
constexpr auto kOther = static_cast<LumSdkClientType>(6);

constexpr auto kReceived = SdkClientBase::SDK_BLOB_RECEIVED;
constexpr auto kFailed = SdkClientBase::SDK_SEND_FAILED;
constexpr auto kDown = SdkClientBase::SDK_SERVICE_DOWN;
constexpr auto kUp = SdkClientBase::SDK_SERVICE_UP;

using Bytes = std::vector<uint8_t>;
using Statuses = std::vector<SdkClientBase::SdkStatus>;

// A stranger under the service's name.
class NotTheService : public BnLumServiceCallback {
    ndk::ScopedAStatus sendBlob(LumSdkType /*type*/, const Bytes& /*blob*/) override {
        return ndk::ScopedAStatus::ok();
    }
};

class SdkClientTest : public testing::Test {
  protected:
    SdkClientTest() { FakeBinder::serve(service); }
    ~SdkClientTest() override { service->dropCallback(); }
    // Ends what a test has left in use: kSdf, or kSdf and kOther.
    void TearDown() override {
        const auto client = SdkClient::mInstance;
        if (!client) return;
        if (client->isActive(kOther)) SdkClient::destroyInstance(kOther);
        release(kSdf);
    }

    std::shared_ptr<SdkClient> get(LumSdkClientType type, const ListenerRecord& heard,
                                   Bytes first = {1}) {
        return SdkClient::getInstance(type, heard, makeEvent(type, std::move(first)));
    }
    // Brings the transport up, connected, for one type.
    std::shared_ptr<SdkClient> getConnected(LumSdkClientType type, const ListenerRecord& heard) {
        auto client = get(type, heard);
        EXPECT_TRUE(heard.waitForCalls(1));
        return client;
    }
    std::shared_ptr<SdkClient> getConnected() { return getConnected(kSdf, listener); }
    static void release(LumSdkClientType type = kSdf) {
        if (const auto client = lum::utils::loadShared(SdkClient::mInstance)) {
            client->postEvent(makeEvent(type, {0xEE}, true));
        }
        SdkClient::destroyInstance(type);
    }
    // Gets an instance that nobody else holds, and runs the action on its thread.
    std::weak_ptr<SdkClient> getAndRun(const std::function<void()>& action) {
        service->mRefuseBlobs = true;
        service->mRefuseCallback = true;
        const auto ran = std::make_shared<Counter>();
        const ListenerRecord failing([action, ran](SdkClientBase::SdkStatus status) {
            if (status != kFailed || ran->value() > 0) return;
            action();
            ran->add();
        });
        const std::weak_ptr<SdkClient> client = get(kSdf, failing);
        EXPECT_TRUE(ran->waitFor());
        return client;
    }
    void waitForMessages(size_t count) const {
        while (service->messages().size() < count) std::this_thread::yield();
    }
    // True once nobody holds the object any more. Its destructor may still run then.
    static bool goes(const std::weak_ptr<SdkClient>& client) {
        return eventually([&] { return client.expired(); });
    }

    std::shared_ptr<FakeService> service = ndk::SharedRefBase::make<FakeService>();
    FakeBinder binder;
    ListenerRecord listener;
};

// ---- getting the transport

TEST_F(SdkClientTest, EmptyFirstEventOrUnknownTypeGivesNothing) {
    EXPECT_EQ(SdkClient::getInstance(kSdf, listener, nullptr), nullptr);
    EXPECT_EQ(get(static_cast<LumSdkClientType>(14), listener), nullptr);
    EXPECT_EQ(get(static_cast<LumSdkClientType>(-1), listener), nullptr);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    EXPECT_EQ(listener.copies(), 0);

    getConnected();
    const ListenerRecord other;
    EXPECT_EQ(SdkClient::getInstance(kOther, other, nullptr), nullptr);
    EXPECT_FALSE(SdkClient::mInstance->isActive(kOther));
    EXPECT_EQ(other.copies(), 0);
    EXPECT_TRUE(other.calls().empty());
}

TEST_F(SdkClientTest, FirstEventConnectsRegistersAndIsSent) {
    const auto client = getConnected();
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client, SdkClient::mInstance);
    EXPECT_EQ(listener.calls()[0].status, kUp);
    EXPECT_NE(listener.calls()[0].thread, std::this_thread::get_id());
    release();

    const FakeBinder::Seen seen = binder.seen();
    EXPECT_EQ(seen.poolStarts, 1);
    EXPECT_EQ(seen.lookups, std::vector<std::string>{"vendor.orn.data.lumservice.ILumService"});
    EXPECT_TRUE(seen.sleeps.empty());
    ASSERT_EQ(seen.links.size(), 1U);
    EXPECT_EQ(seen.links[0].cookie, client.get());
    EXPECT_EQ(service->callback(), std::static_pointer_cast<ILumServiceCallback>(client));
    ASSERT_EQ(service->messages().size(), 2U);
    EXPECT_EQ(service->messages()[0].type, 5);
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
}

TEST_F(SdkClientTest, SecondTypeSharesTheThreadAndHearsServiceUpAtOnce) {
    binder.serve(nullptr);
    Counter sleeping;
    Counter wake;
    binder.onSleep([&] {
        sleeping.add();
        wake.waitFor();
    });
    const auto client = get(kSdf, listener);
    ASSERT_TRUE(sleeping.waitFor());  // the service is unreachable

    const ListenerRecord second;
    EXPECT_EQ(get(kOther, second), client);
    const auto heardAtOnce = second.calls();
    binder.serve(service);
    wake.add();
    ASSERT_TRUE(listener.waitForCalls(1));
    ASSERT_EQ(heardAtOnce.size(), 1U);
    EXPECT_EQ(heardAtOnce[0].status, kUp);
    EXPECT_EQ(heardAtOnce[0].thread, std::this_thread::get_id());
    EXPECT_TRUE(heardAtOnce[0].bytes.empty());

    SdkClient::destroyInstance(kOther);  // changes the active types, nothing else
    EXPECT_FALSE(client->isActive(kOther));
    EXPECT_TRUE(client->isActive(kSdf));
    EXPECT_TRUE(client->isRunning());
    EXPECT_EQ(SdkClient::mInstance, client);
    client->notifyReceivedBlob(kOther, {9});
    EXPECT_EQ(second.statuses(), (Statuses{kUp, kReceived}));
    release();
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, GetWhileShuttingDownGivesNothing) {
    Counter sending;
    Counter proceed;
    service->mOnBlob = [&](const FakeService::Message& message) {
        if (message.blob != Bytes{1}) return;
        sending.add();
        proceed.waitFor();
    };
    get(kSdf, listener);
    ASSERT_TRUE(sending.waitFor());
    std::thread destroyer([] { release(); });
    while (lum::utils::loadShared(SdkClient::mInstance)->isActive(kSdf)) std::this_thread::yield();

    const ListenerRecord late;
    for (int i = 0; i < 100; ++i) EXPECT_EQ(get(kOther, late), nullptr);
    EXPECT_EQ(late.copies(), 0);
    EXPECT_TRUE(late.calls().empty());
    proceed.add();
    destroyer.join();
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

// ---- connecting

TEST_F(SdkClientTest, SixAttemptsWithDoublingSleepsThenTheRequestIsDropped) {
    // Nobody is there for the first request, a stranger for the second, and for the third a service
    // that dies at once each time.
    binder.serve(nullptr);
    int sleeps = 0;
    binder.onSleep([&] {
        ++sleeps;
        if (sleeps == 6) binder.serve(ndk::SharedRefBase::make<NotTheService>());
        if (sleeps != 12) return;
        binder.serve(service);
        binder.refuseLinks(6);
    });
    const auto client = get(kSdf, listener);
    client->postEvent(makeEvent(kSdf, {2}));
    client->postEvent(makeEvent(kSdf, {3}));
    release();
    std::vector<unsigned> expected;
    for (int request = 0; request < 3; ++request) {
        expected.insert(expected.end(), {50000, 100000, 200000, 400000, 800000, 1600000});
    }
    EXPECT_EQ(binder.seen().sleeps, expected);
    EXPECT_EQ(binder.seen().lookups.size(), 18U);
    EXPECT_TRUE(listener.calls().empty());
    EXPECT_TRUE(service->messages().empty());
    EXPECT_EQ(service->callback(), nullptr);
    EXPECT_FALSE(client->isConnected(kSdf));
    EXPECT_FALSE(client->sendBlobToService(kSdf, {4}));
}

TEST_F(SdkClientTest, RefusedRegistrationIsSilentAndRequestsAreStillSent) {
    const LogCapture log;
    service->mRefuseCallback = true;
    const auto client = get(kSdf, listener);
    client->postEvent(makeEvent(kSdf, {2}));
    release();
    EXPECT_TRUE(listener.calls().empty());
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {2}, {0xEE}}));
    EXPECT_EQ(binder.seen().lookups.size(), 1U);
    for (const LogLine& line : log.lines()) EXPECT_EQ(line.priority, 3) << line.text;
}

TEST_F(SdkClientTest, ConnectingWhenConnectedOnlyReportsServiceUp) {
    getConnected()->connectLumSdkClient(kSdf);
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kUp}));
    EXPECT_EQ(binder.seen().lookups.size(), 1U);
    EXPECT_EQ(binder.seen().poolStarts, 1);
}

// ---- sending and receiving

TEST_F(SdkClientTest, RefusedSendIsReportedOnceOnTheSdkThread) {
    service->mRefuseBlobs = true;
    get(kSdf, listener);
    ASSERT_TRUE(listener.waitForCalls(2));
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kFailed}));
    EXPECT_EQ(listener.calls()[0].thread, listener.calls()[1].thread);
    EXPECT_NE(listener.calls()[1].thread, std::this_thread::get_id());
    release();
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kFailed, kFailed}));  // the last send, too
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, TypesAreConvertedBothWays) {
    const auto toService = [](int type) {
        return static_cast<int>(
            SdkClient::convertLumSdkTypeToAidl(static_cast<LumSdkClientType>(type)));
    };
    const auto fromService = [](int type) {
        return static_cast<int>(SdkClient::convertAidlSdkTypeToSdk(static_cast<LumSdkType>(type)));
    };
    for (int type = 1; type <= 6; ++type) {
        EXPECT_EQ(toService(type), type);
        EXPECT_EQ(fromService(type), type);
    }
    for (int type = 8; type <= 12; ++type) {
        EXPECT_EQ(toService(type), type - 1);
        EXPECT_EQ(fromService(type - 1), type);
    }
    for (const int type : {-1, 0, 7, 13, 14}) EXPECT_EQ(toService(type), 0) << type;
    for (const int type : {-1, 0, 12, 13}) EXPECT_EQ(fromService(type), 0) << type;
}

TEST_F(SdkClientTest, TypeSevenTravelsAsZeroAndZeroComesBackAsZero) {
    constexpr auto seven = static_cast<LumSdkClientType>(7);
    const ListenerRecord none;
    const auto client = getConnected(seven, listener);
    get(LUM_SDK_CLIENT_NONE, none);
    for (const int type : {0, 12, 99, -3}) {
        EXPECT_TRUE(client->sendBlob(static_cast<LumSdkType>(type), {4}).isOk());
    }
    EXPECT_EQ(none.statuses(), (Statuses{kUp, kReceived, kReceived, kReceived, kReceived}));
    EXPECT_EQ(listener.statuses(), Statuses{kUp});
    SdkClient::destroyInstance(LUM_SDK_CLIENT_NONE);
    release(seven);
    EXPECT_EQ(service->messages()[0].type, 0);
}

TEST_F(SdkClientTest, BlobsReachTheListenerOfTheirTypeOnTheDeliveringThread) {
    getConnected();
    const auto callback = service->callback();
    ASSERT_NE(callback, nullptr);
    EXPECT_TRUE(callback->sendBlob(static_cast<LumSdkType>(5), {1, 2, 3}).isOk());
    EXPECT_TRUE(callback->sendBlob(static_cast<LumSdkType>(6), {4}).isOk());  // nobody's
    EXPECT_TRUE(callback->sendBlob(static_cast<LumSdkType>(5), {}).isOk());
    ASSERT_EQ(listener.statuses(), (Statuses{kUp, kReceived, kReceived}));
    EXPECT_EQ(listener.calls()[1].bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(listener.calls()[1].thread, std::this_thread::get_id());
    EXPECT_TRUE(listener.calls()[2].bytes.empty());
}

// On the service's threads: at a message, and at its death, where it ends the walk.
TEST_F(SdkClientTest, WhatAListenerThrowsEndsThereAndIsLogged) {
    const LogCapture log;
    bool anException = true;
    const ListenerRecord throwing([&](SdkClientBase::SdkStatus status) {
        if (status == kUp) return;
        if (anException) throw std::runtime_error("oh");
        throw 42;
    });
    const ListenerRecord behind;
    const auto client = getConnected(kSdf, throwing);
    get(kOther, behind);
    waitForMessages(2);
    EXPECT_TRUE(client->sendBlob(static_cast<LumSdkType>(5), {1}).isOk());
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at a message: oh")), 1U);
    SdkClient::deathCallback(client.get());
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at service down: oh")), 1U);
    EXPECT_FALSE(client->isConnected(kSdf));
    anException = false;
    EXPECT_TRUE(client->sendBlob(static_cast<LumSdkType>(5), {2}).isOk());
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at a message")), 1U);
    SdkClient::deathCallback(client.get());
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at service down")), 1U);
    EXPECT_EQ(throwing.statuses(), (Statuses{kUp, kReceived, kDown, kReceived, kDown}));
    EXPECT_EQ(behind.statuses(), Statuses{kUp});
}

// ---- the service's death

TEST_F(SdkClientTest, DeathIsReportedToEveryListenerOnceAndTheNextRequestReconnects) {
    std::vector<int> order;
    // The dead service counts as connected until everybody knows.
    const auto note = [&order](SdkClientBase::SdkStatus status, int type) {
        if (status != kDown) return;
        order.push_back(type);
        EXPECT_TRUE(lum::utils::loadShared(SdkClient::mInstance)->isConnected(kSdf));
    };
    const ListenerRecord first([&](SdkClientBase::SdkStatus status) { note(status, 5); });
    const ListenerRecord second([&](SdkClientBase::SdkStatus status) { note(status, 6); });
    const auto client = getConnected(kOther, second);
    get(kSdf, first);
    waitForMessages(2);
    SdkClient::deathCallback(binder.seen().links[0].cookie);
    EXPECT_EQ(order, (std::vector<int>{5, 6}));
    EXPECT_FALSE(client->isConnected(kSdf));

    // Gone, then back.
    binder.serve(nullptr);
    int sleeps = 0;
    binder.onSleep([&] {
        if (++sleeps == 2) binder.serve(service);
    });
    client->postEvent(makeEvent(kSdf, {7}));
    SdkClient::destroyInstance(kOther);
    release();
    EXPECT_EQ(binder.seen().sleeps, (std::vector<unsigned>{50000, 100000}));
    EXPECT_EQ(binder.seen().links.size(), 2U);
    EXPECT_EQ(service->blobs().back(), Bytes{0xEE});
}

TEST_F(SdkClientTest, DeathNotificationsAreReportedWhenTheyNameALivingObject) {
    const auto client = getConnected();
    waitForMessages(1);
    int stranger = 0;
    SdkClient::deathCallback(nullptr);
    SdkClient::deathCallback(&stranger);
    EXPECT_TRUE(client->isConnected(kSdf));
    EXPECT_EQ(listener.statuses(), Statuses{kUp});
    void* const cookie = binder.seen().links[0].cookie;
    SdkClient::deathCallback(cookie);
    EXPECT_FALSE(client->isConnected(kSdf));
    SdkClient::deathCallback(cookie);  // also without a service
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kDown, kDown}));
}

TEST_F(SdkClientTest, ListenersAreLookedUpWhenTheirTurnComes) {
    const ListenerRecord replaced;
    const ListenerRecord replacing;
    const ListenerRecord added;
    const ListenerRecord missed;
    const ListenerRecord five([&](SdkClientBase::SdkStatus status) {
        if (status != kDown) return;
        const auto client = lum::utils::loadShared(SdkClient::mInstance);
        client->setClientListener(kOther, replacing);
        client->setClientListener(static_cast<LumSdkClientType>(9), added);
        client->setClientListener(static_cast<LumSdkClientType>(4), missed);  // its turn is over
    });
    const auto client = getConnected(kSdf, five);
    get(kOther, replaced);
    waitForMessages(2);
    client->notifyServiceDown(LUM_SDK_CLIENT_NONE);
    EXPECT_EQ(five.statuses(), (Statuses{kUp, kDown}));
    EXPECT_EQ(replaced.statuses(), Statuses{kUp});
    EXPECT_EQ(replacing.statuses(), Statuses{kDown});
    EXPECT_EQ(added.statuses(), Statuses{kDown});
    EXPECT_TRUE(missed.calls().empty());
}

TEST_F(SdkClientTest, EmptyEntryEndsTheWalkAndTheServiceIsStillReleased) {
    const LogCapture log;
    constexpr auto nine = static_cast<LumSdkClientType>(9);
    const ListenerRecord behind;
    const auto client = getConnected();
    get(nine, behind);
    client->setClientListener(kOther, nullptr);
    waitForMessages(2);
    EXPECT_THROW(client->notifyServiceDown(LUM_SDK_CLIENT_NONE), std::bad_function_call);
    SdkClient::deathCallback(client.get());
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kDown, kDown}));
    EXPECT_EQ(behind.statuses(), Statuses{kUp});
    EXPECT_FALSE(client->isConnected(kSdf));
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at service down: bad_function_call")),
              1U);
    SdkClient::destroyInstance(nine);
}

TEST_F(SdkClientTest, DeathDuringASendLeavesTheCallItsService) {
    long holdersInTheCall = 0;
    service->mOnBlob = [&](const FakeService::Message& message) {
        if (message.blob != Bytes{2}) return;
        std::thread([this] { SdkClient::deathCallback(binder.seen().links[0].cookie); }).join();
        holdersInTheCall = service.use_count();
    };
    const auto client = getConnected();
    binder.serve(nullptr);
    client->postEvent(makeEvent(kSdf, {2}));
    ASSERT_TRUE(listener.waitForCalls(2));
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kDown}));
    release();
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {2}}));
    EXPECT_EQ(holdersInTheCall, service.use_count() + 1);
}

TEST_F(SdkClientTest, DeathAfterTheTeardownTouchesNothing) {
    const std::weak_ptr<SdkClient> client = getConnected();
    void* const cookie = binder.seen().links[0].cookie;
    release();
    SdkClient::deathCallback(cookie);  // torn down, still held by the service
    service->dropCallback();
    ASSERT_TRUE(goes(client));
    SdkClient::deathCallback(cookie);  // freed
    EXPECT_EQ(listener.statuses(), Statuses{kUp});
}

TEST_F(SdkClientTest, DeathsDuringTeardownsTouchNothingFreed) {
    for (int round = 0; round < 200; ++round) {
        getConnected(kSdf, ListenerRecord());
        void* const cookie = binder.seen().links.back().cookie;
        std::atomic<bool> stop{false};
        std::thread reaper([&] {
            while (!stop) SdkClient::deathCallback(cookie);
        });
        release();
        service->dropCallback();
        stop = true;
        reaper.join();
    }
}

// ---- teardown

// A proxy that goes with a link on it takes its registration back late, and the next client's with
// it. Unlinking names the instance pointer, and so changes nothing.
TEST_F(SdkClientTest, LinkAndItsProxyStayUntilTheRecipientIsDeletedWithTheObject) {
    AIBinder* const proxy = service->asBinder().get();
    const int32_t before = AIBinder_debugGetRefCount(proxy);
    const std::weak_ptr<SdkClient> client = getConnected();
    release();
    EXPECT_EQ(AIBinder_debugGetRefCount(proxy), before + 1);  // nothing but the link needs it
    const FakeBinder::Seen seen = binder.seen();
    ASSERT_EQ(seen.unlinks.size(), 1U);
    EXPECT_EQ(seen.unlinks[0].cookie, &SdkClient::mInstance);
    EXPECT_EQ(seen.unlinks[0].binder, seen.links[0].binder);
    EXPECT_EQ(seen.unlinks[0].recipient, seen.links[0].recipient);
    EXPECT_EQ(seen.deathCalls, (std::vector<std::string>{"new", "link", "unlink nothing"}));

    service->dropCallback();
    ASSERT_TRUE(goes(client));
    const std::vector<std::string> calls{"new", "link", "unlink nothing", "unlink", "delete"};
    EXPECT_TRUE(eventually([&] { return binder.seen().deathCalls == calls; }));
    EXPECT_TRUE(eventually([&] { return AIBinder_debugGetRefCount(proxy) == before; }));
}

TEST_F(SdkClientTest, PreviousLinkEndsBeforeItsRecipientWhenConnectingAgain) {
    const auto client = getConnected();
    waitForMessages(1);
    SdkClient::deathCallback(binder.seen().links[0].cookie);
    binder.refuseLinks(1);
    client->postEvent(makeEvent(kSdf, {2}));
    waitForMessages(2);
    EXPECT_EQ(binder.seen().deathCalls,
              (std::vector<std::string>{"new", "link",               // connected
                                        "new", "unlink", "delete",   // a link that is refused
                                        "new", "delete", "link"}));  // connected again
}

TEST_F(SdkClientTest, InstanceIsGoneBeforeItsEventManagerIs) {
    std::vector<bool> gone;
    getConnected();
    const LogCapture log([&gone](const LogLine& line) {
        if (line.text == "EventManager: dtor") {
            gone.push_back(lum::utils::loadShared(SdkClient::mInstance) == nullptr);
        }
    });
    release();
    EXPECT_EQ(gone, std::vector<bool>{true});
}

TEST_F(SdkClientTest, ServiceMayKeepTheCallbackPastTheTeardown) {
    std::weak_ptr<SdkClient> watched;
    {
        const auto client = getConnected();
        watched = client;
        release();
        // Takes the numbers that the manager's descriptors had.
        std::vector<int> counters(8);
        for (int& counter : counters) counter = eventfd(0, EFD_NONBLOCK);
        client->postEvent(makeEvent(kSdf, {9}));
        for (const int counter : counters) {
            eventfd_t value = 0;
            EXPECT_EQ(eventfd_read(counter, &value), -1);
            close(counter);
        }
    }
    EXPECT_FALSE(watched.expired());
    EXPECT_TRUE(service->callback()->sendBlob(static_cast<LumSdkType>(5), {1}).isOk());
    EXPECT_EQ(listener.statuses(), Statuses{kUp});
    EXPECT_EQ(listener.copies(), 0);
    service->dropCallback();
    EXPECT_TRUE(goes(watched));
}

TEST_F(SdkClientTest, DestroyMayFollowGetAtOnce) {
    service->mRefuseCallback = true;  // nobody but the object itself could keep it
    for (int round = 0; round < 1000; ++round) {
        const std::weak_ptr<SdkClient> client = get(kSdf, listener);
        release();
        EXPECT_EQ(SdkClient::mInstance, nullptr);
        ASSERT_TRUE(goes(client));
        EXPECT_EQ(listener.copies(), 0);
    }
    EXPECT_EQ(service->messages().size(), 2000U);
}

// Whatever a client posts between joining the transport and its release event, that one included,
// is sent, once and in order; the transport is there exactly while somebody uses it.
TEST_F(SdkClientTest, TwoTypesThatComeAndGoOnTwoThreadsLoseNothing) {
    constexpr uint8_t kRounds = 255;
    std::mutex lifecycle;  // getting and destroying never happen at the same time
    const auto comeAndGo = [&](LumSdkClientType type, LumSdkClientType other) {
        for (uint8_t round = 0; round < kRounds; ++round) {
            std::unique_lock<std::mutex> lock(lifecycle);
            const auto client = get(type, ListenerRecord(), {round, 0});
            ASSERT_NE(client, nullptr);
            ASSERT_EQ(client, SdkClient::mInstance);
            lock.unlock();
            client->postEvent(makeEvent(type, {round, 1}));
            lock.lock();
            client->postEvent(makeEvent(type, {round, 2}, true));
            // If the other left before this is handled, it would end the loop, and drop what the
            // other has queued behind it.
            while (client->isActive(other) && client->isActive(type)) std::this_thread::yield();
            SdkClient::destroyInstance(type);
        }
    };
    std::thread second([&] { comeAndGo(kOther, kSdf); });
    comeAndGo(kSdf, kOther);
    second.join();
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    std::vector<Bytes> posted;
    for (uint8_t round = 0; round < kRounds; ++round) {
        for (uint8_t part = 0; part < 3; ++part) posted.push_back({round, part});
    }
    for (const int type : {5, 6}) {
        std::vector<Bytes> sent;
        for (const FakeService::Message& message : service->messages()) {
            if (message.type == type) sent.push_back(message.blob);
        }
        EXPECT_EQ(sent, posted) << type;
    }
}

TEST_F(SdkClientTest, DestroyOnTheSdkThreadIsFinishedByThatThread) {
    const auto client = getAndRun([] {
        release();
        EXPECT_EQ(lum::utils::loadShared(SdkClient::mInstance), nullptr);
    });
    EXPECT_TRUE(goes(client));
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
    const std::vector<std::string> calls{"new", "link", "unlink nothing", "unlink", "delete"};
    EXPECT_TRUE(eventually([&] { return binder.seen().deathCalls == calls; }));
}

TEST_F(SdkClientTest, DestroyAndCreateOnTheSdkThread) {
    const auto first = getAndRun([this] {
        release();
        EXPECT_NE(get(kSdf, listener, {2}), nullptr);
    });
    ASSERT_TRUE(listener.waitForCalls(1));
    EXPECT_TRUE(goes(first));
    EXPECT_NE(SdkClient::mInstance, nullptr);
    release();
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, NewInstanceMayBeMadeWhileTheOldOneIsTornDown) {
    for (size_t round = 1; round <= 200; ++round) {
        const auto first = getAndRun([] { release(); });
        const std::weak_ptr<SdkClient> second = get(kSdf, listener);
        EXPECT_FALSE(second.expired());
        release();
        EXPECT_EQ(SdkClient::mInstance, nullptr);
        ASSERT_TRUE(goes(first));
        ASSERT_TRUE(goes(second));
        EXPECT_EQ(service->messages().size(), 4 * round);
    }
}

TEST_F(SdkClientTest, NewInstanceMayBeDestroyedOnTheOldOnesThread) {
    std::weak_ptr<SdkClient> second;
    const auto first = getAndRun([&] {
        release();
        second = get(kSdf, listener, {2});
        release();
    });
    EXPECT_TRUE(goes(first));
    EXPECT_TRUE(goes(second));
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, PublishedPointerIsInPlaceBeforeTheFirstEventIsHandled) {
    std::shared_ptr<SdkClientBase> published;
    std::atomic<bool> there{false};
    const ListenerRecord looking(
        [&](SdkClientBase::SdkStatus) { there = lum::utils::loadShared(published) != nullptr; });
    EXPECT_NE(SdkClient::getInstance(kSdf, looking, makeEvent(kSdf, {1}), &published), nullptr);
    ASSERT_TRUE(looking.waitForCalls(1));
    release();
    EXPECT_TRUE(there);
}

// ---- what the machine may refuse

TEST_F(SdkClientTest, ThreadRefusedIsRolledBackWhole) {
    const LogCapture log;
    std::shared_ptr<SdkClientBase> published;
    {
        const ThreadRefusal refused;
        EXPECT_EQ(SdkClient::getInstance(kSdf, listener, makeEvent(kSdf, {1}), &published),
                  nullptr);
    }
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    EXPECT_EQ(published, nullptr);
    EXPECT_EQ(listener.copies(), 0);
    EXPECT_TRUE(log.has(logE(
        "SdkClient: no SDK thread (Resource temporarily unavailable); the transport is not started")));
    getConnected();
    release();
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
}

TEST_F(SdkClientTest, NoDescriptorForTheQueueIsRolledBackWhole) {
    const LogCapture log;
    {
        const DescriptorLimit three(3);  // enough for the event manager alone
        EXPECT_EQ(get(kSdf, listener), nullptr);
    }
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    EXPECT_EQ(listener.copies(), 0);
    EXPECT_TRUE(log.has(
        logE("SdkClient: no descriptor for the event queue; the transport is not started")));
    const DescriptorLimit four(4);
    EXPECT_NE(getConnected(), nullptr);
}

TEST_F(SdkClientTest, FirstGetThatRunsOutOfMemoryLeavesNothing) {
    const size_t descriptors = openDescriptors();
    const auto event = makeEvent(kSdf, {1});
    std::shared_ptr<SdkClientBase> published;
    std::shared_ptr<SdkClient> client;
    const long allocations = allocationsNeeded(
        [&] { client = SdkClient::getInstance(kSdf, listener, event, &published); },
        [&] {
            EXPECT_EQ(SdkClient::mInstance, nullptr);
            EXPECT_EQ(published, nullptr);
            EXPECT_EQ(listener.copies(), 0);
            EXPECT_EQ(openDescriptors(), descriptors);
        });
    EXPECT_GT(allocations, 5);
    EXPECT_EQ(published, client);
    ASSERT_TRUE(listener.waitForCalls(1));
}

// What it hears takes no memory.
TEST_F(SdkClientTest, SecondGetThatRunsOutOfMemoryLeavesTheTypeUnused) {
    const auto client = getConnected();
    const auto ups = std::make_shared<std::atomic<int>>(0);
    const SdkClientBase::Listener second = [ups](SdkClientBase::SdkStatus status, const Bytes&) {
        if (status == kUp) ++*ups;
    };
    // The queue gets to where it has to allocate, so that posting is among what fails.
    EXPECT_THROW(
        {
            const auto queued = makeEvent(kSdf, {7});
            const AllocationLimit none(0);
            for (;;) client->postEvent(queued);
        },
        std::bad_alloc);
    const auto event = makeEvent(kOther, {2});
    std::shared_ptr<SdkClientBase> published;
    const long allocations = allocationsNeeded(
        [&] { EXPECT_NE(SdkClient::getInstance(kOther, second, event, &published), nullptr); },
        [&] {
            EXPECT_FALSE(client->isActive(kOther));
            EXPECT_EQ(published, nullptr);
            EXPECT_EQ(event.use_count(), 1);
            EXPECT_EQ(*ups, 0);
        });
    EXPECT_EQ(allocations, 4);  // two copies of the listener, its entry, the queue
    EXPECT_EQ(published, client);
    EXPECT_EQ(*ups, 1);
    release(kOther);
    release();
    const std::vector<Bytes> blobs = service->blobs();
    EXPECT_EQ(std::count(blobs.begin(), blobs.end(), Bytes{2}), 1);
}

}  // namespace
