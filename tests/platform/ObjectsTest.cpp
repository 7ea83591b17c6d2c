// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>

#include "tests/platform/PeerTest.h"
#include "tests/support/Driver.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"

namespace {

// ended: counted up when the object ends, which may be after the test.
ndk::SpAIBinder makeCounted(const std::shared_ptr<Counter>& ended) {
    const std::shared_ptr<void> token(nullptr, [ended](void*) { ended->add(); });
    return makePeerObject([token](transaction_code_t, const AParcel*, AParcel*) {
        return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
    });
}

class ObjectsTest : public PeerTest {
  protected:
    ObjectsTest() { ABinderProcess_startThreadPool(); }

    void keep(const ndk::SpAIBinder& object) { EXPECT_EQ(call(kKeep, args(object)), STATUS_OK); }

    const std::shared_ptr<Counter> mEnded = std::make_shared<Counter>();
    ndk::SpAIBinder mObject = makeCounted(mEnded);
};

TEST_F(ObjectsTest, ObjectLivesUntilThePeerLetsGo) {
    const AIBinder* const own = mObject.get();
    keep(mObject);
    mObject = nullptr;
    mObject = askObject(kGetKept);
    EXPECT_EQ(mObject.get(), own);  // itself, and no proxy
    EXPECT_EQ(mEnded->value(), 0);
    mObject = nullptr;
    keep(nullptr);
    EXPECT_TRUE(mEnded->waitFor(1));
}

TEST_F(ObjectsTest, ObjectLivesUntilThePeerDies) {
    keep(mObject);
    mObject = nullptr;
    EXPECT_EQ(mEnded->value(), 0);
    mPeer.kill();
    EXPECT_TRUE(mEnded->waitFor(1));
}

TEST_F(ObjectsTest, ObjectKeptTwiceNeedsLettingGoTwice) {
    const PeerProcess second("lum.test.second");
    const ndk::SpAIBinder other = find("lum.test.second");
    keep(mObject);
    ASSERT_EQ(callPeer(other, kKeep, args(mObject)), STATUS_OK);
    mObject = nullptr;
    keep(nullptr);
    // The first release has been handled once a later call over the same connection is answered.
    EXPECT_EQ(ask(kHolding), 0);
    EXPECT_EQ(mEnded->value(), 0);
    ASSERT_EQ(callPeer(other, kKeep, args(ndk::SpAIBinder())), STATUS_OK);
    EXPECT_TRUE(mEnded->waitFor(1));
}

TEST_F(ObjectsTest, PeersObjectIsOneProxyWhileItIsHeld) {
    const ndk::SpAIBinder first = askObject(kMakeObject);
    EXPECT_TRUE(AIBinder_isRemote(first.get()));
    keep(first);
    const ndk::SpAIBinder again = askObject(kGetKept);
    EXPECT_EQ(again.get(), first.get());
    EXPECT_EQ(AIBinder_debugGetRefCount(first.get()), 2);
    EXPECT_NE(askObject(kMakeObject), first);
}

TEST_F(ObjectsTest, ProxyArrivesAtItsOwnerAsTheObject) {
    EXPECT_EQ(ask(kIsOwnObject, args(askObject(kMakeObject))), 1);
    EXPECT_EQ(ask(kIsOwnObject, args(mService)), 2);
    EXPECT_EQ(ask(kIsOwnObject, args(mObject)), 0);
    EXPECT_EQ(ask(kIsOwnObject, args(ndk::SpAIBinder())), 0);
}

TEST_F(ObjectsTest, ServiceSentByItsOwnerIsTheSameProxy) {
    EXPECT_EQ(askObject(kGetKept).get(), nullptr);
    keep(mService);
    EXPECT_EQ(askObject(kGetKept), mService);
    EXPECT_EQ(find(kName), mService);
}

TEST_F(ObjectsTest, ReleasesThatCrossWithSendsLoseNothing) {
    keep(askObject(kMakeObject));
    Threads(4, [this](int) {
        // Each round the proxy may be the last, or be found again by another thread.
        for (int i = 0; i < 500; ++i) {
            EXPECT_EQ(ask(kIsOwnObject, args(askObject(kGetKept))), 1);
        }
    }).join();
    EXPECT_EQ(ask(kObjectsEnded), 0);
    keep(nullptr);
    EXPECT_TRUE(eventually([&] { return ask(kObjectsEnded) == 1; }));
}

TEST_F(ObjectsTest, ThirdProcessesObjectIsPassedOnByTheDriverAlone) {
    const binder_status_t expected = overDriver() ? STATUS_OK : STATUS_INVALID_OPERATION;
    const PeerProcess second("lum.test.second");
    EXPECT_EQ(ask(kPassOn, args("lum.test.second", mObject)), expected);
    EXPECT_EQ(ask(kPassOn, args("lum.test.second", ndk::SpAIBinder())), STATUS_OK);

    // The same from here. Nothing of the refused call is exported, what came first neither.
    LogCapture log;
    const ndk::SpAIBinder other = find("lum.test.second");
    EXPECT_EQ(callPeer(other, kKeep, args(mObject, mService)), expected);
    EXPECT_EQ(log.has(logE("binder: an object of a third process cannot be passed on")),
              !overDriver());
    EXPECT_EQ(callPeer(other, kKeep, args(ndk::SpAIBinder())), STATUS_OK);
    EXPECT_TRUE(eventually([&] { return AIBinder_debugGetRefCount(mObject.get()) == 1; }));
}

}  // namespace
