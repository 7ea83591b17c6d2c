// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "tests/platform/DeathEvents.h"
#include "tests/platform/PeerTest.h"
#include "tests/support/Driver.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"

namespace {

class DeathTest : public PeerTest {
  protected:
    DeathTest() { ABinderProcess_startThreadPool(); }

    binder_status_t link(Cookie* cookie) {
        return AIBinder_linkToDeath(mService.get(), mRecipient.get(), cookie);
    }
    binder_status_t unlink(Cookie* cookie) {
        return AIBinder_unlinkToDeath(mService.get(), mRecipient.get(), cookie);
    }

    // These come, and nothing else first.
    void expectEvents(const Log& events) const {
        EXPECT_TRUE(mEvents.waitFor(events.size()));
        EXPECT_EQ(mEvents.all(), events);
    }
    void expectEventsAfterDeath(const Log& events) {
        mPeer.kill();
        expectEvents(events);
    }

    Recipient mRecipient = makeRecipient();
    Events mEvents;
    Cookie mFirst{&mEvents, "first", nullptr};
    Cookie mSecond{&mEvents, "second", nullptr};
    Cookie mThird{&mEvents, "third", nullptr};
};

TEST_F(DeathTest, RecipientIsCalledOnce) {
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    expectEventsAfterDeath({"first died", "first unlinked"});
    EXPECT_FALSE(AIBinder_isAlive(mService.get()));
    // Nothing is left to be called again.
    EXPECT_EQ(unlink(&mFirst), STATUS_NAME_NOT_FOUND);
    mService = nullptr;
    EXPECT_EQ(mEvents.all().size(), 2U);
}

TEST_F(DeathTest, DeathIsReportedToEveryProxyOfTheProcess) {
    const ndk::SpAIBinder object = askObject(kMakeObject);
    AIBinder_DeathRecipient_setOnUnlinked(mRecipient.get(), nullptr);
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(object.get(), mRecipient.get(), &mSecond), STATUS_OK);
    mPeer.kill();
    ASSERT_TRUE(mEvents.waitFor(2));
    Log events = mEvents.all();
    std::sort(events.begin(), events.end());
    EXPECT_EQ(events, (Log{"first died", "second died"}));
    EXPECT_FALSE(AIBinder_isAlive(object.get()));
}

TEST_F(DeathTest, LinkingToTheDeadSaysSo) {
    mPeer.kill();
    if (overDriver()) {
        // Which knows of it, but says so only to those who have linked.
        EXPECT_EQ(link(&mFirst), STATUS_OK);
        expectEvents({"first died", "first unlinked"});
        EXPECT_EQ(link(&mSecond), STATUS_DEAD_OBJECT);
        return;
    }
    EXPECT_EQ(link(&mFirst), STATUS_DEAD_OBJECT);
    EXPECT_EQ(unlink(&mFirst), STATUS_NAME_NOT_FOUND);
    mRecipient.set(nullptr);
    EXPECT_EQ(mEvents.all(), Log{});
}

TEST_F(DeathTest, LinkingASecondTimeToTheDeadSaysSo) {
    // Before the pool comes to report the death, so that the first link is still there.
    Counter held;
    Counter letGo;
    mFirst.atDeath = [&] {
        held.add();
        letGo.waitFor(1);
    };
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    ASSERT_EQ(link(&mSecond), STATUS_OK);
    mPeer.kill();
    ASSERT_TRUE(held.waitFor(1));
    EXPECT_EQ(link(&mThird), STATUS_DEAD_OBJECT);
    letGo.add();
    expectEvents({"first died", "first unlinked", "second died", "second unlinked"});
}

TEST_F(DeathTest, LocalObjectCannotBeLinkedTo) {
    const ndk::SpAIBinder object = makePeerObject(nullptr);
    EXPECT_EQ(AIBinder_linkToDeath(object.get(), mRecipient.get(), &mFirst),
              STATUS_INVALID_OPERATION);
    EXPECT_EQ(AIBinder_unlinkToDeath(object.get(), mRecipient.get(), &mFirst),
              STATUS_NAME_NOT_FOUND);
    EXPECT_TRUE(AIBinder_isAlive(object.get()));
}

TEST_F(DeathTest, NullIsRefused) {
    EXPECT_EQ(AIBinder_linkToDeath(nullptr, mRecipient.get(), &mFirst), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_linkToDeath(mService.get(), nullptr, &mFirst), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_unlinkToDeath(nullptr, mRecipient.get(), &mFirst), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_unlinkToDeath(mService.get(), nullptr, &mFirst), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_DeathRecipient_new(nullptr), nullptr);
    AIBinder_DeathRecipient_delete(nullptr);
}

TEST_F(DeathTest, UnlinkingWithAnotherCookieChangesNothing) {
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    EXPECT_EQ(unlink(&mSecond), STATUS_NAME_NOT_FOUND);
    const Recipient other = makeRecipient();
    EXPECT_EQ(AIBinder_unlinkToDeath(mService.get(), other.get(), &mFirst), STATUS_NAME_NOT_FOUND);
    expectEventsAfterDeath({"first died", "first unlinked"});
}

TEST_F(DeathTest, LinkMadeTwiceIsCalledTwiceAndUnlinkedOneByOne) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(link(&mFirst), STATUS_OK);
    EXPECT_EQ(unlink(&mFirst), STATUS_OK);
    expectEventsAfterDeath(
        {"first unlinked", "first died", "first unlinked", "first died", "first unlinked"});
}

TEST_F(DeathTest, UnlinkingFromInsideTheCallback) {
    binder_status_t own = STATUS_OK;
    binder_status_t others = STATUS_OK;
    mFirst.atDeath = [&] {
        own = unlink(&mFirst);
        others = unlink(&mSecond);
    };
    for (Cookie* const cookie : {&mFirst, &mSecond, &mThird}) ASSERT_EQ(link(cookie), STATUS_OK);
    expectEventsAfterDeath(
        {"first died", "second unlinked", "first unlinked", "third died", "third unlinked"});
    EXPECT_EQ(own, STATUS_NAME_NOT_FOUND);
    EXPECT_EQ(others, STATUS_OK);
}

TEST_F(DeathTest, DeletingTheRecipientFromInsideTheCallback) {
    mFirst.atDeath = [&] { mRecipient.set(nullptr); };
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    ASSERT_EQ(link(&mSecond), STATUS_OK);
    expectEventsAfterDeath({"first died", "second unlinked", "first unlinked"});
}

TEST_F(DeathTest, InsideTheCallbackTheObjectIsDeadAndMayBeLetGo) {
    bool alive = true;
    binder_status_t status = STATUS_OK;
    mFirst.atDeath = [&] {
        alive = AIBinder_isAlive(mService.get());
        status = AIBinder_ping(mService.get());
        mService = nullptr;
    };
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    expectEventsAfterDeath({"first died", "first unlinked"});
    EXPECT_FALSE(alive);
    EXPECT_EQ(status, STATUS_DEAD_OBJECT);
}

TEST_F(DeathTest, DeletingTheRecipientTakesItsLinksBack) {
    const Recipient other = makeRecipient();
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(mService.get(), other.get(), &mSecond), STATUS_OK);
    mRecipient.set(nullptr);
    EXPECT_EQ(mEvents.all(), (Log{"first unlinked", "first unlinked"}));
    expectEventsAfterDeath({"first unlinked", "first unlinked", "second died", "second unlinked"});
}

TEST_F(DeathTest, ProxyThatEndsTakesItsLinksBack) {
    ndk::SpAIBinder object = askObject(kMakeObject);
    ASSERT_EQ(AIBinder_linkToDeath(object.get(), mRecipient.get(), &mFirst), STATUS_OK);
    object = nullptr;
    EXPECT_EQ(mEvents.all(), Log{"first unlinked"});
    ASSERT_EQ(link(&mSecond), STATUS_OK);
    expectEventsAfterDeath({"first unlinked", "second died", "second unlinked"});
}

TEST_F(DeathTest, WhatANestedCallLeavesToItsThreadIsDoneWhenItReturns) {
    PeerProcess other("lum.test.other");
    const auto linkToOther = [&](Cookie* cookie) {
        ndk::SpAIBinder service = find("lum.test.other");
        EXPECT_EQ(AIBinder_linkToDeath(service.get(), mRecipient.get(), cookie), STATUS_OK);
        return service;
    };
    const ndk::SpAIBinder object =
        makePeerObject([&](transaction_code_t, const AParcel*, AParcel* out) {
            linkToOther(&mFirst);
            return AParcel_writeInt32(out, 0);
        });
    Counter returned;
    Counter goOn;
    Threads caller(1, [&](int) {
        EXPECT_EQ(call(kCallBack, args(object, 0)), STATUS_OK);
        returned.add();
        goOn.waitFor(1);
    });
    ASSERT_TRUE(returned.waitFor(1));
    const ndk::SpAIBinder service = linkToOther(&mSecond);
    goOn.add();
    caller.join();
    other.kill();
    expectEvents({"first unlinked", "second died", "second unlinked"});
}

TEST_F(DeathTest, ThrowingRecipientIsSurvived) {
    LogCapture log;
    mFirst.atDeath = [] { throw std::runtime_error("thrown on purpose"); };
    ASSERT_EQ(link(&mFirst), STATUS_OK);
    ASSERT_EQ(link(&mSecond), STATUS_OK);
    expectEventsAfterDeath({"first died", "first unlinked", "second died", "second unlinked"});
    EXPECT_TRUE(log.has(logE("binder: onBinderDied threw: thrown on purpose")));
}

TEST_F(DeathTest, LinkingAndUnlinkingWhileTheProcessDies) {
    // Whatever the order, each link is either refused, or taken back, or called, and called once.
    for (int round = 0; round < 20; ++round) {
        const std::string name = "lum.test.round" + std::to_string(round);
        PeerProcess peer(name);
        const ndk::SpAIBinder service = find(name);
        struct Calls {
            Counter died;
            Counter unlinked;
        } calls;
        Recipient recipient(AIBinder_DeathRecipient_new(
            [](void* cookie) { static_cast<Calls*>(cookie)->died.add(); }));
        AIBinder_DeathRecipient_setOnUnlinked(
            recipient.get(), [](void* cookie) { static_cast<Calls*>(cookie)->unlinked.add(); });
        int linked = 0;
        int unlinked = 0;
        Threads killer(1, [&](int) { peer.kill(); });
        while (AIBinder_linkToDeath(service.get(), recipient.get(), &calls) == STATUS_OK) {
            ++linked;
            if (linked % 2 != 0 &&
                AIBinder_unlinkToDeath(service.get(), recipient.get(), &calls) == STATUS_OK) {
                ++unlinked;
            }
        }
        killer.join();
        EXPECT_TRUE(calls.unlinked.waitFor(linked));
        EXPECT_EQ(calls.died.value(), linked - unlinked);
        EXPECT_EQ(calls.unlinked.value(), linked);
    }
}

class DeathWithoutPoolTest : public PeerTest {};

TEST_F(DeathWithoutPoolTest, RecipientWaitsForThePool) {
    Events events;
    Cookie cookie{&events, "first", nullptr};
    const Recipient recipient(AIBinder_DeathRecipient_new(onDied));
    ASSERT_EQ(AIBinder_linkToDeath(mService.get(), recipient.get(), &cookie), STATUS_OK);
    mPeer.kill();
    // Once a call has been ended by the death, the recipient could have been called.
    EXPECT_EQ(AIBinder_ping(mService.get()), STATUS_DEAD_OBJECT);
    EXPECT_EQ(events.all(), Log{});
    ABinderProcess_startThreadPool();
    ASSERT_TRUE(events.waitFor(1));
    EXPECT_EQ(events.all(), Log{"first died"});
}

}  // namespace
