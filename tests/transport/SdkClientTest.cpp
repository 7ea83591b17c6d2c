// SPDX-License-Identifier: Apache-2.0
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <stdexcept>

#include "tests/support/AllocationLimit.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/transport/FakeBinder.h"
#include "tests/transport/ListenerRecord.h"
#include "tools/emulator/ProcessStats.h"
#include "transport/SdkClient.h"

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

const std::vector<unsigned> kBackOff{50000, 100000, 200000, 400000, 800000, 1600000};

std::vector<unsigned> times(const std::vector<unsigned>& sleeps, int count) {
    std::vector<unsigned> all;
    for (int i = 0; i < count; ++i) all.insert(all.end(), sleeps.begin(), sleeps.end());
    return all;
}

// A stranger under the service's name.
class NotTheService : public BnLumServiceCallback {
    ndk::ScopedAStatus sendBlob(LumSdkType /*type*/, const Bytes& /*blob*/) override {
        return ndk::ScopedAStatus::ok();
    }
};

class SdkClientTest : public testing::Test {
  protected:
    SdkClientTest() { binder.serve(service); }
    ~SdkClientTest() override { service->dropCallback(); }

    std::shared_ptr<SdkClient> get(LumSdkClientType type, const ListenerRecord& listener,
                                   Bytes first = {1}) {
        return SdkClient::getInstance(type, listener, makeEvent(type, std::move(first)));
    }
    // Brings the transport up, connected, for one type.
    std::shared_ptr<SdkClient> getConnected(LumSdkClientType type, const ListenerRecord& listener) {
        auto client = get(type, listener);
        EXPECT_TRUE(listener.waitForCalls(1));
        return client;
    }
    static void release(LumSdkClientType type) {
        if (const auto client = std::atomic_load(&SdkClient::mInstance)) {
            client->postEvent(makeEvent(type, {0xEE}, true));
        }
        SdkClient::destroyInstance(type);
    }
    void waitForMessages(size_t count) const {
        while (service->messages().size() < count) std::this_thread::yield();
    }
    // Posts until there is no memory for the next event.
    static void postWithoutMemory(SdkClient& client) {
        const auto event = makeEvent(kSdf, {7});
        try {
            const AllocationLimit none(0);
            for (;;) client.postEvent(event);
        } catch (const std::bad_alloc&) {
        }
    }
    // True once nobody holds the object any more.
    static bool goes(const std::weak_ptr<SdkClient>& client) {
        for (auto limit = std::chrono::steady_clock::now() + kLimit; !client.expired();) {
            if (std::chrono::steady_clock::now() > limit) return false;
            std::this_thread::yield();
        }
        return true;
    }

    std::shared_ptr<FakeService> service = ndk::SharedRefBase::make<FakeService>();
    FakeBinder binder;
};

// ---- getting the transport

TEST_F(SdkClientTest, EmptyFirstEventGivesNothing) {
    const ListenerRecord listener;
    EXPECT_EQ(SdkClient::getInstance(kSdf, listener, nullptr), nullptr);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    EXPECT_EQ(listener.copies(), 0);

    getConnected(kSdf, listener);
    const ListenerRecord other;
    EXPECT_EQ(SdkClient::getInstance(kOther, other, nullptr), nullptr);
    EXPECT_FALSE(SdkClient::mInstance->isActive(kOther));
    EXPECT_EQ(other.copies(), 0);
    EXPECT_TRUE(other.calls().empty());
    release(kSdf);
}

TEST_F(SdkClientTest, UnknownTypeGivesNothing) {
    const ListenerRecord listener;
    EXPECT_EQ(get(static_cast<LumSdkClientType>(14), listener), nullptr);
    EXPECT_EQ(get(static_cast<LumSdkClientType>(-1), listener), nullptr);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    EXPECT_EQ(listener.copies(), 0);
}

TEST_F(SdkClientTest, FirstEventConnectsRegistersAndIsSent) {
    const ListenerRecord listener;
    const auto client = getConnected(kSdf, listener);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client, SdkClient::mInstance);
    EXPECT_EQ(listener.calls()[0].status, kUp);
    EXPECT_NE(listener.calls()[0].thread, std::this_thread::get_id());
    release(kSdf);

    EXPECT_EQ(binder.poolStarts(), 1);
    EXPECT_EQ(binder.lookups(), std::vector<std::string>{"vendor.orn.data.lumservice.ILumService"});
    EXPECT_TRUE(binder.sleeps().empty());
    ASSERT_EQ(binder.links().size(), 1U);
    EXPECT_EQ(binder.links()[0].cookie, client.get());
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
    const ListenerRecord first;
    const auto client = get(kSdf, first);
    ASSERT_TRUE(sleeping.waitFor());  // the service is unreachable

    const ListenerRecord second;
    EXPECT_EQ(get(kOther, second), client);
    ASSERT_EQ(second.statuses(), Statuses{kUp});
    EXPECT_EQ(second.calls()[0].thread, std::this_thread::get_id());
    EXPECT_TRUE(second.calls()[0].bytes.empty());

    binder.serve(service);
    wake.add();
    ASSERT_TRUE(first.waitForCalls(1));
    client->postEvent(makeEvent(kOther, {2}));
    release(kOther);
    EXPECT_TRUE(client->isRunning());
    EXPECT_EQ(SdkClient::mInstance, client);
    EXPECT_TRUE(client->isActive(kSdf));
    release(kSdf);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, DestroyOfOneOfTwoTypesChangesOnlyTheSet) {
    const ListenerRecord first;
    const ListenerRecord second;
    const auto client = getConnected(kSdf, first);
    get(kOther, second);
    SdkClient::destroyInstance(kOther);
    EXPECT_FALSE(client->isActive(kOther));
    EXPECT_TRUE(client->isActive(kSdf));
    EXPECT_TRUE(client->isRunning());
    EXPECT_EQ(SdkClient::mInstance, client);
    client->notifyReceivedBlob(kOther, {9});
    EXPECT_EQ(second.statuses().back(), kReceived);  // the listener is still there
    release(kSdf);
}

TEST_F(SdkClientTest, DestroyWithoutInstanceDoesNothing) {
    SdkClient::destroyInstance(kSdf);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, ALaterGetBuildsAFreshOne) {
    const ListenerRecord listener;
    const std::weak_ptr<SdkClient> first = getConnected(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    service->dropCallback();
    EXPECT_TRUE(goes(first));

    const ListenerRecord again;
    EXPECT_NE(getConnected(kSdf, again), nullptr);
    release(kSdf);
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}, {1}, {0xEE}}));
}

TEST_F(SdkClientTest, GetWhileShuttingDownGivesNothing) {
    Counter sending;
    Counter proceed;
    service->mOnBlob = [&](const FakeService::Message& message) {
        if (message.blob != Bytes{1}) return;
        sending.add();
        proceed.waitFor();
    };
    const ListenerRecord listener;
    get(kSdf, listener);
    ASSERT_TRUE(sending.waitFor());
    std::thread destroyer([] { release(kSdf); });
    while (std::atomic_load(&SdkClient::mInstance)->isActive(kSdf)) std::this_thread::yield();

    const ListenerRecord late;
    for (int i = 0; i < 100; ++i) EXPECT_EQ(get(kOther, late), nullptr);
    EXPECT_EQ(late.copies(), 0);
    EXPECT_TRUE(late.calls().empty());
    proceed.add();
    destroyer.join();
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, GetAfterTheLastReleaseWasHandledGivesNothing) {
    const ListenerRecord listener;
    const auto client = getConnected(kSdf, listener);
    client->postEvent(makeEvent(kSdf, {2}, true));
    while (client->isRunning()) std::this_thread::yield();
    const ListenerRecord late;
    EXPECT_EQ(get(kOther, late), nullptr);
    EXPECT_EQ(late.copies(), 0);
    SdkClient::destroyInstance(kSdf);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

// ---- connecting

TEST_F(SdkClientTest, SixAttemptsWithDoublingSleepsThenTheRequestIsDropped) {
    binder.serve(nullptr);
    const ListenerRecord listener;
    get(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), kBackOff);
    EXPECT_EQ(binder.lookups().size(), 6U);
    EXPECT_TRUE(listener.calls().empty());
    EXPECT_TRUE(service->messages().empty());
}

TEST_F(SdkClientTest, EachRequestTriesAgainFromFiftyMilliseconds) {
    binder.serve(nullptr);
    const ListenerRecord listener;
    const auto client = get(kSdf, listener);
    client->postEvent(makeEvent(kSdf, {2}));
    client->postEvent(makeEvent(kSdf, {3}));
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), times(kBackOff, 3));
    EXPECT_TRUE(listener.calls().empty());
}

TEST_F(SdkClientTest, ServiceFoundAtTheThirdAttempt) {
    binder.serve(nullptr);
    std::atomic<int> sleeps{0};
    binder.onSleep([&] {
        if (++sleeps == 2) binder.serve(service);
    });
    const ListenerRecord listener;
    getConnected(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), (std::vector<unsigned>{50000, 100000}));
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
}

TEST_F(SdkClientTest, RefusedDeathLinkCountsAsAFailedAttempt) {
    binder.refuseLinks(2);
    const ListenerRecord listener;
    getConnected(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), (std::vector<unsigned>{50000, 100000}));
    EXPECT_EQ(binder.lookups().size(), 3U);
}

TEST_F(SdkClientTest, DeathLinkRefusedEveryTimeIsNoConnection) {
    binder.refuseLinks(6);
    const ListenerRecord listener;
    const auto client = get(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), kBackOff);
    EXPECT_EQ(service->callback(), nullptr);
    EXPECT_TRUE(service->messages().empty());
    EXPECT_TRUE(listener.calls().empty());
    EXPECT_FALSE(client->isConnected(kSdf));
}

TEST_F(SdkClientTest, StrangerUnderTheNameCountsAsAFailedAttempt) {
    binder.serve(ndk::SharedRefBase::make<NotTheService>());
    const ListenerRecord listener;
    get(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), kBackOff);
    EXPECT_TRUE(listener.calls().empty());
}

TEST_F(SdkClientTest, RefusedRegistrationIsSilentAndRequestsAreStillSent) {
    const LogCapture log;
    service->mRefuseCallback = true;
    const ListenerRecord listener;
    const auto client = get(kSdf, listener);
    client->postEvent(makeEvent(kSdf, {2}));
    release(kSdf);
    EXPECT_TRUE(listener.calls().empty());
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {2}, {0xEE}}));
    EXPECT_EQ(binder.lookups().size(), 1U);
    for (const LogLine& line : log.lines()) EXPECT_EQ(line.priority, 3) << line.text;
}

TEST_F(SdkClientTest, ConnectingWhenConnectedOnlyReportsServiceUp) {
    const ListenerRecord listener;
    const auto client = getConnected(kSdf, listener);
    client->connectLumSdkClient(kSdf);
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kUp}));
    EXPECT_EQ(binder.lookups().size(), 1U);
    EXPECT_EQ(binder.poolStarts(), 1);
    release(kSdf);
}

// ---- sending and receiving

TEST_F(SdkClientTest, RefusedSendIsReportedOnceOnTheSdkThread) {
    service->mRefuseBlobs = true;
    const ListenerRecord listener;
    get(kSdf, listener);
    ASSERT_TRUE(listener.waitForCalls(2));
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kFailed}));
    EXPECT_EQ(listener.calls()[0].thread, listener.calls()[1].thread);
    EXPECT_NE(listener.calls()[1].thread, std::this_thread::get_id());
    release(kSdf);
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kFailed, kFailed}));  // the last send, too
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, SendingWithoutServiceFails) {
    binder.serve(nullptr);
    const ListenerRecord listener;
    const auto client = get(kSdf, listener);
    EXPECT_FALSE(client->sendBlobToService(kSdf, {1}));
    EXPECT_FALSE(client->isConnected(kSdf));
    release(kSdf);
}

TEST_F(SdkClientTest, TypesAreConvertedBothWays) {
    const std::vector<int> toService{0, 1, 2, 3, 4, 5, 6, 0, 7, 8, 9, 10, 11, 0, 0};
    for (size_t type = 0; type < toService.size(); ++type) {
        EXPECT_EQ(static_cast<int>(
                      SdkClient::convertLumSdkTypeToAidl(static_cast<LumSdkClientType>(type))),
                  toService[type])
            << type;
    }
    EXPECT_EQ(
        static_cast<int>(SdkClient::convertLumSdkTypeToAidl(static_cast<LumSdkClientType>(-1))), 0);
    const std::vector<int> fromService{0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 0, 0};
    for (size_t type = 0; type < fromService.size(); ++type) {
        EXPECT_EQ(
            static_cast<int>(SdkClient::convertAidlSdkTypeToSdk(static_cast<LumSdkType>(type))),
            fromService[type])
            << type;
    }
    EXPECT_EQ(SdkClient::convertAidlSdkTypeToSdk(static_cast<LumSdkType>(-1)), 0);
}

TEST_F(SdkClientTest, TypeSevenTravelsAsZeroAndZeroComesBackAsZero) {
    constexpr auto seven = static_cast<LumSdkClientType>(7);
    const ListenerRecord listener;
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
    const ListenerRecord listener;
    getConnected(kSdf, listener);
    const auto callback = service->callback();
    ASSERT_NE(callback, nullptr);
    EXPECT_TRUE(callback->sendBlob(static_cast<LumSdkType>(5), {1, 2, 3}).isOk());
    EXPECT_TRUE(callback->sendBlob(static_cast<LumSdkType>(6), {4}).isOk());  // nobody's
    EXPECT_TRUE(callback->sendBlob(static_cast<LumSdkType>(5), {}).isOk());
    ASSERT_EQ(listener.statuses(), (Statuses{kUp, kReceived, kReceived}));
    EXPECT_EQ(listener.calls()[1].bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(listener.calls()[1].thread, std::this_thread::get_id());
    EXPECT_TRUE(listener.calls()[2].bytes.empty());
    release(kSdf);
}

TEST_F(SdkClientTest, ListenerThatThrowsAtAMessageEndsThereAndIsLogged) {
    const LogCapture log;
    const ListenerRecord listener([](SdkClientBase::SdkStatus status) {
        if (status == kReceived) throw std::runtime_error("oh");
    });
    const auto client = getConnected(kSdf, listener);
    EXPECT_TRUE(client->sendBlob(static_cast<LumSdkType>(5), {1}).isOk());
    EXPECT_TRUE(log.has(logE("SdkClient: a listener threw at a message: oh")));
    release(kSdf);
}

TEST_F(SdkClientTest, ListenerThatThrowsNoExceptionClassAtAMessageEndsThereToo) {
    const LogCapture log;
    const ListenerRecord listener([](SdkClientBase::SdkStatus status) {
        if (status == kReceived) throw 42;
    });
    const auto client = getConnected(kSdf, listener);
    EXPECT_TRUE(client->sendBlob(static_cast<LumSdkType>(5), {1}).isOk());
    EXPECT_TRUE(client->sendBlob(static_cast<LumSdkType>(5), {2}).isOk());
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at a message")), 2U);
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kReceived, kReceived}));
    release(kSdf);
}

// ---- the service's death

TEST_F(SdkClientTest, DeathIsToldToEveryListenerOnceAndTheNextRequestReconnects) {
    std::vector<int> order;
    // The dead service counts as connected until everybody has been told.
    const auto note = [&order](SdkClientBase::SdkStatus status, int type) {
        if (status != kDown) return;
        order.push_back(type);
        EXPECT_TRUE(std::atomic_load(&SdkClient::mInstance)->isConnected(kSdf));
    };
    const ListenerRecord first([&](SdkClientBase::SdkStatus status) { note(status, 5); });
    const ListenerRecord second([&](SdkClientBase::SdkStatus status) { note(status, 6); });
    const auto client = getConnected(kOther, second);
    get(kSdf, first);
    waitForMessages(2);
    SdkClient::deathCallback(binder.links()[0].cookie);
    EXPECT_EQ(order, (std::vector<int>{5, 6}));
    EXPECT_FALSE(client->isConnected(kSdf));

    // Gone, then back.
    binder.serve(nullptr);
    std::atomic<int> sleeps{0};
    binder.onSleep([&] {
        if (++sleeps == 2) binder.serve(service);
    });
    client->postEvent(makeEvent(kSdf, {7}));
    SdkClient::destroyInstance(kOther);
    release(kSdf);
    EXPECT_EQ(binder.sleeps(), (std::vector<unsigned>{50000, 100000}));
    EXPECT_EQ(binder.links().size(), 2U);
    EXPECT_EQ(service->blobs().back(), Bytes{0xEE});
}

TEST_F(SdkClientTest, DeathOfNobodyIsIgnored) {
    const ListenerRecord listener;
    const auto client = getConnected(kSdf, listener);
    int stranger = 0;
    SdkClient::deathCallback(nullptr);
    SdkClient::deathCallback(&stranger);
    EXPECT_TRUE(client->isConnected(kSdf));
    EXPECT_EQ(listener.statuses(), Statuses{kUp});
    release(kSdf);
}

TEST_F(SdkClientTest, EachDeathNotificationOfALivingObjectIsReported) {
    const ListenerRecord listener;
    const auto client = getConnected(kSdf, listener);
    waitForMessages(1);
    SdkClient::deathCallback(binder.links()[0].cookie);
    EXPECT_FALSE(client->isConnected(kSdf));
    SdkClient::deathCallback(binder.links()[0].cookie);  // also without a service
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kDown, kDown}));
    release(kSdf);
}

TEST_F(SdkClientTest, ListenersAreLookedUpWhenTheirTurnComes) {
    const ListenerRecord replaced;
    const ListenerRecord replacing;
    const ListenerRecord added;
    const ListenerRecord missed;
    const ListenerRecord five([&](SdkClientBase::SdkStatus status) {
        if (status != kDown) return;
        const auto client = std::atomic_load(&SdkClient::mInstance);
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
    SdkClient::destroyInstance(kOther);
    release(kSdf);
}

TEST_F(SdkClientTest, EmptyEntryEndsTheWalkAndTheServiceIsStillReleased) {
    const LogCapture log;
    const ListenerRecord five;
    const ListenerRecord nine;
    const auto client = getConnected(kSdf, five);
    get(static_cast<LumSdkClientType>(9), nine);
    client->setClientListener(kOther, nullptr);
    waitForMessages(2);
    EXPECT_THROW(client->notifyServiceDown(LUM_SDK_CLIENT_NONE), std::bad_function_call);
    EXPECT_EQ(five.statuses(), (Statuses{kUp, kDown}));
    EXPECT_EQ(nine.statuses(), Statuses{kUp});

    SdkClient::deathCallback(client.get());
    EXPECT_EQ(five.statuses(), (Statuses{kUp, kDown, kDown}));
    EXPECT_EQ(nine.statuses(), Statuses{kUp});
    EXPECT_FALSE(client->isConnected(kSdf));
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at service down: bad_function_call")),
              1U);
    SdkClient::destroyInstance(static_cast<LumSdkClientType>(9));
    release(kSdf);
}

TEST_F(SdkClientTest, ListenerThatThrowsNoExceptionClassAtADeathEndsTheWalkToo) {
    const LogCapture log;
    const ListenerRecord five([](SdkClientBase::SdkStatus status) {
        if (status == kDown) throw 42;
    });
    const ListenerRecord six;
    const auto client = getConnected(kSdf, five);
    get(kOther, six);
    waitForMessages(2);
    SdkClient::deathCallback(client.get());
    EXPECT_EQ(log.count(logE("SdkClient: a listener threw at service down")), 1U);
    EXPECT_EQ(five.statuses(), (Statuses{kUp, kDown}));
    EXPECT_EQ(six.statuses(), Statuses{kUp});
    EXPECT_FALSE(client->isConnected(kSdf));
    SdkClient::destroyInstance(kOther);
    release(kSdf);
}

TEST_F(SdkClientTest, DeathDuringASendLeavesTheCallItsService) {
    const ListenerRecord listener;
    service->mOnBlob = [&](const FakeService::Message& message) {
        if (message.blob != Bytes{2}) return;
        std::thread([this] { SdkClient::deathCallback(binder.links()[0].cookie); }).join();
    };
    std::weak_ptr<FakeService> watched = service;
    const auto client = getConnected(kSdf, listener);
    binder.serve(nullptr);
    FakeService* alive = service.get();
    client->postEvent(makeEvent(kSdf, {2}));
    ASSERT_TRUE(listener.waitForCalls(2));
    EXPECT_EQ(listener.statuses(), (Statuses{kUp, kDown}));
    release(kSdf);
    EXPECT_EQ(alive->blobs(), (std::vector<Bytes>{{1}, {2}}));
}

TEST_F(SdkClientTest, DeathAfterTheTeardownTouchesNothing) {
    const ListenerRecord listener;
    std::weak_ptr<SdkClient> client = getConnected(kSdf, listener);
    void* cookie = binder.links()[0].cookie;
    release(kSdf);
    SdkClient::deathCallback(cookie);  // torn down, still held by the service
    service->dropCallback();
    ASSERT_TRUE(goes(client));
    SdkClient::deathCallback(cookie);  // freed
    EXPECT_EQ(listener.statuses(), Statuses{kUp});
}

TEST_F(SdkClientTest, DeathsDuringTeardownsTouchNothingFreed) {
    for (int round = 0; round < 200; ++round) {
        const ListenerRecord listener;
        getConnected(kSdf, listener);
        void* cookie = binder.links().back().cookie;
        std::atomic<bool> stop{false};
        std::thread reaper([&] {
            while (!stop) SdkClient::deathCallback(cookie);
        });
        release(kSdf);
        service->dropCallback();
        stop = true;
        reaper.join();
    }
}

// ---- teardown

TEST_F(SdkClientTest, UnlinkNamesTheInstancePointerAndSoChangesNothing) {
    const ListenerRecord listener;
    getConnected(kSdf, listener);
    release(kSdf);
    ASSERT_EQ(binder.unlinks().size(), 1U);
    EXPECT_EQ(binder.unlinks()[0].cookie, &SdkClient::mInstance);
    EXPECT_EQ(binder.unlinks()[0].binder, binder.links()[0].binder);
    EXPECT_EQ(binder.unlinks()[0].recipient, binder.links()[0].recipient);
    EXPECT_EQ(binder.deathCalls(), (std::vector<std::string>{"new", "link", "unlink nothing"}));
}

// A proxy that goes with a link on it takes its registration back late, and the next client's with
// it.
TEST_F(SdkClientTest, LinkAndItsProxyStayUntilTheRecipientIsDeletedWithTheObject) {
    AIBinder* const proxy = service->asBinder().get();
    const int32_t before = AIBinder_debugGetRefCount(proxy);
    const ListenerRecord listener;
    const std::weak_ptr<SdkClient> client = getConnected(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(AIBinder_debugGetRefCount(proxy), before + 1);  // nothing but the link needs it

    service->dropCallback();
    ASSERT_TRUE(goes(client));
    EXPECT_EQ(AIBinder_debugGetRefCount(proxy), before);
    EXPECT_EQ(binder.deathCalls(),
              (std::vector<std::string>{"new", "link", "unlink nothing", "unlink", "delete"}));
}

TEST_F(SdkClientTest, PreviousLinkEndsBeforeItsRecipientWhenConnectingAgain) {
    const ListenerRecord listener;
    const auto client = getConnected(kSdf, listener);
    waitForMessages(1);
    SdkClient::deathCallback(binder.links()[0].cookie);
    binder.refuseLinks(1);
    client->postEvent(makeEvent(kSdf, {2}));
    waitForMessages(2);
    EXPECT_EQ(binder.deathCalls(),
              (std::vector<std::string>{"new", "link",               // connected
                                        "new", "unlink", "delete",   // a link that is refused
                                        "new", "delete", "link"}));  // connected again
    release(kSdf);
}

TEST_F(SdkClientTest, InstanceIsGoneBeforeItsEventManagerIs) {
    std::vector<bool> gone;
    const ListenerRecord listener;
    getConnected(kSdf, listener);
    const LogCapture log([&gone](const LogLine& line) {
        if (line.text == "EventManager: dtor") {
            gone.push_back(std::atomic_load(&SdkClient::mInstance) == nullptr);
        }
    });
    release(kSdf);
    EXPECT_EQ(gone, std::vector<bool>{true});
}

TEST_F(SdkClientTest, TeardownBreaksTheHoldOnItself) {
    service->mRefuseCallback = true;  // nobody but the object itself could keep it
    const ListenerRecord listener;
    const std::weak_ptr<SdkClient> client = get(kSdf, listener);
    release(kSdf);
    EXPECT_TRUE(goes(client));
    EXPECT_EQ(listener.copies(), 0);
}

TEST_F(SdkClientTest, ServiceMayKeepTheCallbackPastTheTeardown) {
    const ListenerRecord listener;
    std::weak_ptr<SdkClient> watched;
    {
        const auto client = getConnected(kSdf, listener);
        watched = client;
        release(kSdf);
        // Takes the numbers that the manager's descriptors had.
        std::vector<int> counters;
        counters.reserve(8);
        for (int i = 0; i < 8; ++i) counters.push_back(eventfd(0, EFD_NONBLOCK));
        client->postEvent(makeEvent(kSdf, {9}));
        for (const int counter : counters) {
            uint64_t value = 0;
            EXPECT_EQ(read(counter, &value, sizeof value), -1);
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
    service->mRefuseCallback = true;
    for (int round = 0; round < 1000; ++round) {
        const ListenerRecord listener;
        const std::weak_ptr<SdkClient> client = get(kSdf, listener);
        release(kSdf);
        EXPECT_EQ(SdkClient::mInstance, nullptr);
        ASSERT_TRUE(goes(client));
    }
    EXPECT_EQ(service->messages().size(), 2000U);
}

TEST_F(SdkClientTest, DestroyOnTheSdkThreadIsFinishedByThatThread) {
    service->mRefuseBlobs = true;
    service->mRefuseCallback = true;
    std::weak_ptr<SdkClient> client;
    Counter destroyed;
    std::atomic<bool> goneAtOnce{false};
    const ListenerRecord listener([&](SdkClientBase::SdkStatus status) {
        if (status != kFailed || destroyed.value() > 0) return;
        release(kSdf);
        goneAtOnce = std::atomic_load(&SdkClient::mInstance) == nullptr;
        destroyed.add();
    });
    client = get(kSdf, listener);
    ASSERT_TRUE(destroyed.waitFor());
    EXPECT_TRUE(goneAtOnce);
    EXPECT_TRUE(goes(client));
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
    EXPECT_EQ(binder.deathCalls(),
              (std::vector<std::string>{"new", "link", "unlink nothing", "unlink", "delete"}));
}

TEST_F(SdkClientTest, DestroyAndCreateOnTheSdkThread) {
    service->mRefuseCallback = true;
    std::weak_ptr<SdkClient> first;
    Counter created;
    const ListenerRecord second;
    const ListenerRecord listener([&](SdkClientBase::SdkStatus status) {
        if (status != kFailed || created.value() > 0) return;
        release(kSdf);
        EXPECT_NE(get(kSdf, second, {2}), nullptr);
        created.add();
    });
    service->mRefuseBlobs = true;
    first = get(kSdf, listener);
    ASSERT_TRUE(created.waitFor());
    ASSERT_TRUE(second.waitForCalls(1));
    EXPECT_TRUE(goes(first));
    EXPECT_NE(SdkClient::mInstance, nullptr);
    release(kSdf);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, NewInstanceMayBeDestroyedOnTheOldOnesThread) {
    service->mRefuseCallback = true;
    service->mRefuseBlobs = true;
    std::weak_ptr<SdkClient> first;
    std::weak_ptr<SdkClient> second;
    Counter done;
    const ListenerRecord listener([&](SdkClientBase::SdkStatus status) {
        if (status != kFailed || done.value() > 0) return;
        release(kSdf);
        second = get(kSdf, ListenerRecord(), {2});
        release(kSdf);
        done.add();
    });
    first = get(kSdf, listener);
    ASSERT_TRUE(done.waitFor());
    EXPECT_TRUE(goes(first));
    EXPECT_TRUE(goes(second));
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

TEST_F(SdkClientTest, PublishedPointerIsInPlaceBeforeTheFirstEventIsHandled) {
    std::shared_ptr<SdkClientBase> published;
    std::atomic<bool> there{false};
    const ListenerRecord listener(
        [&](SdkClientBase::SdkStatus) { there = std::atomic_load(&published) != nullptr; });
    EXPECT_NE(SdkClient::getInstance(kSdf, listener, makeEvent(kSdf, {1}), &published), nullptr);
    ASSERT_TRUE(listener.waitForCalls(1));
    release(kSdf);
    EXPECT_TRUE(there);
}

// ---- what the machine may refuse

TEST_F(SdkClientTest, ThreadRefusedIsRolledBackWhole) {
    const LogCapture log;
    const ListenerRecord listener;
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
    getConnected(kSdf, listener);
    release(kSdf);
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
}

TEST_F(SdkClientTest, NoDescriptorForTheQueueIsRolledBackWhole) {
    const LogCapture log;
    const ListenerRecord listener;
    {
        const DescriptorLimit three(3);  // enough for the event manager alone
        EXPECT_EQ(get(kSdf, listener), nullptr);
    }
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    EXPECT_EQ(listener.copies(), 0);
    EXPECT_TRUE(log.has(
        logE("SdkClient: no descriptor for the event queue; the transport is not started")));
    getConnected(kSdf, listener);
    release(kSdf);
}

TEST_F(SdkClientTest, FourDescriptorsAreEnough) {
    const ListenerRecord listener;
    {
        const DescriptorLimit four(4);
        EXPECT_NE(getConnected(kSdf, listener), nullptr);
    }
    release(kSdf);
}

// Every allocation of the calling thread fails in turn, until there is enough memory.
TEST_F(SdkClientTest, FirstGetThatRunsOutOfMemoryLeavesNothing) {
    const size_t descriptors = openDescriptors();
    const ListenerRecord listener;
    const auto event = makeEvent(kSdf, {1});
    std::shared_ptr<SdkClientBase> published;
    std::shared_ptr<SdkClient> client;
    long allocations = 0;
    for (; !client; ++allocations) {
        ASSERT_LT(allocations, 1000);
        SdkClientBase::Listener copy = listener;
        try {
            const AllocationLimit limit(allocations);
            client = SdkClient::getInstance(kSdf, std::move(copy), event, &published);
        } catch (const std::bad_alloc&) {
        }
        if (client) break;
        copy = nullptr;
        EXPECT_EQ(SdkClient::mInstance, nullptr) << allocations;
        EXPECT_EQ(published, nullptr) << allocations;
        EXPECT_EQ(listener.copies(), 0) << allocations;
        EXPECT_EQ(openDescriptors(), descriptors) << allocations;
    }
    EXPECT_GT(allocations, 5);
    EXPECT_EQ(published, client);
    ASSERT_TRUE(listener.waitForCalls(1));
    release(kSdf);
}

// The same for a type that joins.
TEST_F(SdkClientTest, SecondGetThatRunsOutOfMemoryLeavesTheTypeUnused) {
    const ListenerRecord first;
    const auto client = getConnected(kSdf, first);
    // What it is told takes no memory.
    const auto told = std::make_shared<std::array<std::atomic<int>, 4>>();
    const SdkClientBase::Listener second = [told](SdkClientBase::SdkStatus status, const Bytes&) {
        ++told->at(static_cast<size_t>(status));
    };
    std::shared_ptr<SdkClientBase> published;
    std::shared_ptr<SdkClient> joined;
    // The queue gets to where it has to allocate, so that posting is among what fails.
    postWithoutMemory(*client);
    long allocations = 0;
    for (; !joined; ++allocations) {
        ASSERT_LT(allocations, 1000);
        const auto event = makeEvent(kOther, {2});
        SdkClientBase::Listener copy = second;
        try {
            const AllocationLimit limit(allocations);
            joined = SdkClient::getInstance(kOther, std::move(copy), event, &published);
        } catch (const std::bad_alloc&) {
        }
        if (joined) break;
        EXPECT_FALSE(client->isActive(kOther)) << allocations;
        EXPECT_EQ(published, nullptr) << allocations;
        EXPECT_EQ(event.use_count(), 1) << allocations;
        EXPECT_EQ((*told)[kUp], 0) << allocations;
    }
    EXPECT_EQ(allocations, 3);  // a copy of the listener, its entry, the queue
    EXPECT_EQ(published, client);
    EXPECT_EQ((*told)[kUp], 1);
    release(kOther);
    release(kSdf);
    const std::vector<Bytes> blobs = service->blobs();
    EXPECT_EQ(std::count(blobs.begin(), blobs.end(), Bytes{2}), 1);
}

using SdkClientDeathTest = SdkClientTest;

TEST_F(SdkClientDeathTest, WithoutDescriptorsForTheEventManagerTheProcessEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int free = 0; free < 3; ++free) {
        EXPECT_EXIT(
            {
                const DescriptorLimit limit(free);
                get(kSdf, ListenerRecord());
            },
            testing::ExitedWithCode(255), "")
            << free;
    }
}

}  // namespace
