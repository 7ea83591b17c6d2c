// SPDX-License-Identifier: Apache-2.0
// A peer that speaks to a service through the bare socket, and says what no process should.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/PeerAccount.h"
#include "platform/linux/src/UniqueFd.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/PeerProcess.h"
#include "tests/platform/RawPeer.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDirectory.h"

namespace {

std::atomic<int> gTrims{0};

}  // namespace

// Goes before the C library's.
extern "C" int malloc_trim(size_t) noexcept {
    ++gTrims;
    return 0;
}

namespace {

constexpr char kOwn[] = "lum.test.own";
constexpr size_t kReplySize = kFrameHeader + kReplyHead;

Bytes callWithObject(const ObjectEntry& entry) {
    Bytes frame;
    appendCall(&frame, 1, 0, kPingCode, 0, {1}, payloadOf(Bytes(64), {0}, {entry}));
    return frame;
}

Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes release(uint32_t handle, uint64_t count) {
    Bytes frame;
    appendRelease(&frame, handle, count);
    return frame;
}

Bytes done(uint32_t bytes) {
    Bytes frame;
    appendDone(&frame, bytes);
    return frame;
}

class RawPeerTest : public testing::Test {
  protected:
    static constexpr int32_t kBigSize = 1000000;  // of an answer to kBig
    static constexpr size_t kBigReply = kReplySize + 4 + kBigSize;

    RawPeerTest() {
        EXPECT_EQ(AServiceManager_addService(mObject.get(), kOwn), EX_NONE);
        ABinderProcess_startThreadPool();
    }

    UniqueFd connectRaw() const { return connectTo(mDirectory.path(), kOwn); }

    // A connection that has been greeted and is served.
    UniqueFd connectPolitely() const { return greet(connectRaw()); }

    static void expectAnswer(const UniqueFd& fd, const Bytes& frame, const Bytes& answer) {
        EXPECT_TRUE(sendAll(fd, frame));
        expectBytes(fd, answer);
    }
    static void expectServed(const UniqueFd& fd, uint64_t id = 1) {
        expectAnswer(fd, call(0, kPingCode, id), reply(id));
    }

    static LogLine malformed(const std::string& fault) {
        return logE(format("binder: process %d sent malformed data (%s), connection ended",
                           getpid(), fault.c_str()));
    }

    // What the object's methods do. Outlives the test with those that are still running.
    struct Calls {
        Counter held;
        Counter letGo;
        Counter added;

        binder_status_t operator()(transaction_code_t code, AParcel* out) {
            switch (code) {
                case kHold:
                    held.add();
                    letGo.waitFor(1);
                    break;
                case kAdd: added.add(); break;
                case kBig: {
                    static const std::vector<int8_t> sBytes(kBigSize);
                    AParcel_writeByteArray(out, sBytes.data(), kBigSize);
                    break;
                }
                default: break;
            }
            return STATUS_OK;
        }
    };

    const TestDirectory mDirectory;
    const std::shared_ptr<Calls> mCalls = std::make_shared<Calls>();
    const ndk::SpAIBinder mObject =
        makePeerObject([calls = mCalls](transaction_code_t code, const AParcel*, AParcel* out) {
            return (*calls)(code, out);
        });
};

TEST_F(RawPeerTest, FrameMayComeByteByByte) {
    const UniqueFd fd = connectRaw();
    for (const uint8_t byte : joined(hello(), call(0, kPingCode, 5))) {
        ASSERT_TRUE(sendAll(fd, {byte}));
    }
    expectBytes(fd, joined(hello(), reply(5)));
}

TEST_F(RawPeerTest, CallThatCannotBeMadeIsAnsweredWithItsStatus) {
    const UniqueFd fd = connectPolitely();
    expectAnswer(fd, call(0, kNote, 5), reply(5, STATUS_BAD_TYPE));  // without a token
    expectAnswer(fd, call(0, 0x5f434d44, 6), reply(6, STATUS_UNKNOWN_TRANSACTION));  // no method
    expectServed(fd, 7);
}

// Not each: with 40 bytes, 103 calls are the first to make more than 4096.
TEST_F(RawPeerTest, OnewayCallsAreAcknowledgedInPortions) {
    const UniqueFd fd = connectPolitely();
    const Bytes frame = call(0, kPingCode, 0);
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 102; ++i) ASSERT_TRUE(sendAll(fd, frame));
        expectServed(fd, 7);
        expectAnswer(fd, frame, done(103 * 40));
    }
}

TEST_F(RawPeerTest, HalfAFrameIsSaid) {
    const UniqueFd other = connectPolitely();
    LogCapture log;
    { const UniqueFd fd = connectPolitely(); }  // between frames, nothing is wrong with that
    {
        const UniqueFd fd = connectPolitely();
        const Bytes frame = call(0, kPingCode);
        ASSERT_TRUE(sendAll(fd, Bytes(frame.begin(), frame.begin() + 20)));
    }
    EXPECT_TRUE(
        log.waitFor(logE(format("binder: process %d left in the middle of a frame", getpid()))));
    EXPECT_EQ(log.lines().size(), 1U);
    expectServed(other);
}

TEST_F(RawPeerTest, CallerThatLeavesBreaksNothing) {
    const UniqueFd other = connectPolitely();
    for (int round = 0; round < 50; ++round) {
        const UniqueFd fd = connectPolitely();
        for (uint64_t id = 1; id < 20; ++id) ASSERT_TRUE(sendAll(fd, call(0, kPingCode, id)));
    }
    expectServed(other);
}

TEST_F(RawPeerTest, MoreOnewayCallsThanAllowedEndTheConnection) {
    const UniqueFd other = connectPolitely();
    const UniqueFd fd = connectPolitely();
    LogCapture log;
    ASSERT_TRUE(sendAll(fd, call(0, kHold, 0, tokenOf(kPeerDescriptor))));
    ASSERT_TRUE(mCalls->held.waitFor(1));
    // 13 of these are 520,624 bytes with their heads, and 524,288 are allowed.
    const Bytes large = call(0, kNote, 0, Bytes(40000));
    for (int i = 0; i < 14; ++i) ASSERT_TRUE(sendAll(fd, large));
    EXPECT_TRUE(closedByOther(fd));
    EXPECT_EQ(log.lines(), std::vector<LogLine>{malformed("more calls at once than allowed")});
    mCalls->letGo.add();
    expectServed(other);
}

class HangingCallsTest : public RawPeerTest {
  protected:
    // Calls that do not come to an end, so many over each of so many connections, keep a share of
    // the threads and leave the rest to others.
    void expectShare(size_t connections, size_t calls) {
        const PeerProcess other("lum.test.peer");
        const ndk::SpAIBinder peer(AServiceManager_checkService("lum.test.peer"));
        ASSERT_EQ(callPeer(peer, kKeep, args(mObject)), STATUS_OK);

        std::vector<UniqueFd> hanging;
        for (size_t i = 0; i < connections; ++i) {
            hanging.push_back(connectPolitely());
            for (uint64_t id = 1; id <= calls; ++id) {
                ASSERT_TRUE(sendAll(hanging.back(), call(0, kHold, id, tokenOf(kPeerDescriptor))));
            }
        }
        ASSERT_TRUE(mCalls->held.waitFor(8));  // of 16 threads
        // The other process's blocking calls come to the pool as well: it makes them of itself.
        for (int i = 1; i <= 20; ++i) {
            ASSERT_EQ(callOneway(peer, kOnewayAddToKept, args(i)), STATUS_OK);
            ASSERT_TRUE(mCalls->added.waitFor(i));
        }
        EXPECT_EQ(mCalls->held.value(), 8);

        // Nothing of what has waited is lost.
        mCalls->letGo.add();
        for (const UniqueFd& fd : hanging) {
            const size_t size = calls * kReplySize;
            EXPECT_EQ(receive(fd, size).size(), size);
        }
        EXPECT_EQ(mCalls->held.value(), static_cast<int>(connections * calls));
    }
};

TEST_F(HangingCallsTest, OverManyConnectionsKeepAShareOfTheThreads) {
    expectShare(16, 1);
}

TEST_F(HangingCallsTest, OverOneConnectionKeepAShareOfTheThreads) {
    expectShare(1, 40);
}

// What one process may have kept for it, over all its connections: 64 MiB, and a connection counts
// 256 KiB of that.
class PeerMemoryTest : public RawPeerTest {
  protected:
    static LogLine tooMuch() {
        return logE(
            format("binder: process %d makes this one keep too much (at most 67108864 bytes for a "
                   "process, and its share of 268435456 for user %u), connection ended",
                   getpid(), getuid()));
    }

    static size_t kept() { return PeerAccount::of(getpid(), getuid())->kept(); }

    // A call of kHold with arguments that are `size` bytes long, at least those of its token.
    static Bytes holdingCall(uint64_t id, size_t size) {
        Bytes data = tokenOf(kPeerDescriptor);
        data.resize(size);
        return call(0, kHold, id, data);
    }

    // Has so many answers of 1 MB written to a connection that is not read.
    void leaveUnread(const UniqueFd& fd, int answers) {
        Bytes calls;
        for (int i = 1; i <= answers; ++i) {
            calls = joined(std::move(calls),
                           call(0, kBig, static_cast<uint64_t>(i), tokenOf(kPeerDescriptor)));
        }
        // In one piece: the connection may end before the last is carried out.
        ASSERT_TRUE(sendAll(fd, calls));
    }
};

TEST_F(PeerMemoryTest, UnreadAnswersCountTogether) {
    const UniqueFd first = connectPolitely();
    const UniqueFd second = connectPolitely();
    LogCapture log;
    leaveUnread(first, 35);
    ASSERT_TRUE(eventually([] { return kept() > 34000000; }));
    leaveUnread(second, 35);
    EXPECT_TRUE(closedByOther(second));
    EXPECT_TRUE(log.waitFor(tooMuch()));
    // The other connection is as it was.
    EXPECT_EQ(receive(first, 35 * kBigReply).size(), 35 * kBigReply);
    expectServed(first, 99);
}

TEST_F(PeerMemoryTest, HalfFramesCountTogether) {
    const UniqueFd other = connectPolitely();
    LogCapture log;
    Bytes half = call(0, kPingCode, 1, Bytes(1000000));
    half.resize(half.size() / 2);
    std::vector<UniqueFd> hostile;
    // 52 times 1,000,048 bytes and 256 KiB are allowed, besides the first connection.
    for (int i = 0; i < 53; ++i) {
        hostile.push_back(connectPolitely());
        (void)sendAll(hostile.back(), half);
    }
    EXPECT_TRUE(log.waitFor(tooMuch()));
    EXPECT_EQ(log.lines().size(), 1U);
    expectServed(other);
}

TEST_F(PeerMemoryTest, WaitingCallsCountTogether) {
    LogCapture log;
    std::vector<UniqueFd> hostile;
    // The first eight hold the threads that the process may have.
    for (int i = 0; i < 5; ++i) {
        hostile.push_back(connectPolitely());
        for (uint64_t id = 1; id <= 15; ++id) {
            (void)sendAll(hostile.back(), holdingCall(id, 1000000));
        }
    }
    EXPECT_TRUE(closedByOther(hostile.back()));
    EXPECT_TRUE(log.waitFor(tooMuch()));
    mCalls->letGo.add();
    // What came in time is carried out: 60 MB of four connections.
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(receive(hostile[i], 15 * kReplySize).size(), 15 * kReplySize);
    }
}

TEST_F(PeerMemoryTest, ObjectsCountTogether) {
    const UniqueFd hostile = connectPolitely();
    LogCapture log;
    // Each with 22,000 objects of 28 bytes, which count 1 KiB as well.
    constexpr uint32_t kObjects = 22000;
    for (uint32_t i = 0; i < 3; ++i) {
        Bytes data = tokenOf(kPeerDescriptor);
        std::vector<uint32_t> offsets;
        std::vector<ObjectEntry> entries;
        for (uint32_t object = 0; object < kObjects; ++object) {
            offsets.push_back(static_cast<uint32_t>(data.size()) + object * 28);
            entries.push_back({kOwnedBySender, 0, 1 + i * kObjects + object, 0});
        }
        data.resize(data.size() + size_t{kObjects} * 28);
        Bytes frame;
        appendCall(&frame, i + 1, 0, kHold, 0, {i + 1}, payloadOf(data, offsets, entries));
        (void)sendAll(hostile, frame);
    }
    EXPECT_TRUE(closedByOther(hostile));
    EXPECT_TRUE(log.waitFor(tooMuch()));
    mCalls->letGo.add();
}

TEST_F(PeerMemoryTest, ConnectionsCount) {
    std::vector<UniqueFd> hostile;
    hostile.reserve(257);
    for (int i = 0; i < 255; ++i) hostile.push_back(connectPolitely());
    LogCapture log;
    for (int i = 0; i < 2; ++i) hostile.push_back(connectRaw());
    EXPECT_TRUE(closedByOther(hostile.back()));
    EXPECT_TRUE(log.waitFor(tooMuch()));
    expectServed(hostile.front());
}

TEST_F(PeerMemoryTest, AsMuchAsAConnectionMayHaveUnderWayIsKept) {
    const UniqueFd fd = connectPolitely();
    LogCapture log;
    // With their heads the blocking ones are 16,776,960 bytes long, of 16,777,216, and the one-way
    // calls 524,160, of 524,288.
    for (uint64_t id = 1; id <= 16; ++id) ASSERT_TRUE(sendAll(fd, holdingCall(id, 1048512)));
    const Bytes oneway = call(0, kHold, 0, tokenOf(kPeerDescriptor));
    ASSERT_TRUE(sendAll(fd, oneway));
    Bytes data = tokenOf(kPeerDescriptor);
    data.resize(524160 - oneway.size() - kFrameHeader - kCallHead);
    ASSERT_TRUE(sendAll(fd, call(0, kNote, 0, data)));
    ASSERT_TRUE(mCalls->held.waitFor(9));
    mCalls->letGo.add();
    const size_t expected = 16 * kReplySize + done(0).size();
    EXPECT_GE(receive(fd, expected).size(), expected);
    EXPECT_EQ(mCalls->held.value(), 17);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(PeerMemoryTest, MemoryIsGivenBackWhenAProcessGoesThatHadMuch) {
    const int before = gTrims;
    { const UniqueFd fd = connectPolitely(); }
    {
        const UniqueFd fd = connectPolitely();
        leaveUnread(fd, 12);
        ASSERT_TRUE(eventually([] { return kept() > 10000000; }));
    }
    EXPECT_TRUE(eventually([&] { return gTrims > before; }));
    EXPECT_EQ(gTrims, before + 1);
}

TEST_F(RawPeerTest, ObjectOfTheRawPeerIsReleasedByCount) {
    const UniqueFd fd = connectPolitely();
    // Two entries for one object: the service's end has received it twice.
    Bytes frame;
    const Bytes data(64);
    appendCall(&frame, 4, 0, kPingCode, 0, {4},
               payloadOf(data, {0, 28}, {{kOwnedBySender, 0, 5, 0}, {kOwnedBySender, 0, 5, 0}}));
    expectAnswer(fd, frame, joined(reply(4), release(5, 2)));
}

// What is wrong within a frame is FrameTest's.
TEST_F(RawPeerTest, MalformedDataEndsThatConnectionAndNothingElse) {
    const struct {
        bool greeted;
        Bytes bytes;
        const char* said;
    } rows[] = {
        {false, Bytes(64, 'x'), "a frame too long"},
        {false, call(0, kPingCode), "no greeting"},
        {false, {8, 0, 0, 0, 1, 0, 0, 0, 1, 2, 3, 4, 1, 0, 0, 0}, "a strange greeting"},
        {true, hello(), "a second greeting"},
        {true, {0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0}, "a frame too long"},
        {true, {0, 0, 0, 0, 2, 0, 0, 0}, "a call cut short"},
        {true, {0, 0, 0, 0, 6, 0, 0, 0}, "a frame of unknown kind"},
        {true, {0, 0, 0, 0, 0, 0, 0, 0}, "a frame of unknown kind"},
        {true, call(1, kPingCode), "a call of an object it does not hold"},
        {true, callWithObject({kOwnedBySender, 0, 0, 0}), "an object with a service's handle"},
        {true, callWithObject({kOwnedByReceiver, 0, 5, 0}), "an object it does not hold"},
        {true, release(3, 1), "a release of an object it does not hold"},
        {true, release(0, 1), "a release of an object it does not hold"},
        {true, reply(77), "a reply to no call"},
        {true, done(1), "an acknowledgement of calls never made"},
    };
    const UniqueFd other = connectPolitely();
    uint64_t id = 0;
    for (const auto& row : rows) {
        const UniqueFd fd = row.greeted ? connectPolitely() : connectRaw();
        LogCapture log;
        ASSERT_TRUE(sendAll(fd, row.bytes));
        EXPECT_TRUE(closedByOther(fd));
        EXPECT_EQ(log.lines(), std::vector<LogLine>{malformed(row.said)});
        expectServed(other, ++id);
        expectServed(connectPolitely());
    }
}

// A service that is a bare socket.
class RawServiceTest : public RawPeerTest {
  protected:
    static constexpr char kLiar[] = "lum.test.liar";

    // Pings the service. answer: what the service sends back, given the call's id; leaves: whether
    // it closes the connection then, or is to see it closed.
    binder_status_t ping(const std::function<Bytes(uint64_t id)>& answer, bool leaves) {
        const std::string file = "0123456789abcdef-1-1.socket";
        const std::string name = mDirectory.path() + "/" + kLiar + ".service";
        EXPECT_EQ(symlink(file.c_str(), name.c_str()), 0);
        const UniqueFd listener = socketAt(mDirectory.path() + "/" + file, bind);
        EXPECT_EQ(listen(listener.get(), 1), 0);
        std::thread service([&] {
            const UniqueFd client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            const Bytes said = receive(client, hello().size() + call(0, kPingCode).size());
            uint64_t id = 0;
            memcpy(&id, said.data() + hello().size() + kFrameHeader, sizeof id);
            EXPECT_TRUE(sendAll(client, answer(id)));
            EXPECT_TRUE(leaves || closedByOther(client));
        });
        mLiar = ndk::SpAIBinder(AServiceManager_checkService(kLiar));
        const binder_status_t status = AIBinder_ping(mLiar.get());
        service.join();
        return status;
    }

    // The call has ended, and other services are reached.
    void expectDead(const Bytes& answer, bool leaves, const std::vector<LogLine>& lines) {
        const PeerProcess other("lum.test.peer");
        const LogCapture log;
        EXPECT_EQ(ping([&](uint64_t) { return answer; }, leaves), STATUS_DEAD_OBJECT);
        EXPECT_FALSE(AIBinder_isAlive(mLiar.get()));
        EXPECT_EQ(log.lines(), lines);
        const ndk::SpAIBinder honest(AServiceManager_checkService("lum.test.peer"));
        EXPECT_EQ(AIBinder_ping(honest.get()), STATUS_OK);
    }

    ndk::SpAIBinder mLiar;
};

TEST_F(RawServiceTest, AnswerWithoutGreetingEndsTheCall) {
    expectDead(reply(1), false, {malformed("no greeting")});
}

TEST_F(RawServiceTest, GarbageEndsTheCall) {
    expectDead(Bytes(64, 0xff), false, {malformed("a frame too long")});
}

TEST_F(RawServiceTest, ReplyToAnotherCallEndsTheCall) {
    expectDead(joined(hello(), reply(0x7777777777777777)), false,
               {malformed("a reply to no call")});
}

TEST_F(RawServiceTest, HalfAReplyEndsTheCall) {
    Bytes half = reply(1);
    half.resize(half.size() / 2);
    expectDead(joined(hello(), half), true,
               {logE(format("binder: process %d left in the middle of a frame", getpid()))});
}

TEST_F(RawServiceTest, SilenceAndThenTheEndEndsTheCall) {
    expectDead({}, true, {});
}

TEST_F(RawServiceTest, StatusNobodyKnowsBecomesAnUnknownError) {
    EXPECT_EQ(ping([](uint64_t id) { return joined(hello(), reply(id, 4711)); }, true),
              STATUS_UNKNOWN_ERROR);
}

}  // namespace
