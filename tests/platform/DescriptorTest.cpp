// SPDX-License-Identifier: Apache-2.0
// Descriptors in parcels and over connections, and the call that takes one: an object's dump.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/src/OutBuffer.h"
#include "platform/linux/src/Parcel.h"
#include "tests/platform/Connection.h"
#include "tests/platform/CountedObject.h"
#include "tests/platform/PeerTest.h"
#include "tests/platform/RawPeer.h"
#include "tests/platform/SendWith.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Hex.h"
#include "tests/support/LogCapture.h"

namespace {

constexpr uint32_t kDumpCode = 0x5f444d50;
const ObjectEntry kDescriptorEntry{kDescriptor, 0, 0, 0};
// Type "fd*", flags, 8 bytes of name and 8 of cookie.
const char* const kEntryHex =
    "85 2A 64 66 7F 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

// A pipe whose end is seen when the last descriptor of its other side is closed.
class Pipe {
  public:
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        out.reset(ends[0]);
        in.reset(ends[1]);
    }
    // Closes this holder's own, and returns whether all others are closed by then or soon after.
    bool closed() {
        in.reset();
        pollfd ready{out.get(), POLLIN, 0};
        return poll(&ready, 1, kLimitMs) == 1 && (ready.revents & POLLIN) == 0;
    }
    // Whether somebody else still has one.
    bool held() {
        in.reset();
        pollfd ready{out.get(), POLLIN, 0};
        return poll(&ready, 1, 0) == 0;
    }
    std::string read() const {
        std::string text;
        char part[256];
        for (ssize_t size = 0; (size = ::read(out.get(), part, sizeof part)) > 0;) {
            text.append(part, static_cast<size_t>(size));
        }
        return text;
    }

    UniqueFd out;
    UniqueFd in;
};

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

int descriptorAt(const AParcel& parcel, size_t position) {
    parcel.setPosition(position);
    int fd = -1;
    EXPECT_EQ(parcel.readDescriptor(&fd), STATUS_OK);
    return fd;
}

class ParcelDescriptor : public testing::Test {
  protected:
    static binder_status_t readAt(const AParcel& parcel, size_t position) {
        parcel.setPosition(position);
        int fd = -1;
        return parcel.readDescriptor(&fd);
    }

    Pipe mPipe;
    std::unique_ptr<AParcel> mOwned = std::make_unique<AParcel>();
    AParcel& mParcel = *mOwned;
};

TEST_F(ParcelDescriptor, IsWrittenAsTheseBytesAndReadBackAsADuplicate) {
    ASSERT_EQ(AParcel_writeInt32(&mParcel, 7), STATUS_OK);
    ASSERT_EQ(mParcel.writeDescriptor(mPipe.in.get()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(&mParcel, 9), STATUS_OK);
    EXPECT_EQ(toHex(mParcel.bytes()), std::string("07 00 00 00 ") + kEntryHex + " 09 00 00 00");
    const int fd = descriptorAt(mParcel, 4);
    EXPECT_NE(fd, mPipe.in.get());
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    ASSERT_EQ(write(fd, "x", 1), 1);
    mOwned.reset();
    EXPECT_FALSE(isOpen(fd));
    mPipe.in.reset();
    EXPECT_EQ(mPipe.read(), "x");
}

TEST_F(ParcelDescriptor, WhatIsNotOpenIsRefused) {
    EXPECT_EQ(mParcel.writeDescriptor(-1), STATUS_BAD_VALUE);
    EXPECT_EQ(mParcel.writeDescriptor(1000000), STATUS_BAD_VALUE);
    {
        const DescriptorLimit none(0);
        EXPECT_EQ(mParcel.writeDescriptor(mPipe.in.get()), STATUS_NO_MEMORY);
    }
    EXPECT_TRUE(mParcel.bytes().empty());
    EXPECT_TRUE(mParcel.objects().empty());
    mParcel.setPosition(4);
    EXPECT_EQ(mParcel.writeDescriptor(mPipe.in.get()), STATUS_BAD_VALUE);
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(ParcelDescriptor, WritingOverAnyPartOfItClosesIt) {
    for (int32_t position = 0; position < 40; position += 4) {
        Pipe pipe;
        AParcel parcel;
        ASSERT_EQ(AParcel_writeInt64(&parcel, 0), STATUS_OK);
        ASSERT_EQ(parcel.writeDescriptor(pipe.in.get()), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt64(&parcel, 0), STATUS_OK);
        ASSERT_EQ(AParcel_setDataPosition(&parcel, position), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(&parcel, -1), STATUS_OK);
        const bool within = position >= 8 && position < 32;
        EXPECT_EQ(readAt(parcel, 8), within ? STATUS_BAD_TYPE : STATUS_OK) << position;
        EXPECT_EQ(pipe.held(), !within) << position;
    }
}

TEST_F(ParcelDescriptor, BytesAndObjectsAreNone) {
    int ended = 0;
    const ndk::SpAIBinder object = makeCounted(&ended);
    ASSERT_EQ(AParcel_writeStrongBinder(&mParcel, object.get()), STATUS_OK);
    ASSERT_EQ(mParcel.writeDescriptor(mPipe.in.get()), STATUS_OK);
    EXPECT_EQ(readAt(mParcel, 0), STATUS_BAD_TYPE);
    EXPECT_EQ(readAt(mParcel, 28), STATUS_OK);
    EXPECT_EQ(readAt(mParcel, 52), STATUS_NOT_ENOUGH_DATA);
    ASSERT_EQ(AParcel_writeInt32(&mParcel, 0), STATUS_OK);
    AIBinder* binder = nullptr;
    mParcel.setPosition(28);
    EXPECT_EQ(AParcel_readStrongBinder(&mParcel, &binder), STATUS_BAD_TYPE);
    const AParcel bytes(fromHex(kEntryHex), {});
    EXPECT_EQ(readAt(bytes, 0), STATUS_BAD_TYPE);
    mOwned.reset();  // before what counts the object's end
}

// What a dump is to do with its descriptor and arguments.
using DumpHandler = std::function<binder_status_t(int fd, const std::vector<std::string>& args)>;

ndk::SpAIBinder makeDumped(DumpHandler handler) {
    static AIBinder_Class* const clazz = [] {
        AIBinder_Class* const made = plainClass(
            "lum.test.IDumped", [](void* data) { delete static_cast<DumpHandler*>(data); });
        AIBinder_Class_setOnDump(
            made, [](AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
                const auto* const handler = static_cast<DumpHandler*>(AIBinder_getUserData(binder));
                return (*handler)(fd, {args, args + numArgs});
            });
        return made;
    }();
    return ndk::SpAIBinder(AIBinder_new(clazz, new DumpHandler(std::move(handler))));
}

void say(int fd, const std::string& text) {
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

class DumpTest : public PeerTest {};

TEST_F(DumpTest, OtherProcessWritesToTheDescriptor) {
    Pipe pipe;
    const char* args[] = {"--json", "", "\u00fc"};
    EXPECT_EQ(AIBinder_dump(mService.get(), pipe.in.get(), args, 3), STATUS_OK);
    pipe.in.reset();
    EXPECT_EQ(pipe.read(), "dump of " + std::to_string(mPeer.pid()) + ": [--json] [] [\u00fc]\n");
}

TEST_F(DumpTest, WithoutArguments) {
    Pipe pipe;
    EXPECT_EQ(AIBinder_dump(mService.get(), pipe.in.get(), nullptr, 0), STATUS_OK);
    pipe.in.reset();
    EXPECT_EQ(pipe.read(), "dump of " + std::to_string(mPeer.pid()) + ":\n");
}

TEST_F(DumpTest, ObjectWithoutOneWritesNothing) {
    Pipe pipe;
    const ndk::SpAIBinder token = askObject(kMakeObject);
    EXPECT_EQ(AIBinder_dump(token.get(), pipe.in.get(), nullptr, 0), STATUS_OK);
    EXPECT_TRUE(pipe.closed());
}

TEST_F(DumpTest, WrongArgumentsAreRefusedHereAndThere) {
    Pipe pipe;
    bool dumped = false;
    const ndk::SpAIBinder local = makeDumped([&](int, const std::vector<std::string>&) {
        dumped = true;
        return STATUS_OK;
    });
    const char* args[] = {"a", nullptr};
    const char* notUtf8 = "\xff";
    for (AIBinder* const object : {mService.get(), local.get()}) {
        EXPECT_EQ(AIBinder_dump(object, -1, nullptr, 0), STATUS_BAD_VALUE);
        EXPECT_EQ(AIBinder_dump(object, pipe.in.get(), nullptr, 1), STATUS_UNEXPECTED_NULL);
        EXPECT_EQ(AIBinder_dump(object, pipe.in.get(), args, 2), STATUS_UNEXPECTED_NULL);
    }
    EXPECT_FALSE(dumped);
    EXPECT_EQ(AIBinder_dump(mService.get(), 1000000, nullptr, 0), STATUS_BAD_VALUE);
    EXPECT_EQ(AIBinder_dump(mService.get(), pipe.in.get(), &notUtf8, 1), STATUS_BAD_VALUE);
    EXPECT_TRUE(pipe.closed());
}

TEST_F(DumpTest, DeadObjectSaysSo) {
    Pipe pipe;
    mPeer.kill();
    EXPECT_EQ(AIBinder_dump(mService.get(), pipe.in.get(), nullptr, 0), STATUS_DEAD_OBJECT);
    EXPECT_TRUE(pipe.closed());
}

bool sendWith(const UniqueFd& socket, const Bytes& bytes, const std::vector<int>& fds) {
    return ::sendWith(socket.get(), bytes.data(), bytes.size(), fds);
}

// Receives what is there, with the descriptors beside it.
std::pair<Bytes, std::vector<UniqueFd>> receiveWith(const UniqueFd& socket, size_t most = 4096) {
    pollfd ready{socket.get(), POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, kLimitMs), 1);
    Bytes bytes(most);
    iovec part{bytes.data(), bytes.size()};
    alignas(cmsghdr) char control[256];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC);
    bytes.resize(size < 0 ? 0 : static_cast<size_t>(size));
    std::vector<UniqueFd> fds;
    if (cmsghdr* const header = CMSG_FIRSTHDR(&message); header != nullptr) {
        for (size_t at = 0; at < header->cmsg_len - CMSG_LEN(0); at += sizeof(int)) {
            int fd = -1;
            memcpy(&fd, CMSG_DATA(header) + at, sizeof fd);
            fds.emplace_back(fd);
        }
    }
    return {std::move(bytes), std::move(fds)};
}

// The entries of so many descriptors, and what lies behind them.
struct Entries {
    Entries(size_t count, const Bytes& behind) : data(24 * count), all(count, kDescriptorEntry) {
        for (size_t i = 0; i < count; ++i) offsets.push_back(static_cast<uint32_t>(24 * i));
        data.insert(data.end(), behind.begin(), behind.end());
    }
    OutgoingPayload payload() const { return payloadOf(data, offsets, all); }

    Bytes data;
    std::vector<uint32_t> offsets;
    std::vector<ObjectEntry> all;
};

// A call with that many descriptors. args: what follows; the number 0 if not given.
Bytes callWith(size_t descriptors, uint64_t id = 1, const Bytes& args = Bytes(4),
               uint32_t code = kDumpCode) {
    const std::vector<uint64_t> chain = id == 0 ? std::vector<uint64_t>{} : std::vector{id};
    Bytes frame;
    appendCall(&frame, id, 0, code, id == 0 ? FLAG_ONEWAY : 0, chain,
               Entries(descriptors, args).payload());
    return frame;
}

Bytes replyWith(size_t descriptors, uint64_t id) {
    Bytes frame;
    appendReply(&frame, id, STATUS_OK, Entries(descriptors, {}).payload());
    return frame;
}

Bytes half(Bytes frame) {
    frame.resize(frame.size() / 2);
    return frame;
}

// A service that is dumped over a connection whose other end is bare.
class DescriptorLink : public testing::Test {
  protected:
    DescriptorLink() {
        ABinderProcess_startThreadPool();
        EXPECT_TRUE(sendAll(mConnection.peer, hello()));
        arrive();
    }
    // What has been sent reaches the link.
    void arrive() const { mConnection.link->onReady(EPOLLIN); }

    void expectServed() const {
        EXPECT_TRUE(sendAll(mConnection.peer, call(0, kPingCode, 99)));
        arrive();
        expectBytes(mConnection.peer, reply(99));
    }

    // What has been sent ends the connection, and its descriptors are closed.
    void expectEnd(const std::string& fault) {
        const LogCapture log;
        arrive();
        EXPECT_EQ(log.lines(),
                  std::vector<LogLine>{logE(format("binder: process %d sent malformed data (%s), "
                                                   "connection ended",
                                                   getpid(), fault.c_str()))});
        EXPECT_FALSE(mConnection.link->isAlive());
        EXPECT_TRUE(mPipe.closed());
    }

    std::vector<int> ends(size_t count) const { return std::vector<int>(count, mPipe.in.get()); }

    Pipe mPipe;
    Counter mHold;
    DumpHandler mOnDump = [](int, const std::vector<std::string>&) { return STATUS_OK; };
    const ndk::SpAIBinder mObject = makeDumped(
        [this](int fd, const std::vector<std::string>& args) { return mOnDump(fd, args); });
    const Connection mConnection{refTo(mObject.get())};
};

TEST_F(DescriptorLink, DumpIsSentAsTheseBytes) {
    const Connection service;
    const ndk::SpAIBinder proxy = service.service();
    std::thread caller([&] {
        const char* args[] = {"-a", "\u00fc"};
        EXPECT_EQ(AIBinder_dump(proxy.get(), mPipe.in.get(), args, 2), STATUS_BAD_INDEX);
    });
    auto [bytes, fds] = receiveWith(service.peer);
    ASSERT_EQ(bytes.size(), 8U + 32 + 8 + 4 + 24 + 4 + 12 + 8);
    const std::string id = toHex(Bytes(bytes.begin() + 8, bytes.begin() + 16));
    EXPECT_EQ(toHex(bytes), "5C 00 00 00 02 00 00 00 " + id +
                                " "                           // length, kind, id
                                "00 00 00 00 50 4D 44 5F "    // handle, code
                                "00 00 00 00 01 00 00 00 "    // flags, chain length
                                "30 00 00 00 01 00 00 00 " +  // data size, objects
                                id +
                                " 00 00 00 00 " +  // chain, offset
                                "85 2A 64 66 7F 01 00 00 00 00 00 00 "
                                "00 00 00 00 00 00 00 00 00 00 00 00 "  // the descriptor
                                "02 00 00 00 "                          // arguments
                                "02 00 00 00 2D 00 61 00 00 00 00 00 "
                                "01 00 00 00 FC 00 00 00");
    ASSERT_EQ(fds.size(), 1U);
    mPipe.in.reset();
    say(fds[0].get(), "x");
    fds.clear();
    uint64_t number = 0;
    memcpy(&number, bytes.data() + 8, sizeof number);
    EXPECT_TRUE(sendAll(service.peer, hello()));
    EXPECT_TRUE(sendAll(service.peer, reply(number, STATUS_BAD_INDEX)));
    service.link->onReady(EPOLLIN);
    caller.join();
    EXPECT_EQ(mPipe.read(), "x");
}

TEST_F(DescriptorLink, ReceivedOneIsClosedOnExecAndWithTheCall) {
    mOnDump = [](int fd, const std::vector<std::string>&) {
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        say(fd, "x");
        return STATUS_OK;
    };
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(1), ends(1)));
    arrive();
    mPipe.in.reset();
    EXPECT_EQ(mPipe.read(), "x");
    expectBytes(mConnection.peer, reply(1));
}

TEST_F(DescriptorLink, NobodyReadsThemAndTheyAreClosed) {
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(16, 1, {}, kPingCode), ends(16)));
    arrive();
    expectBytes(mConnection.peer, reply(1));
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(DescriptorLink, FramesInOnePieceGetTheirOwn) {
    mOnDump = [](int fd, const std::vector<std::string>& args) {
        say(fd, args.at(0));
        return STATUS_OK;
    };
    Pipe second;
    // A half of the first call; then the rest, a call that has none, and the second in one read.
    const Bytes frame = callWith(1, 1, {1, 0, 0, 0, 1, 0, 0, 0, '1', 0, 0, 0});
    const auto middle = frame.begin() + static_cast<ptrdiff_t>(frame.size() / 2);
    EXPECT_TRUE(sendWith(mConnection.peer, {frame.begin(), middle}, ends(1)));
    arrive();
    EXPECT_TRUE(sendAll(mConnection.peer, {middle, frame.end()}));
    EXPECT_TRUE(sendAll(mConnection.peer, call(0, kPingCode, 7)));
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(1, 2, {1, 0, 0, 0, 1, 0, 0, 0, '2', 0, 0, 0}),
                         {second.in.get()}));
    arrive();
    EXPECT_EQ(receive(mConnection.peer, 3 * reply(1).size()).size(), 3 * reply(1).size());
    mPipe.in.reset();
    second.in.reset();
    EXPECT_EQ(mPipe.read(), "1");
    EXPECT_EQ(second.read(), "2");
}

TEST_F(DescriptorLink, WithAGreetingEndTheConnection) {
    const Connection other(refTo(mObject.get()));
    EXPECT_TRUE(sendWith(other.peer, hello(), ends(1)));
    other.link->onReady(EPOLLIN);
    EXPECT_FALSE(other.link->isAlive());
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(DescriptorLink, WithACallThatHasNoneEndTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, call(0, kPingCode, 1), ends(1)));
    expectEnd("descriptors that belong to no frame");
}

TEST_F(DescriptorLink, WithAReleaseEndTheConnection) {
    // The link has sent an object of this process, which the peer lets go of.
    AParcel in;
    static int ended = 0;  // counted when a pool thread lets it go, maybe after the test
    ASSERT_EQ(in.writeBinder(makeCounted(&ended).get()), STATUS_OK);
    std::unique_ptr<AParcel> out;
    ASSERT_EQ(mConnection.link->transact(0, 1, in, FLAG_ONEWAY, &out), STATUS_OK);
    Bytes frame;
    appendRelease(&frame, 1, 1);
    EXPECT_TRUE(sendWith(mConnection.peer, frame, ends(1)));
    expectEnd("descriptors that belong to no frame");
}

TEST_F(DescriptorLink, WithAnAcknowledgementEndTheConnection) {
    std::unique_ptr<AParcel> out;
    ASSERT_EQ(mConnection.link->transact(0, 1, AParcel(), FLAG_ONEWAY, &out), STATUS_OK);
    Bytes frame;
    appendDone(&frame, static_cast<uint32_t>(callFrameSize(0, 0, 0)));
    EXPECT_TRUE(sendWith(mConnection.peer, frame, ends(1)));
    expectEnd("descriptors that belong to no frame");
}

TEST_F(DescriptorLink, WithAReplyThatHasNoneEndTheConnection) {
    std::thread caller([&] {
        const BinderRef root = mConnection.link->root();
        EXPECT_EQ(AIBinder_ping(root.get()), STATUS_OK);
    });
    const Bytes asked = receive(mConnection.peer, callFrameSize(1, 0, 0));
    uint64_t id = 0;
    memcpy(&id, asked.data() + kFrameHeader, sizeof id);
    EXPECT_TRUE(sendWith(mConnection.peer, reply(id), ends(1)));
    expectEnd("descriptors that belong to no frame");
    caller.join();
}

TEST_F(DescriptorLink, MissingEndTheConnection) {
    EXPECT_TRUE(sendAll(mConnection.peer, callWith(1)));
    expectEnd("descriptors that did not come");
}

TEST_F(DescriptorLink, MoreThanSaidEndTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(1), ends(2)));
    expectEnd("another number of descriptors than it says");
}

TEST_F(DescriptorLink, FewerThanSaidEndTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(2), ends(1)));
    expectEnd("another number of descriptors than it says");
}

TEST_F(DescriptorLink, TooManyEndTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(16), ends(17)));
    expectEnd("too many descriptors");
}

TEST_F(DescriptorLink, MoreThanAllAreAllowedToHaveEndTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(17), ends(16)));
    expectEnd("too many descriptors");
}

TEST_F(DescriptorLink, TwiceForOneFrameEndTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, half(callWith(1)), ends(1)));
    arrive();
    EXPECT_TRUE(sendWith(mConnection.peer, Bytes(4), ends(1)));
    expectEnd("descriptors that belong to no frame");
}

TEST_F(DescriptorLink, OfAFrameThatNeverEndsAreClosedWithTheConnection) {
    EXPECT_TRUE(sendWith(mConnection.peer, half(callWith(16)), ends(16)));
    const size_t before = mConnection.link->account()->kept();
    arrive();
    const size_t frame = callWith(16).size();
    EXPECT_EQ(mConnection.link->account()->kept(), before + 16 * kDescriptorCost + frame);
    EXPECT_EQ(shutdown(mConnection.peer.get(), SHUT_WR), 0);
    arrive();
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(DescriptorLink, CallsUnderWayWithTooManyEndTheConnection) {
    Counter dumping;
    mOnDump = [&](int, const std::vector<std::string>&) {
        dumping.add();
        mHold.waitFor(1);
        return STATUS_OK;
    };
    // Four calls with 16 each are 16 MiB and their frames, which is more than 16 MiB.
    for (uint64_t id = 1; id <= 3; ++id) {
        EXPECT_TRUE(sendWith(mConnection.peer, callWith(16, id), ends(16)));
        arrive();
    }
    EXPECT_TRUE(dumping.waitFor(3));
    EXPECT_TRUE(sendWith(mConnection.peer, callWith(16, 4), ends(16)));
    const LogCapture log;
    arrive();
    EXPECT_TRUE(
        log.has(logE(format("binder: process %d sent malformed data (more calls at once "
                            "than allowed), connection ended",
                            getpid()))));
    mHold.add();
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(DescriptorLink, WithoutFreeOnesOnlyThatCallFails) {
    for (const int free : {0, 1}) {
        EXPECT_TRUE(sendWith(mConnection.peer, callWith(2), ends(2)));
        const LogCapture log;
        {
            const DescriptorLimit limit(free);
            arrive();
        }
        EXPECT_EQ(log.lines(),
                  std::vector<LogLine>{logE(format("binder: no descriptors left for what process "
                                                   "%d sent, the call fails",
                                                   getpid()))});
        expectBytes(mConnection.peer, reply(1, STATUS_FAILED_TRANSACTION));
        expectServed();
    }
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(DescriptorLink, WithoutFreeOnesAOnewayCallIsDropped) {
    bool dumped = false;
    mOnDump = [&](int, const std::vector<std::string>&) {
        dumped = true;
        return STATUS_OK;
    };
    const Bytes frame = callWith(1, 0);
    EXPECT_TRUE(sendWith(mConnection.peer, frame, ends(1)));
    {
        const DescriptorLimit none(0);
        arrive();
    }
    Bytes done;
    appendDone(&done, static_cast<uint32_t>(frame.size() + kDescriptorCost));
    expectBytes(mConnection.peer, done);
    EXPECT_FALSE(dumped);
    expectServed();
    EXPECT_TRUE(mPipe.closed());
}

// Replies to a call of ours with one descriptor. Returns the call's status, and what is read.
binder_status_t answerWithDescriptor(const Connection& connection, int fd, int free, int* got) {
    std::unique_ptr<AParcel> out;
    binder_status_t status = STATUS_OK;
    std::thread caller(
        [&] { status = connection.link->transact(0, kPingCode, AParcel(), 0, &out); });
    const Bytes asked = receive(connection.peer, callFrameSize(1, 0, 0));
    uint64_t id = 0;
    memcpy(&id, asked.data() + kFrameHeader, sizeof id);
    EXPECT_TRUE(sendWith(connection.peer, replyWith(1, id), {fd}));
    {
        const DescriptorLimit limit(free);
        connection.link->onReady(EPOLLIN);
    }
    caller.join();
    if (out != nullptr) *got = dup(descriptorAt(*out, 0));
    return status;
}

TEST_F(DescriptorLink, ReplyMayHaveThemToo) {
    int got = -1;
    EXPECT_EQ(answerWithDescriptor(mConnection, mPipe.in.get(), 4, &got), STATUS_OK);
    say(got, "x");
    close(got);
    mPipe.in.reset();
    EXPECT_EQ(mPipe.read(), "x");
}

TEST_F(DescriptorLink, ReplyWithoutFreeOnesFails) {
    int got = -1;
    EXPECT_EQ(answerWithDescriptor(mConnection, mPipe.in.get(), 0, &got),
              STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(got, -1);
    expectServed();
    EXPECT_TRUE(mPipe.closed());
}

TEST_F(DescriptorLink, CallWithTooManyIsRefused) {
    auto in = std::make_unique<AParcel>();
    for (int i = 0; i < 17; ++i) ASSERT_EQ(in->writeDescriptor(mPipe.in.get()), STATUS_OK);
    std::unique_ptr<AParcel> out;
    const LogCapture log;
    EXPECT_EQ(mConnection.link->transact(0, 1, *in, 0, &out), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(log.lines(),
              std::vector<LogLine>{logE("binder: a transaction with 17 descriptors has too many")});
    in.reset();
    EXPECT_TRUE(mPipe.closed());
}

// One counts half of what one-way calls may have under way.
TEST_F(DescriptorLink, OnewayCallsWithTooManyAreRefused) {
    AParcel in;
    ASSERT_EQ(in.writeDescriptor(mPipe.in.get()), STATUS_OK);
    std::unique_ptr<AParcel> out;
    EXPECT_EQ(mConnection.link->transact(0, 1, in, FLAG_ONEWAY, &out), STATUS_OK);
    const LogCapture log;
    EXPECT_EQ(mConnection.link->transact(0, 1, in, FLAG_ONEWAY, &out), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(log.lines().size(), 1U);
}

// A peer does not read; what cannot be written yet keeps its descriptor, and loses it with the
// connection.
TEST_F(DescriptorLink, QueuedOneIsKeptAndClosedWithTheConnection) {
    const Bytes large(400000);
    AParcel filling(large, {});
    std::unique_ptr<AParcel> out;
    ASSERT_EQ(mConnection.link->transact(0, 1, filling, FLAG_ONEWAY, &out), STATUS_OK);
    const BinderRef root = mConnection.link->root();
    const size_t before = mConnection.link->account()->kept();
    std::thread caller([&] {
        EXPECT_EQ(AIBinder_dump(root.get(), mPipe.in.get(), nullptr, 0), STATUS_DEAD_OBJECT);
    });
    EXPECT_TRUE(eventually([&] { return mConnection.link->account()->kept() != before; }));
    EXPECT_TRUE(mPipe.held());
    EXPECT_EQ(shutdown(mConnection.peer.get(), SHUT_RDWR), 0);
    arrive();
    caller.join();
    EXPECT_TRUE(mPipe.closed());
}

TEST(DescriptorFrame, EntryEndsWithTheFlatObject) {
    const std::vector<uint32_t> offsets = {0, 24};
    const std::vector<ObjectEntry> entries(2, kDescriptorEntry);
    for (const size_t size : {47U, 48U}) {
        const Bytes data(48);
        Bytes frame;
        appendReply(&frame, 1, 0, {data.data(), data.size(), offsets, entries});
        // In memory of its own, so that a read behind its end is seen.
        frame.resize(frame.size() - (48 - size));
        const auto length = static_cast<uint32_t>(size);
        memcpy(frame.data() + kFrameHeader + 12, &length, sizeof length);
        const Bytes body(frame.begin() + kFrameHeader, frame.end());
        if (size == 48) {
            EXPECT_EQ(parseReply(body.data(), body.size()).payload.descriptors, 2U);
        } else {
            EXPECT_THROW(parseReply(body.data(), body.size()), MalformedFrame);
        }
    }
}

// Descriptors begin a piece of their own; frames behind them follow in it.
TEST(DescriptorBuffer, GoesOutWithItsFramesFirstByteAndIsThenClosed) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd near(ends[0]);
    const UniqueFd far(ends[1]);
    Pipe pipe;
    OutBuffer buffer;
    const auto add = [&](const Bytes& bytes, std::vector<SharedFd> fds = {}) {
        buffer.append(
            [&](std::vector<uint8_t>* piece) {
                piece->insert(piece->end(), bytes.begin(), bytes.end());
            },
            std::move(fds));
    };
    add({1, 2});
    add({3, 4}, {std::make_shared<UniqueFd>(dup(pipe.in.get()))});
    add({5});
    EXPECT_EQ(buffer.writeTo(near.get()), 0);
    EXPECT_TRUE(buffer.empty());
    const auto [before, none] = receiveWith(far, 2);
    EXPECT_EQ(before, (Bytes{1, 2}));
    EXPECT_TRUE(none.empty());
    auto [bytes, fds] = receiveWith(far);
    EXPECT_EQ(bytes, (Bytes{3, 4, 5}));
    EXPECT_EQ(fds.size(), 1U);
    fds.clear();
    EXPECT_TRUE(pipe.closed());
}

}  // namespace
