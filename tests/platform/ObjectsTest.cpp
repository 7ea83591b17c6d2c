// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "tests/platform/PeerInterface.h"
#include "tests/platform/PeerProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kName[] = "lum.test.peer";

// Counts when the object it was made for has ended.
std::shared_ptr<void> countsAtEnd(Counter* counter) {
    return {counter, [](void* ended) { static_cast<Counter*>(ended)->add(); }};
}

ndk::SpAIBinder makeCounted(Counter* ended) {
    return makePeerObject(
        [token = countsAtEnd(ended)](transaction_code_t, const AParcel*, AParcel*) {
            return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
        });
}

class ObjectsTest : public testing::Test {
  protected:
    int32_t ask(transaction_code_t code, const Fill& fill = nullptr) {
        int32_t answer = -1;
        EXPECT_EQ(callPeer(mService, code, fill, readInt(&answer)), STATUS_OK);
        return answer;
    }

    ndk::SpAIBinder get(transaction_code_t code) {
        ndk::SpAIBinder binder;
        EXPECT_EQ(callPeer(mService, code, nullptr, readBinder(&binder)), STATUS_OK);
        return binder;
    }

    const TestDirectory mDirectory;
    PeerProcess mPeer{kName};
    ndk::SpAIBinder mService{AServiceManager_waitForService(kName)};
};

TEST_F(ObjectsTest, OwnObjectComesBackAsItself) {
    Counter ended;
    const ndk::SpAIBinder object = makeCounted(&ended);
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(object)), STATUS_OK);
    EXPECT_EQ(get(kGetKept), object);
    EXPECT_EQ(get(kGetKept).get(), object.get());
}

TEST_F(ObjectsTest, ObjectLivesUntilThePeerLetsGo) {
    ABinderProcess_startThreadPool();
    Counter ended;
    ndk::SpAIBinder object = makeCounted(&ended);
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(object)), STATUS_OK);
    object = nullptr;
    object = get(kGetKept);
    ASSERT_NE(object.get(), nullptr);
    EXPECT_FALSE(AIBinder_isRemote(object.get()));
    EXPECT_EQ(ended.value(), 0);
    object = nullptr;
    ASSERT_EQ(callPeer(mService, kDropKept), STATUS_OK);
    EXPECT_TRUE(ended.waitFor(1));
}

TEST_F(ObjectsTest, ObjectLivesUntilThePeerDies) {
    ABinderProcess_startThreadPool();
    Counter ended;
    ndk::SpAIBinder object = makeCounted(&ended);
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(object)), STATUS_OK);
    object = nullptr;
    EXPECT_EQ(ended.value(), 0);
    mPeer.kill();
    EXPECT_TRUE(ended.waitFor(1));
}

TEST_F(ObjectsTest, ObjectKeptTwiceNeedsLettingGoTwice) {
    ABinderProcess_startThreadPool();
    const PeerProcess second("lum.test.second");
    const ndk::SpAIBinder other(AServiceManager_checkService("lum.test.second"));
    Counter ended;
    ndk::SpAIBinder object = makeCounted(&ended);
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(object)), STATUS_OK);
    ASSERT_EQ(callPeer(other, kKeep, writeBinder(object)), STATUS_OK);
    object = nullptr;
    ASSERT_EQ(callPeer(mService, kDropKept), STATUS_OK);
    // The first release has been handled once a later call over the same connection is answered.
    EXPECT_EQ(ask(kHolding), 0);
    EXPECT_EQ(ended.value(), 0);
    ASSERT_EQ(callPeer(other, kDropKept), STATUS_OK);
    EXPECT_TRUE(ended.waitFor(1));
}

TEST_F(ObjectsTest, PeersObjectIsOneProxyWhileItIsHeld) {
    const ndk::SpAIBinder first = get(kMakeObject);
    ASSERT_NE(first.get(), nullptr);
    EXPECT_TRUE(AIBinder_isRemote(first.get()));
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(first)), STATUS_OK);
    const ndk::SpAIBinder again = get(kGetKept);
    EXPECT_EQ(again.get(), first.get());
    EXPECT_EQ(AIBinder_debugGetRefCount(first.get()), 2);
    EXPECT_NE(get(kMakeObject), first);
}

TEST_F(ObjectsTest, PeersObjectEndsWhenItsProxyDoes) {
    ndk::SpAIBinder object = get(kMakeObject);
    EXPECT_EQ(ask(kObjectsEnded), 0);
    object = nullptr;
    EXPECT_TRUE(eventually([&] { return ask(kObjectsEnded) == 1; }));
}

TEST_F(ObjectsTest, ProxyArrivesAtItsOwnerAsTheObject) {
    const ndk::SpAIBinder object = get(kMakeObject);
    EXPECT_EQ(ask(kIsOwnObject, writeBinder(object)), 1);
    EXPECT_EQ(ask(kIsOwnObject, writeBinder(mService)), 2);
    EXPECT_EQ(ask(kIsOwnObject, writeBinder(makePeerObject(nullptr))), 0);
}

TEST_F(ObjectsTest, ServiceSentByItsOwnerIsTheSameProxy) {
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(mService)), STATUS_OK);
    EXPECT_EQ(get(kGetKept), mService);
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService(kName)), mService);
}

TEST_F(ObjectsTest, NullIsPassedAsNull) {
    EXPECT_EQ(get(kGetKept).get(), nullptr);
    EXPECT_EQ(ask(kIsOwnObject, writeBinder(nullptr)), 0);
}

TEST_F(ObjectsTest, ReleasesThatCrossWithSendsLoseNothing) {
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(get(kMakeObject))), STATUS_OK);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this] {
            // Each round the proxy may be the last, or be found again by another thread.
            for (int i = 0; i < 500; ++i) {
                EXPECT_EQ(ask(kIsOwnObject, writeBinder(get(kGetKept))), 1);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(ask(kObjectsEnded), 0);
    ASSERT_EQ(callPeer(mService, kDropKept), STATUS_OK);
    EXPECT_TRUE(eventually([&] { return ask(kObjectsEnded) == 1; }));
}

TEST_F(ObjectsTest, OwnObjectSentAndReleasedByManyThreadsEndsOnce) {
    ABinderProcess_startThreadPool();
    Counter ended;
    ndk::SpAIBinder object = makeCounted(&ended);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, object] {
            for (int i = 0; i < 500; ++i) EXPECT_EQ(ask(kIsOwnObject, writeBinder(object)), 0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    EXPECT_EQ(ended.value(), 0);
    object = nullptr;
    EXPECT_TRUE(ended.waitFor(1));
}

TEST_F(ObjectsTest, ThirdProcessesObjectIsNotPassedOn) {
    const PeerProcess second("lum.test.second");
    ASSERT_EQ(second.said(), "ready");
    const std::string name = "lum.test.second";
    const auto passOn = [&](const ndk::SpAIBinder& object) {
        return ask(kPassOn, [&](AParcel* in) {
            AParcel_writeString(in, name.c_str(), static_cast<int32_t>(name.size()));
            AParcel_writeStrongBinder(in, object.get());
        });
    };
    EXPECT_EQ(passOn(makePeerObject(nullptr)), STATUS_INVALID_OPERATION);
    EXPECT_EQ(passOn(nullptr), STATUS_OK);

    // The same from here, with the log.
    LogCapture log;
    const ndk::SpAIBinder other(AServiceManager_checkService(name.c_str()));
    EXPECT_EQ(callPeer(other, kKeep, writeBinder(mService)), STATUS_INVALID_OPERATION);
    EXPECT_EQ(log.count(logE("binder: an object of a third process cannot be passed on")), 1U);
    EXPECT_EQ(callPeer(other, kDropKept), STATUS_OK);
}

TEST_F(ObjectsTest, RefusedCallExportsNothing) {
    ABinderProcess_startThreadPool();
    Counter ended;
    ndk::SpAIBinder object = makeCounted(&ended);
    const PeerProcess second("lum.test.second");
    const ndk::SpAIBinder other(AServiceManager_checkService("lum.test.second"));
    EXPECT_EQ(callPeer(other, kKeep,
                       [&](AParcel* in) {
                           AParcel_writeStrongBinder(in, object.get());
                           AParcel_writeStrongBinder(in, mService.get());
                       }),
              STATUS_INVALID_OPERATION);
    EXPECT_EQ(AIBinder_debugGetRefCount(object.get()), 1);
    object = nullptr;
    EXPECT_EQ(ended.value(), 1);
}

}  // namespace
