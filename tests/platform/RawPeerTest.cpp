// SPDX-License-Identifier: Apache-2.0
// A peer that speaks to a service through the bare socket, and says what no process should.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/UniqueFd.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/PeerProcess.h"
#include "tests/platform/RawPeer.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SocketFolder.h"

namespace {

constexpr char kName[] = "lum.test.own";

// A call whose data is 64 zeros and one object entry, said to be at `offset`; it lies at 0.
Bytes callWithObject(uint32_t offset, const ObjectEntry& entry) {
    const Bytes data(64);
    Bytes frame;
    appendCall(&frame, 1, 0, kPingCode, 0, {1}, payloadOf(data, {0}, {entry}));
    memcpy(frame.data() + kFrameHeader + kCallHead + sizeof(uint64_t), &offset, sizeof offset);
    return frame;
}

Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class RawPeerTest : public testing::Test {
  protected:
    RawPeerTest() {
        EXPECT_EQ(AServiceManager_addService(mObject.get(), kName), EX_NONE);
        ABinderProcess_startThreadPool();
    }

    UniqueFd connectRaw() const { return connectTo(mFolder.path(), kName); }

    // A connection that has been greeted and is served.
    UniqueFd connectPolitely() const { return greet(connectRaw()); }

    static void expectServed(const UniqueFd& fd, uint64_t id) {
        EXPECT_TRUE(sendAll(fd, call(0, kPingCode, id)));
        Bytes expected;
        appendReply(&expected, id, STATUS_OK, payloadOf({}, {}, {}));
        EXPECT_EQ(receive(fd, expected.size()), expected);
    }

    const SocketFolder mFolder;
    Counter mHeld;
    Counter mLetGo;
    Counter mAdded;
    const ndk::SpAIBinder mObject =
        makePeerObject([this](transaction_code_t code, const AParcel*, AParcel*) {
            switch (code) {
                case kHold:
                    mHeld.add();
                    mLetGo.waitFor(1);
                    break;
                case kAdd: mAdded.add(); break;
                default: break;
            }
            return binder_status_t{STATUS_OK};
        });
};

TEST_F(RawPeerTest, PingIsAnsweredByteForByte) {
    const UniqueFd fd = connectPolitely();
    ASSERT_TRUE(sendAll(
        fd, {40, 0, 0, 0, 2, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x47, 0x4e, 0x50, 0x5f,
             0,  0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 0,    0,    0,    0}));
    EXPECT_EQ(receive(fd, 32), (Bytes{24, 0, 0, 0, 3, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0,
                                      0,  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(RawPeerTest, DescriptorIsToldOnRequest) {
    const UniqueFd fd = connectPolitely();
    ASSERT_TRUE(sendAll(fd, call(0, 0x5f4e5446, 9)));
    // 14 characters, then their UTF-16 units, a zero, and two bytes to the next multiple of four.
    Bytes data = {14, 0, 0, 0};
    for (const char c : std::string(kPeerDescriptor)) {
        data.push_back(static_cast<uint8_t>(c));
        data.push_back(0);
    }
    data.insert(data.end(), {0, 0, 0, 0});
    Bytes expected;
    appendReply(&expected, 9, STATUS_OK, payloadOf(data, {}, {}));
    EXPECT_EQ(receive(fd, expected.size()), expected);
}

TEST_F(RawPeerTest, FrameMayComeByteByByte) {
    const UniqueFd fd = connectRaw();
    for (const uint8_t byte : joined(hello(), call(0, kPingCode, 5))) {
        ASSERT_TRUE(sendAll(fd, {byte}));
    }
    Bytes expected = hello();
    appendReply(&expected, 5, STATUS_OK, payloadOf({}, {}, {}));
    EXPECT_EQ(receive(fd, expected.size()), expected);
}

TEST_F(RawPeerTest, CallWithoutTokenIsOfABadType) {
    const UniqueFd fd = connectPolitely();
    ASSERT_TRUE(sendAll(fd, call(0, kNote, 5)));
    Bytes expected;
    appendReply(&expected, 5, STATUS_BAD_TYPE, payloadOf({}, {}, {}));
    EXPECT_EQ(receive(fd, expected.size()), expected);
    expectServed(fd, 6);
}

TEST_F(RawPeerTest, CodeThatIsNoMethodIsUnknown) {
    const UniqueFd fd = connectPolitely();
    ASSERT_TRUE(sendAll(fd, call(0, 0x5f444d50, 5)));
    Bytes expected;
    appendReply(&expected, 5, STATUS_UNKNOWN_TRANSACTION, payloadOf({}, {}, {}));
    EXPECT_EQ(receive(fd, expected.size()), expected);
    expectServed(fd, 6);
}

TEST_F(RawPeerTest, OnewayCallIsAcknowledged) {
    const UniqueFd fd = connectPolitely();
    const Bytes frame = call(0, kPingCode, 0);
    ASSERT_TRUE(sendAll(fd, frame));
    Bytes expected;
    appendDone(&expected, static_cast<uint32_t>(frame.size()));
    EXPECT_EQ(receive(fd, expected.size()), expected);
}

TEST_F(RawPeerTest, ConnectionClosedBetweenFramesIsNoNonsense) {
    const UniqueFd other = connectPolitely();
    LogCapture log;
    { const UniqueFd fd = connectPolitely(); }
    expectServed(other, 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RawPeerTest, HalfAFrameIsSaid) {
    const UniqueFd other = connectPolitely();
    LogCapture log;
    {
        const UniqueFd fd = connectPolitely();
        const Bytes frame = call(0, kPingCode);
        ASSERT_TRUE(sendAll(fd, Bytes(frame.begin(), frame.begin() + 20)));
    }
    EXPECT_TRUE(
        log.waitFor(logE(format("binder: process %d left in the middle of a frame", getpid()))));
    EXPECT_EQ(log.lines().size(), 1U);
    expectServed(other, 1);
}

TEST_F(RawPeerTest, CallerThatLeavesBreaksNothing) {
    const UniqueFd other = connectPolitely();
    for (int round = 0; round < 50; ++round) {
        const UniqueFd fd = connectPolitely();
        for (uint64_t id = 1; id < 20; ++id) ASSERT_TRUE(sendAll(fd, call(0, kPingCode, id)));
    }
    expectServed(other, 1);
}

TEST_F(RawPeerTest, PeerThatReadsLateGetsEverything) {
    const UniqueFd fd = connectPolitely();
    const UniqueFd other = connectPolitely();
    constexpr uint64_t kCalls = 20000;
    for (uint64_t id = 1; id <= kCalls; ++id) {
        ASSERT_TRUE(sendAll(fd, call(0, kPingCode, id)));
    }
    expectServed(other, 1);
    // Blocking calls run side by side, so that their replies come in any order.
    constexpr size_t kReplySize = kFrameHeader + kReplyHead;
    const Bytes replies = receive(fd, kCalls * kReplySize);
    ASSERT_EQ(replies.size(), kCalls * kReplySize);
    std::set<uint64_t> answered;
    for (size_t at = 0; at < replies.size(); at += kReplySize) {
        ReplyFrame frame;
        ASSERT_EQ(parseReply(replies.data() + at + kFrameHeader, kReplyHead, &frame), nullptr);
        answered.insert(frame.id);
    }
    EXPECT_EQ(answered.size(), kCalls);
    EXPECT_EQ(*answered.rbegin(), kCalls);
}

TEST_F(RawPeerTest, MoreOnewayCallsThanAllowedEndTheConnection) {
    const UniqueFd other = connectPolitely();
    const UniqueFd fd = connectPolitely();
    LogCapture log;
    ASSERT_TRUE(sendAll(fd, call(0, kHold, 0, tokenOf(kPeerDescriptor))));
    ASSERT_TRUE(mHeld.waitFor(1));
    // 13 of these are 520,624 bytes with their heads, and 524,288 are allowed.
    const Bytes large = call(0, kNote, 0, Bytes(40000));
    for (int i = 0; i < 14; ++i) ASSERT_TRUE(sendAll(fd, large));
    EXPECT_TRUE(closedByOther(fd));
    EXPECT_EQ(log.lines(), std::vector<LogLine>{logE(
                               format("binder: process %d sent nonsense (more calls at once than "
                                      "allowed), connection ended",
                                      getpid()))});
    mLetGo.add();
    expectServed(other, 1);
}

// Calls that do not come to an end, so many over each of so many connections.
struct HangingCalls {
    size_t connections;
    size_t calls;
};

void PrintTo(const HangingCalls& hanging, std::ostream* out) {
    *out << hanging.calls << " over each of " << hanging.connections;
}

class HangingCallsTest : public RawPeerTest, public testing::WithParamInterface<HangingCalls> {};

TEST_P(HangingCallsTest, KeepAShareOfTheThreadsAndLeaveTheRestToOthers) {
    const PeerProcess other("lum.test.peer");
    const ndk::SpAIBinder peer(AServiceManager_checkService("lum.test.peer"));
    ASSERT_EQ(callPeer(peer, kKeep, writeBinder(mObject)), STATUS_OK);

    std::vector<UniqueFd> hanging;
    for (size_t i = 0; i < GetParam().connections; ++i) {
        hanging.push_back(connectPolitely());
        for (uint64_t id = 1; id <= GetParam().calls; ++id) {
            ASSERT_TRUE(sendAll(hanging.back(), call(0, kHold, id, tokenOf(kPeerDescriptor))));
        }
    }
    ASSERT_TRUE(mHeld.waitFor(8));  // of 16 threads
    // The other process's blocking calls come to the pool as well: it makes them of itself.
    for (int i = 1; i <= 20; ++i) {
        ASSERT_EQ(callPeer(peer, kOnewayAddToKept, writeInt(i), nullptr, FLAG_ONEWAY), STATUS_OK);
        ASSERT_TRUE(mAdded.waitFor(i));
    }
    EXPECT_EQ(mHeld.value(), 8);

    // Nothing of what has waited is lost.
    mLetGo.add();
    for (const UniqueFd& fd : hanging) {
        const size_t size = GetParam().calls * (kFrameHeader + kReplyHead);
        EXPECT_EQ(receive(fd, size).size(), size);
    }
    EXPECT_EQ(mHeld.value(), static_cast<int>(GetParam().connections * GetParam().calls));
}

INSTANTIATE_TEST_SUITE_P(Many, HangingCallsTest,
                         testing::Values(HangingCalls{16, 1}, HangingCalls{1, 40}),
                         [](const testing::TestParamInfo<HangingCalls>& test) {
                             return std::to_string(test.param.connections) + "Times" +
                                    std::to_string(test.param.calls);
                         });

TEST_F(RawPeerTest, ObjectOfTheRawPeerIsReleasedByCount) {
    const UniqueFd fd = connectPolitely();
    // Two entries for one object: the service's end has received it twice.
    Bytes frame;
    const Bytes data(64);
    appendCall(&frame, 4, 0, kPingCode, 0, {4},
               payloadOf(data, {0, 28}, {{kOwnedBySender, 0, 5, 0}, {kOwnedBySender, 0, 5, 0}}));
    ASSERT_TRUE(sendAll(fd, frame));
    Bytes expected;
    appendReply(&expected, 4, STATUS_OK, payloadOf({}, {}, {}));
    appendRelease(&expected, 5, 2);
    EXPECT_EQ(receive(fd, expected.size()), expected);
}

// Nonsense behind a proper greeting (or in its place), and what is said about it.
struct Nonsense {
    const char* name;
    bool greeted;
    Bytes bytes;
    const char* said;
};

void PrintTo(const Nonsense& nonsense, std::ostream* out) {
    *out << nonsense.name;
}

class NonsenseTest : public RawPeerTest, public testing::WithParamInterface<Nonsense> {};

TEST_P(NonsenseTest, EndsThatConnectionAndNothingElse) {
    const UniqueFd other = connectPolitely();
    expectServed(other, 1);
    const UniqueFd fd = GetParam().greeted ? connectPolitely() : connectRaw();
    LogCapture log;
    ASSERT_TRUE(sendAll(fd, GetParam().bytes));
    EXPECT_TRUE(closedByOther(fd));
    const LogLine line = logE(format("binder: process %d sent nonsense (%s), connection ended",
                                     getpid(), GetParam().said));
    EXPECT_EQ(log.lines(), std::vector<LogLine>{line});
    expectServed(other, 2);
    const UniqueFd next = connectPolitely();
    expectServed(next, 1);
}

Bytes release(uint32_t handle, uint64_t count) {
    Bytes frame;
    appendRelease(&frame, handle, count);
    return frame;
}

Bytes reply(uint64_t id) {
    Bytes frame;
    appendReply(&frame, id, STATUS_OK, payloadOf({}, {}, {}));
    return frame;
}

Bytes done(uint32_t bytes) {
    Bytes frame;
    appendDone(&frame, bytes);
    return frame;
}

const ObjectEntry kTheirs{kOwnedBySender, 0, 5, 0};
const ObjectEntry kOurs{kOwnedByReceiver, 0, 5, 0};

INSTANTIATE_TEST_SUITE_P(
    Each, NonsenseTest,
    testing::Values(
        Nonsense{"Text", false, Bytes(64, 'x'), "a frame too long"},
        Nonsense{"NoGreeting", false, call(0, kPingCode), "no greeting"},
        Nonsense{"StrangeGreeting",
                 false,
                 {8, 0, 0, 0, 1, 0, 0, 0, 1, 2, 3, 4, 1, 0, 0, 0},
                 "a strange greeting"},
        Nonsense{"OtherVersion",
                 false,
                 {8, 0, 0, 0, 1, 0, 0, 0, 'B', 'l', 'u', 'm', 2, 0, 0, 0},
                 "a greeting of another version"},
        Nonsense{"SecondGreeting", true, hello(), "a second greeting"},
        Nonsense{"Length2To31", true, {0, 0, 0, 0x80, 2, 0, 0, 0}, "a frame too long"},
        Nonsense{"LengthMinus1", true, {0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0}, "a frame too long"},
        Nonsense{"EmptyCall", true, {0, 0, 0, 0, 2, 0, 0, 0}, "a call cut short"},
        Nonsense{"UnknownKind", true, {0, 0, 0, 0, 6, 0, 0, 0}, "a frame of unknown kind"},
        Nonsense{"KindZero", true, {0, 0, 0, 0, 0, 0, 0, 0}, "a frame of unknown kind"},
        Nonsense{"WrongHandle", true, call(1, kPingCode), "a call of an object it does not hold"},
        Nonsense{"LargestHandle", true, call(0xffffffff, kPingCode),
                 "a call of an object it does not hold"},
        Nonsense{"ObjectOutside", true, callWithObject(40, kTheirs), "an object outside the data"},
        Nonsense{"ObjectFarOutside", true, callWithObject(0xfffffffc, kTheirs),
                 "an object outside the data"},
        Nonsense{"ObjectMisaligned", true, callWithObject(2, kTheirs), "a misaligned object"},
        Nonsense{"ObjectOfNoType", true, callWithObject(32, kTheirs), "an object of unknown type"},
        Nonsense{"ObjectWithServicesHandle", true, callWithObject(0, {kOwnedBySender, 0, 0, 0}),
                 "an object with a service's handle"},
        Nonsense{"ObjectNotHeld", true, callWithObject(0, kOurs), "an object it does not hold"},
        Nonsense{"ObjectWithHugeHandle", true,
                 callWithObject(0, {kOwnedBySender, 0, uint64_t{1} << 32U, 0}),
                 "an object with an impossible handle"},
        Nonsense{"ReleaseOfNothing", true, release(3, 1),
                 "a release of an object it does not hold"},
        Nonsense{"ReleaseOfTheService", true, release(0, 1),
                 "a release of an object it does not hold"},
        Nonsense{"ReplyToNothing", true, reply(77), "a reply to no call"},
        Nonsense{"DoneWithNothing", true, done(1), "an acknowledgement of calls never made"}),
    [](const testing::TestParamInfo<Nonsense>& test) { return test.param.name; });

// A service that is a bare socket: answers the first call with whatever a test says.
class RawServiceTest : public RawPeerTest {
  protected:
    UniqueFd listenAsLiar() const {
        UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string file = "0123456789abcdef-1-1.socket";
        const std::string path = mFolder.path() + "/" + file;
        const std::string name = mFolder.path() + "/lum.test.liar.service";
        EXPECT_EQ(symlink(file.c_str(), name.c_str()), 0);
        memcpy(address.sun_path, path.c_str(), path.size());
        EXPECT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener.get(), 1), 0);
        return listener;
    }

    // Pings the service, which answers with `answer` and, if `leaves`, closes the connection.
    void expectDead(const Bytes& answer, bool leaves) const {
        const UniqueFd listener = listenAsLiar();
        std::thread service([&] {
            UniqueFd client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            const size_t said = hello().size() + call(0, kPingCode).size();
            EXPECT_EQ(receive(client, said).size(), said);
            EXPECT_TRUE(sendAll(client, answer));
            if (leaves) {
                client.reset();
            } else {
                EXPECT_TRUE(closedByOther(client));
            }
        });
        const PeerProcess other("lum.test.peer");
        const ndk::SpAIBinder liar(AServiceManager_checkService("lum.test.liar"));
        EXPECT_EQ(AIBinder_ping(liar.get()), STATUS_DEAD_OBJECT);
        EXPECT_FALSE(AIBinder_isAlive(liar.get()));
        service.join();
        const ndk::SpAIBinder honest(AServiceManager_checkService("lum.test.peer"));
        EXPECT_EQ(AIBinder_ping(honest.get()), STATUS_OK);
    }

    static Bytes reply(uint64_t id) {
        Bytes frame;
        appendReply(&frame, id, STATUS_OK, payloadOf({}, {}, {}));
        return frame;
    }
};

TEST_F(RawServiceTest, AnswerWithoutGreetingEndsTheCall) {
    LogCapture log;
    expectDead(reply(1), false);
    EXPECT_TRUE(log.has(logE(
        format("binder: process %d sent nonsense (no greeting), connection ended", getpid()))));
}

TEST_F(RawServiceTest, GarbageEndsTheCall) {
    LogCapture log;
    expectDead(Bytes(64, 0xff), false);
    EXPECT_TRUE(log.has(logE(format(
        "binder: process %d sent nonsense (a frame too long), connection ended", getpid()))));
}

TEST_F(RawServiceTest, ReplyToAnotherCallEndsTheCall) {
    LogCapture log;
    expectDead(joined(hello(), reply(0x7777777777777777)), false);
    EXPECT_TRUE(log.has(logE(format(
        "binder: process %d sent nonsense (a reply to no call), connection ended", getpid()))));
}

TEST_F(RawServiceTest, HalfAReplyEndsTheCall) {
    LogCapture log;
    Bytes half = reply(1);
    half.resize(half.size() / 2);
    expectDead(joined(hello(), half), true);
    EXPECT_TRUE(
        log.has(logE(format("binder: process %d left in the middle of a frame", getpid()))));
}

TEST_F(RawServiceTest, StatusNobodyKnowsBecomesAnUnknownError) {
    const UniqueFd listener = listenAsLiar();
    std::thread service([&] {
        const UniqueFd client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const Bytes said = receive(client, hello().size() + call(0, kPingCode).size());
        uint64_t id = 0;
        memcpy(&id, said.data() + hello().size() + kFrameHeader, sizeof id);
        Bytes answer = hello();
        appendReply(&answer, id, 4711, payloadOf({}, {}, {}));
        EXPECT_TRUE(sendAll(client, answer));
    });
    const ndk::SpAIBinder liar(AServiceManager_checkService("lum.test.liar"));
    EXPECT_EQ(AIBinder_ping(liar.get()), STATUS_UNKNOWN_ERROR);
    service.join();
}

TEST_F(RawServiceTest, SilenceAndThenTheEndEndsTheCall) {
    expectDead({}, true);
}

}  // namespace
