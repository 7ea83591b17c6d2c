// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "platform/linux/src/ObjectEntry.h"

// What the two ends of a connection of the local link say to each other. All numbers are
// little-endian. A frame is a length (uint32, of what follows the kind), a kind (uint32) and a
// body:
//
//   Hello    uint32 magic, uint32 version. The first frame in each direction, and only the first.
//   Call     uint64 id (0: one-way), uint32 handle, uint32 code, uint32 flags, uint32 chain length,
//            uint32 data size, uint32 object count; uint64 ids of the calls this one is nested in,
//            outermost first, its own id last (none for a one-way call); uint32 offsets of the
//            objects, ascending; the data
//   Reply    uint64 id, int32 status, uint32 data size, uint32 object count, uint32 0; uint32
//            offsets; the data. Neither objects nor data unless the status is 0.
//   Release  uint64 count, uint32 handle: the sender has let go of an object that it received count
//            times
//   Done     uint32 bytes: that much of what one-way calls took, counted in whole frames with
//            kDescriptorCost for each descriptor, is free again
//
// An object lies in the data as the platform's flat object (ObjectEntry): its type says whose
// number the handle is, the sender's for an object that the sender owns, the receiver's for one of
// the receiver's own coming back. Number 0 is the object a service was registered with.
//
// Or it is a descriptor. Those of a frame, in the order of their entries, are sent as ancillary
// data with the frame's first byte, all at once and none of another frame's.

enum class FrameKind : uint32_t { kHello = 1, kCall = 2, kReply = 3, kRelease = 4, kDone = 5 };

constexpr uint32_t kHelloMagic = 0x6d756c42;  // "Blum" as it lies in memory
constexpr uint32_t kHelloVersion = 1;

// The most that a call or a reply may carry: data, and 4 bytes for each object.
constexpr size_t kMaxTransaction = size_t{1} << 20;
// How many calls a chain names; what lies further out is left away by the sender.
constexpr size_t kMaxChain = 64;
// How many descriptors a frame may have, and what each counts among the bytes under way: as much as
// a connection does on an account, of which a process may not have many either.
constexpr size_t kMaxDescriptors = 16;
constexpr size_t kDescriptorCost = size_t{256} * 1024;
constexpr size_t kFrameHeader = 8;
constexpr size_t kCallHead = 32;
constexpr size_t kReplyHead = 24;
constexpr size_t kMaxBody = kCallHead + kMaxChain * sizeof(uint64_t) + kMaxTransaction;

// The types of an object.
constexpr uint32_t kOwnedBySender = BINDER_TYPE_BINDER;
constexpr uint32_t kOwnedByReceiver = BINDER_TYPE_HANDLE;
constexpr uint32_t kDescriptor = BINDER_TYPE_FD;

// A received frame with its numbers checked against each other. Pointers go into the buffer it was
// parsed from.
struct Payload {
    std::vector<uint32_t> offsets;
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    size_t descriptors = 0;  // how many of the objects are

    ObjectEntry object(size_t index) const;
};

struct CallFrame {
    uint64_t id = 0;
    uint32_t handle = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
    std::vector<uint64_t> chain;
    Payload payload;

    bool oneway() const { return (flags & FLAG_ONEWAY) != 0; }
};

struct ReplyFrame {
    uint64_t id = 0;
    int32_t status = 0;
    Payload payload;
};

struct ReleaseFrame {
    uint64_t count = 0;
    uint32_t handle = 0;
};

// Thrown for what no peer should send, with what is wrong for the log. It ends the connection.
struct MalformedFrame : std::runtime_error {
    using std::runtime_error::runtime_error;
};
inline void require(bool valid, const char* otherwise) {
    if (!valid) throw MalformedFrame(otherwise);
}

// Each reads the body of one kind. May throw MalformedFrame or std::bad_alloc.
void parseHello(const uint8_t* body, size_t size);
CallFrame parseCall(const uint8_t* body, size_t size);
ReplyFrame parseReply(const uint8_t* body, size_t size);
ReleaseFrame parseRelease(const uint8_t* body, size_t size);
uint32_t parseDone(const uint8_t* body, size_t size);

// What a call or reply with that much in it counts against kMaxTransaction.
constexpr size_t transactionCost(size_t dataSize, size_t objects) {
    return dataSize + objects * sizeof(uint32_t);
}

// The size of a whole call frame.
constexpr size_t callFrameSize(size_t chain, size_t dataSize, size_t objects) {
    return kFrameHeader + kCallHead + chain * sizeof(uint64_t) + transactionCost(dataSize, objects);
}

// What goes into a call or reply: the data, with the objects already in the form of the wire.
struct OutgoingPayload {
    const uint8_t* data;
    size_t size;
    const std::vector<uint32_t>& offsets;
    const std::vector<ObjectEntry>& objects;
};

// Each appends one frame. May throw std::bad_alloc, with `out` as it was.
void appendHello(std::vector<uint8_t>* out);
void appendCall(std::vector<uint8_t>* out, uint64_t id, uint32_t handle, uint32_t code,
                uint32_t flags, const std::vector<uint64_t>& chain, const OutgoingPayload& payload);
void appendReply(std::vector<uint8_t>* out, uint64_t id, int32_t status,
                 const OutgoingPayload& payload);
void appendRelease(std::vector<uint8_t>* out, uint32_t handle, uint64_t count);
void appendDone(std::vector<uint8_t>* out, uint32_t bytes);
