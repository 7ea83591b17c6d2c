// SPDX-License-Identifier: Apache-2.0
// What a connection keeps of what has come and of what is to go: all of it, and no longer than it
// must.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/FlowControl.h"
#include "platform/linux/src/FrameReader.h"
#include "platform/linux/src/OutBuffer.h"
#include "platform/linux/src/UniqueFd.h"
#include "tools/emulator/HeapCount.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes frameOf(FrameKind kind, const Bytes& body) {
    Bytes frame(kFrameHeader);
    const auto size = static_cast<uint32_t>(body.size());
    memcpy(frame.data(), &size, sizeof size);
    memcpy(frame.data() + sizeof size, &kind, sizeof kind);
    return joined(frame, body);
}

Bytes counted(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i % 251);
    return bytes;
}

class FrameReaderTest : public testing::Test {
  protected:
    using Frame = std::pair<FrameKind, Bytes>;

    void feed(const uint8_t* bytes, size_t size) {
        mReader.feed(bytes, size, [this](FrameKind kind, const uint8_t* body, size_t length) {
            mTaken.emplace_back(kind, Bytes(body, body + length));
            require(mAcceptable, "wrong");
        });
    }

    // What is found wrong with these bytes; empty if nothing is.
    std::string faultOf(const uint8_t* bytes, size_t size) {
        try {
            feed(bytes, size);
            return {};
        } catch (const MalformedFrame& fault) {
            return fault.what();
        }
    }

    FrameReader mReader;
    std::vector<Frame> mTaken;
    bool mAcceptable = true;
};

TEST_F(FrameReaderTest, FramesAreTheSameWhereverTheyAreCut) {
    const std::vector<Frame> frames = {{FrameKind::kCall, {1, 2, 3}},
                                       {FrameKind::kHello, {}},
                                       {FrameKind::kDone, {4}},
                                       {FrameKind::kReply, {5, 6, 7, 8, 9}}};
    Bytes bytes;
    for (const auto& [kind, body] : frames) bytes = joined(bytes, frameOf(kind, body));
    for (size_t first = 0; first <= bytes.size(); ++first) {
        for (size_t second = first; second <= bytes.size(); ++second) {
            mTaken.clear();
            feed(bytes.data(), first);
            feed(bytes.data() + first, second - first);
            feed(bytes.data() + second, bytes.size() - second);
            ASSERT_EQ(mTaken, frames) << first << " " << second;
            EXPECT_TRUE(mReader.empty());
        }
    }
}

TEST_F(FrameReaderTest, KeepsTheUnfinishedFrameAndNoMore) {
    const Bytes frame = frameOf(FrameKind::kCall, counted(100000));
    const Bytes bytes = joined(frame, {frame.begin(), frame.begin() + 50000});
    feed(bytes.data(), bytes.size());
    EXPECT_EQ(mTaken.size(), 1U);
    EXPECT_FALSE(mReader.empty());
    EXPECT_EQ(mReader.capacity(), frame.size());
    feed(frame.data() + 50000, frame.size() - 50000);
    EXPECT_EQ(mTaken.size(), 2U);
    EXPECT_TRUE(mReader.empty());
    EXPECT_EQ(mReader.capacity(), 0U);
}

TEST_F(FrameReaderTest, FrameTooLongIsNotWaitedFor) {
    Bytes frame = frameOf(FrameKind::kCall, {});
    const uint32_t size = kMaxBody + 1;
    memcpy(frame.data(), &size, sizeof size);
    EXPECT_EQ(faultOf(frame.data(), frame.size()), "a frame too long");
    EXPECT_EQ(mReader.capacity(), 0U);
    for (size_t i = 0; i + 1 < kFrameHeader; ++i) feed(&frame[i], 1);
    EXPECT_EQ(faultOf(&frame[kFrameHeader - 1], 1), "a frame too long");
    EXPECT_EQ(mReader.capacity(), kFrameHeader);
    EXPECT_TRUE(mTaken.empty());
}

TEST_F(FrameReaderTest, WrongFrameIsTheLast) {
    const Bytes bytes = joined(frameOf(FrameKind::kCall, {1}), frameOf(FrameKind::kCall, {2}));
    mAcceptable = false;
    EXPECT_EQ(faultOf(bytes.data(), bytes.size()), "wrong");
    EXPECT_EQ(mTaken.size(), 1U);
}

class OutBufferTest : public testing::Test {
  protected:
    OutBufferTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        mNear.reset(ends[0]);
        mFar.reset(ends[1]);
    }

    void append(const Bytes& bytes) {
        mBuffer.append([&](std::vector<uint8_t>* out) {
            out->insert(out->end(), bytes.begin(), bytes.end());
        });
        mAppended.insert(mAppended.end(), bytes.begin(), bytes.end());
    }

    // Writes what the socket takes, and reads it.
    void writeAndRead() {
        EXPECT_EQ(mBuffer.writeTo(mNear.get()), 0);
        Bytes part(size_t{1} << 20U);
        ssize_t length = 0;
        while ((length = recv(mFar.get(), part.data(), part.size(), MSG_DONTWAIT)) > 0) {
            mRead.insert(mRead.end(), part.begin(), part.begin() + length);
        }
    }

    OutBuffer mBuffer;
    UniqueFd mNear;
    UniqueFd mFar;
    Bytes mAppended;
    Bytes mRead;
};

TEST_F(OutBufferTest, EverythingIsWrittenInOrderHoweverSlowTheReader) {
    for (int i = 0; i < 300; ++i) append(counted(static_cast<size_t>(i) * 97));
    append(counted(1000000));
    append({1, 2, 3});
    EXPECT_EQ(mBuffer.size(), mAppended.size());
    while (!mBuffer.empty()) {
        writeAndRead();
        EXPECT_EQ(mBuffer.size(), mAppended.size() - mRead.size());
    }
    EXPECT_EQ(mRead, mAppended);
    // And again from the start.
    append({4, 5});
    writeAndRead();
    EXPECT_EQ(mRead, mAppended);
}

TEST_F(OutBufferTest, WhatIsWrittenIsGivenUpAtOnce) {
    const Bytes piece = counted(100000);
    Bytes drained(size_t{1} << 20U);
    const int64_t atRest = heapBlocks();
    for (int i = 0; i < 40; ++i) {
        mBuffer.append([&](std::vector<uint8_t>* out) {
            out->insert(out->end(), piece.begin(), piece.end());
        });
    }
    const int64_t full = heapBlocks();
    EXPECT_GE(full, atRest + 40);
    const auto drainTo = [&](size_t size) {
        while (mBuffer.size() > size) {
            EXPECT_EQ(mBuffer.writeTo(mNear.get()), 0);
            (void)!recv(mFar.get(), drained.data(), drained.size(), MSG_DONTWAIT);
        }
    };
    drainTo(2 * piece.size());
    EXPECT_LE(heapBlocks(), full - 38);
    drainTo(0);
    EXPECT_EQ(heapBlocks(), atRest);
}

TEST_F(OutBufferTest, FrameThatCannotBeAppendedLeavesNothing) {
    append({1, 2});
    EXPECT_THROW(mBuffer.append([](std::vector<uint8_t>*) { throw std::bad_alloc(); }),
                 std::bad_alloc);
    append({3});
    EXPECT_EQ(mBuffer.size(), 3U);
    writeAndRead();
    EXPECT_EQ(mRead, (Bytes{1, 2, 3}));
}

TEST_F(OutBufferTest, ConnectionThatHasEndedIsSaid) {
    append({1});
    mFar.reset();
    EXPECT_EQ(mBuffer.writeTo(mNear.get()), EPIPE);
    EXPECT_EQ(mBuffer.size(), 1U);
    mBuffer.clear();
    EXPECT_TRUE(mBuffer.empty());
    EXPECT_EQ(mBuffer.writeTo(mNear.get()), 0);
}

// The largest is 520,192 bytes long, however many of the others are not acknowledged yet.
TEST(FlowControlTest, LargestOnewayCallMayFollowOthers) {
    FlowControl flow;
    EXPECT_FALSE(flow.maySend(true, 520193));
    flow.sent(true, 4095);
    EXPECT_TRUE(flow.maySend(true, 520192));
    flow.sent(true, 1);
    flow.sent(true, 1);
    EXPECT_FALSE(flow.maySend(true, 520192));
}

}  // namespace
