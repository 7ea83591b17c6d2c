// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/linux/src/Frame.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Two objects in 64 bytes of data that start with 1, 2, 3...
struct Sample {
    Sample() {
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i + 1);
    }
    OutgoingPayload payload() const { return {data.data(), data.size(), offsets, objects}; }
    Bytes call() const {
        Bytes frame;
        appendCall(&frame, 1, 2, 3, 0, {1}, payload());
        return frame;
    }

    Bytes data = Bytes(64);
    std::vector<uint32_t> offsets = {4, 32};
    std::vector<ObjectEntry> objects = {{kOwnedBySender, 0x13, 5, 0, 3},
                                        {kOwnedByReceiver, 0, 6, 0, 0}};
};

// What a parser says about it; empty if nothing is wrong.
template <typename Parse>
std::string faultOf(Parse&& parse, const uint8_t* body, size_t size) {
    try {
        parse(body, size);
        return {};
    } catch (const MalformedFrame& fault) {
        return fault.what();
    }
}

// What lies behind the header.
const uint8_t* body(const Bytes& frame) {
    return frame.data() + kFrameHeader;
}
size_t bodySize(const Bytes& frame) {
    return frame.size() - kFrameHeader;
}

TEST(FrameTest, HelloBytes) {
    Bytes frame;
    appendHello(&frame);
    EXPECT_EQ(frame, (Bytes{8, 0, 0, 0, 1, 0, 0, 0, 'B', 'l', 'u', 'm', 1, 0, 0, 0}));
    parseHello(body(frame), bodySize(frame));
}

TEST(FrameTest, StrangeHello) {
    Bytes frame;
    appendHello(&frame);
    EXPECT_EQ(faultOf(parseHello, body(frame), 7), "a greeting of the wrong size");
    frame[12] = 2;
    EXPECT_EQ(faultOf(parseHello, body(frame), 8), "a greeting of another version");
    frame[8] = 'b';
    EXPECT_EQ(faultOf(parseHello, body(frame), 8), "a strange greeting");
}

TEST(FrameTest, CallBytes) {
    const Bytes data = {9, 8, 7, 6};
    Bytes frame;
    appendCall(&frame, 0x0102030405060708, 0x11, 0x22, 0x10000000, {0xa1, 0x0102030405060708},
               {data.data(), data.size(), {}, {}});
    EXPECT_EQ(frame, (Bytes{
                         52,   0,    0,    0,    2,    0,    0,    0,     // length, kind
                         0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // id
                         0x11, 0,    0,    0,    0x22, 0,    0,    0,     // handle, code
                         0,    0,    0,    0x10, 2,    0,    0,    0,     // flags, chain length
                         4,    0,    0,    0,    0,    0,    0,    0,     // data size, objects
                         0xa1, 0,    0,    0,    0,    0,    0,    0,     // chain
                         0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  //
                         9,    8,    7,    6,                             // data
                     }));
    EXPECT_EQ(frame.size(), callFrameSize(2, 4, 0));
    const CallFrame call = parseCall(body(frame), bodySize(frame));
    EXPECT_EQ(call.id, 0x0102030405060708U);
    EXPECT_EQ(call.handle, 0x11U);
    EXPECT_EQ(call.code, 0x22U);
    EXPECT_EQ(call.flags, 0x10000000U);
    EXPECT_FALSE(call.oneway());
    EXPECT_EQ(call.chain, (std::vector<uint64_t>{0xa1, 0x0102030405060708}));
    EXPECT_EQ(Bytes(call.payload.data, call.payload.data + call.payload.size), data);
    EXPECT_TRUE(call.payload.offsets.empty());
}

TEST(FrameTest, ReplyBytes) {
    const Sample sample;
    Bytes frame;
    appendReply(&frame, 3, 0, sample.payload());
    const Bytes head = {96, 0, 0, 0, 3, 0, 0, 0,   // length, kind
                        3,  0, 0, 0, 0, 0, 0, 0};  // id
    const Bytes sizes = {0, 0, 0, 0, 64, 0, 0, 0,  // status, data size
                         2, 0, 0, 0, 0,  0, 0, 0,  // objects, nothing
                         4, 0, 0, 0, 32, 0, 0, 0,  // offsets
                         1, 2, 3, 4};              // data
    const Bytes first = {0x85, 0x2a, 'b', 's', 0x13, 0, 0, 0, 5, 0, 0, 0,
                         0,    0,    0,   0,   0,    0, 0, 0, 0, 0, 0, 0};
    const Bytes between = {3, 0, 0, 0};
    const Bytes second = {0x85, 0x2a, 'h', 's', 0, 0, 0, 0, 6, 0, 0, 0,
                          0,    0,    0,   0,   0, 0, 0, 0, 0, 0, 0, 0};
    const Bytes last = {0, 0, 0, 0, 61, 62, 63, 64};
    Bytes expected;
    for (const Bytes& part : {head, sizes, first, between, second, last}) {
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(frame, expected);
    const ReplyFrame reply = parseReply(body(frame), bodySize(frame));
    EXPECT_EQ(reply.id, 3U);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.payload.offsets, sample.offsets);
    EXPECT_EQ(reply.payload.object(0).handle, 5U);
    EXPECT_EQ(reply.payload.object(1).type, kOwnedByReceiver);
}

TEST(FrameTest, FailedReplyBytes) {
    Bytes frame;
    appendReply(&frame, 3, STATUS_UNKNOWN_TRANSACTION, {nullptr, 0, {}, {}});
    EXPECT_EQ(frame, (Bytes{24,   0,    0,    0,    3, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0,  //
                            0xb6, 0xff, 0xff, 0xff, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(FrameTest, ReleaseAndDoneBytes) {
    Bytes frame;
    appendRelease(&frame, 7, 0x100000002);
    EXPECT_EQ(frame, (Bytes{12, 0, 0, 0, 4, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0}));
    const ReleaseFrame release = parseRelease(body(frame), bodySize(frame));
    EXPECT_EQ(release.handle, 7U);
    EXPECT_EQ(release.count, 0x100000002U);
    EXPECT_EQ(faultOf(parseRelease, body(frame), 11), "a release of the wrong size");

    frame.clear();
    appendDone(&frame, 0x1234);
    EXPECT_EQ(frame, (Bytes{4, 0, 0, 0, 5, 0, 0, 0, 0x34, 0x12, 0, 0}));
    EXPECT_EQ(parseDone(body(frame), bodySize(frame)), 0x1234U);
    EXPECT_EQ(faultOf(parseDone, body(frame), 3), "an acknowledgement of the wrong size");
}

// Cuts the frame's body anywhere; what is said about it depends on whether its head is whole.
template <typename Parse>
void expectCutRefused(Parse&& parse, const Bytes& frame, size_t head, const std::string& what) {
    for (size_t size = 0; size < bodySize(frame); ++size) {
        // In memory of its own, so that a read behind its end is seen.
        const Bytes cut(body(frame), body(frame) + size);
        EXPECT_EQ(faultOf(parse, cut.data(), size),
                  what + (size < head ? " cut short" : " whose sizes do not fit"));
    }
}

TEST(FrameTest, FrameCutAnywhereIsRefused) {
    const Sample sample;
    expectCutRefused(parseCall, sample.call(), kCallHead, "a call");
    Bytes reply;
    appendReply(&reply, 1, 0, sample.payload());
    expectCutRefused(parseReply, reply, kReplyHead, "a reply");
}

// One word of the sample's call frame changed, and what is said about it.
struct Malformed {
    size_t at;  // counted from the start of the body
    uint32_t word;
    const char* said;
};

// The body: id at 0, handle 8, code 12, flags 16, chain length 20, data size 24, objects 28, chain
// 32, offsets 40 and 44, data 48 with the entries at 52 and 80.
TEST(FrameTest, MalformedCallIsRefused) {
    for (const auto& [at, word, said] : {
             Malformed{0, 0, "a call with a wrong id"},
             Malformed{16, FLAG_ONEWAY, "a call with a wrong id"},
             Malformed{20, 0, "a call with a wrong chain"},
             Malformed{20, 65, "a call with a wrong chain"},
             Malformed{20, 2, "a call whose sizes do not fit"},
             Malformed{24, 65, "a call whose sizes do not fit"},
             Malformed{24, 0x80000000, "a call whose sizes do not fit"},
             Malformed{24, 0xffffffff, "a call whose sizes do not fit"},
             Malformed{28, 3, "a call whose sizes do not fit"},
             Malformed{28, 0x40000002, "a call whose sizes do not fit"},
             Malformed{32, 2, "a call with a wrong chain"},
             Malformed{40, 5, "a misaligned object"},
             Malformed{40, 8, "overlapping objects"},
             Malformed{44, 28, "overlapping objects"},
             Malformed{44, 40, "an object outside the data"},
             Malformed{44, 0xfffffffc, "an object outside the data"},
             Malformed{52, 0x70742a85, "an object of unknown type"},
             Malformed{64, 1, "an object with an impossible handle"},
         }) {
        Bytes frame = Sample().call();
        memcpy(frame.data() + kFrameHeader + at, &word, sizeof word);
        EXPECT_EQ(faultOf(parseCall, body(frame), bodySize(frame)), said) << at << " " << word;
    }
}

TEST(FrameTest, MoreThanATransactionMayHoldIsRefused) {
    Bytes data(kMaxTransaction + 4);
    Bytes frame;
    appendCall(&frame, 1, 2, 3, 0, {1}, {data.data(), kMaxTransaction, {}, {}});
    parseCall(body(frame), bodySize(frame));
    frame.clear();
    appendCall(&frame, 1, 2, 3, 0, {1}, {data.data(), data.size(), {}, {}});
    EXPECT_EQ(faultOf(parseCall, body(frame), bodySize(frame)), "a call too large");
    frame.clear();
    appendReply(&frame, 1, 0, {data.data(), data.size(), {}, {}});
    EXPECT_EQ(faultOf(parseReply, body(frame), bodySize(frame)), "a reply too large");
}

TEST(FrameTest, FailedReplyWithDataIsRefused) {
    const Bytes data(4);
    Bytes frame;
    appendReply(&frame, 1, STATUS_BAD_TYPE, {data.data(), data.size(), {}, {}});
    EXPECT_EQ(faultOf(parseReply, body(frame), bodySize(frame)), "a failed reply with data");
    frame[kFrameHeader + 20] = 1;
    EXPECT_EQ(faultOf(parseReply, body(frame), bodySize(frame)),
              "a reply with something in its gap");
}

}  // namespace
