// SPDX-License-Identifier: Apache-2.0
// A connection that ends while there is no memory.
#include <android/binder_auto_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <thread>

#include "platform/linux/src/PeerAccount.h"
#include "tests/platform/Connection.h"
#include "tests/platform/CountedObject.h"
#include "tests/platform/RawPeer.h"
#include "tests/support/AllocationLimit.h"
#include "tests/support/Eventually.h"
#include "tests/utils/SystemCalls.h"

namespace {

class LinkMemoryTest : public testing::Test {
  protected:
    LinkMemoryTest() { ABinderProcess_startThreadPool(); }

    void link(const BinderRef& root) {
        EXPECT_EQ(AIBinder_linkToDeath(root.get(), mRecipient.get(), &mDied), STATUS_OK);
    }

    Counter mDied;
    const ndk::ScopedAIBinder_DeathRecipient mRecipient{
        AIBinder_DeathRecipient_new([](void* cookie) { static_cast<Counter*>(cookie)->add(); })};
    Connection mConnection;
};

TEST_F(LinkMemoryTest, DeathIsReportedAllTheSame) {
    const BinderRef root = mConnection.link->root();
    link(root);
    {
        const AllocationLimit none(0);
        mConnection.die();
    }
    EXPECT_TRUE(mDied.waitFor(1));
    EXPECT_FALSE(AIBinder_isAlive(root.get()));
}

TEST_F(LinkMemoryTest, ProxyEndsAndItsRegistrationWithTheThread) {
    std::thread([&] {
        BinderRef root = mConnection.link->root();
        link(root);
        const AllocationLimit none(0);
        root.reset();
    }).join();
    // Nothing was left behind that a new link would meet.
    const BinderRef root = mConnection.link->root();
    link(root);
    mConnection.die();
    EXPECT_TRUE(mDied.waitFor(1));
}

TEST_F(LinkMemoryTest, DeadProxyLeavesNothingToItsThread) {
    const auto dieAndLetGo = [this] {
        Connection connection;
        const BinderRef root = connection.link->root();
        link(root);
        const int before = mDied.value();
        connection.die();
        EXPECT_TRUE(mDied.waitFor(before + 1));
        // This thread is the last to hold it.
        EXPECT_TRUE(eventually([&] { return root->strongCount() == 1; }));
    };
    std::thread(dieAndLetGo).join();
    const int64_t before = allocatedBlocks();
    dieAndLetGo();
    EXPECT_TRUE(eventually([&] { return allocatedBlocks() <= before; })) << allocatedBlocks();
}

// Proxies that were made before memory ran out end with the call, on the thread that reads it.
TEST(NoMemory, CallWithObjectsEndsTheConnection) {
    ABinderProcess_startThreadPool();
    static int ended = 0;  // a pool thread may be the last to hold the object
    const ndk::SpAIBinder service = makeCounted(&ended);
    const ObjectEntry object{kOwnedBySender, 0, 1, 0, 0};
    ObjectEntry other = object;
    other.handle = 2;
    Bytes bytes = hello();
    appendCall(
        &bytes, 1, 0, kPingCode, 0, {1},
        payloadOf(Bytes(2 * sizeof(ObjectEntry)), {0, sizeof(ObjectEntry)}, {object, other}));
    long refused = 0;
    for (bool served = false; !served; ++refused) {
        const Connection connection(refTo(service.get()));
        ASSERT_TRUE(sendAll(connection.peer, bytes));
        {
            const AllocationLimit one(refused, AllocationLimit::kNextOnly);
            connection.link->onReady(EPOLLIN);
        }
        served = connection.link->isAlive();
    }
    EXPECT_GT(refused, 8);  // the call, its bytes, two proxies with their entries, what carries it
}

TEST(NoMemory, AccountOfAPeerIsRefused) {
    constexpr pid_t kNobody = -1;
    long count = 0;
    for (std::shared_ptr<PeerAccount> account; account == nullptr; ++count) {
        try {
            const AllocationLimit some(count);
            account = PeerAccount::of(kNobody, 0);
        } catch (const std::bad_alloc&) {
        }
    }
    EXPECT_GT(count, 2);  // the account, and what shares it
}

}  // namespace
