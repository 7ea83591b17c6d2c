// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <utility>

#include "platform/linux/src/LocalLink.h"
#include "platform/linux/src/UniqueFd.h"

// A link and the far end of its connection. Nothing serves it but the test.
struct Connection {
    UniqueFd peer;
    std::shared_ptr<LocalLink> link;

    // root: what the peer may call as handle 0, or null.
    explicit Connection(BinderRef root = nullptr) {
        std::array<int, 2> ends{};
        const int type = SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC;
        EXPECT_EQ(socketpair(AF_UNIX, type, 0, ends.data()), 0);
        peer.reset(ends[1]);
        link = std::make_shared<LocalLink>(UniqueFd(ends[0]), std::move(root));
    }

    // What every look-up of the service gives.
    ndk::SpAIBinder service() const { return ndk::SpAIBinder(link->root().release()); }

    // The peer dies, and the link notices.
    void die() {
        peer.reset();
        link->onReady(EPOLLIN);
    }
};
