// SPDX-License-Identifier: Apache-2.0
// A connection that ends while there is no memory.
#include <android/binder_auto_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <new>
#include <thread>

#include "platform/linux/src/LocalLink.h"
#include "platform/linux/src/PeerAccount.h"
#include "tests/platform/CountedObject.h"
#include "tests/platform/RawPeer.h"
#include "tests/support/AllocationLimit.h"
#include "tests/utils/SystemCalls.h"

namespace {

TEST(NoMemory, DeathIsReportedAllTheSame) {
    ABinderProcess_startThreadPool();
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
    UniqueFd peer(ends[1]);
    // Not served by the I/O thread: this one plays its part.
    const auto link = std::make_shared<LocalLink>(UniqueFd(ends[0]), nullptr);
    const BinderRef root = link->root();
    Counter died;
    const ndk::ScopedAIBinder_DeathRecipient recipient(
        AIBinder_DeathRecipient_new([](void* cookie) { static_cast<Counter*>(cookie)->add(); }));
    ASSERT_EQ(AIBinder_linkToDeath(root.get(), recipient.get(), &died), STATUS_OK);
    peer.reset();
    {
        const AllocationLimit none(0);
        link->onReady(EPOLLIN);
    }
    EXPECT_TRUE(died.waitFor(1));
    EXPECT_FALSE(AIBinder_isAlive(root.get()));
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
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()),
                  0);
        const UniqueFd peer(ends[1]);
        const auto link = std::make_shared<LocalLink>(UniqueFd(ends[0]), refTo(service.get()));
        ASSERT_TRUE(sendAll(peer, bytes));
        {
            const AllocationLimit one(refused, AllocationLimit::kNextOnly);
            link->onReady(EPOLLIN);
        }
        served = link->isAlive();
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

TEST(NoMemory, ProxyEndsAndItsRegistrationWithTheThread) {
    ABinderProcess_startThreadPool();
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
    UniqueFd peer(ends[1]);
    const auto link = std::make_shared<LocalLink>(UniqueFd(ends[0]), nullptr);
    Counter died;
    const ndk::ScopedAIBinder_DeathRecipient recipient(
        AIBinder_DeathRecipient_new([](void* cookie) { static_cast<Counter*>(cookie)->add(); }));
    std::thread([&] {
        BinderRef root = link->root();
        ASSERT_EQ(AIBinder_linkToDeath(root.get(), recipient.get(), &died), STATUS_OK);
        const AllocationLimit none(0);
        root.reset();
    }).join();
    // Nothing was left behind that a new link would meet.
    const BinderRef root = link->root();
    ASSERT_EQ(AIBinder_linkToDeath(root.get(), recipient.get(), &died), STATUS_OK);
    peer.reset();
    link->onReady(EPOLLIN);
    EXPECT_TRUE(died.waitFor(1));
}

}  // namespace
