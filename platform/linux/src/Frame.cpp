// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Frame.h"

#include <cstring>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "numbers are copied as they lie in memory");

namespace {

// Reads numbers off the front of a body whose size has been checked.
class Reader {
  public:
    explicit Reader(const uint8_t* at) : mAt(at) {}

    template <typename T>
    T next() {
        T value;
        memcpy(&value, mAt, sizeof value);
        mAt += sizeof value;
        return value;
    }

    const uint8_t* at() const { return mAt; }

  private:
    const uint8_t* mAt;
};

// Writes numbers behind each other into memory that is large enough.
class Writer {
  public:
    explicit Writer(uint8_t* at) : mAt(at) {}

    template <typename T>
    Writer& put(T value) {
        return put(&value, sizeof value);
    }

    Writer& put(const void* bytes, size_t size) {
        if (size != 0) memcpy(mAt, bytes, size);
        mAt += size;
        return *this;
    }

    uint8_t* at() const { return mAt; }

  private:
    uint8_t* mAt;
};

// Reads offsets and data, and checks that the objects lie inside the data, one behind the other.
Payload parsePayload(Reader reader, uint32_t objectCount, uint32_t size) {
    constexpr char kOutside[] = "an object outside the data";
    Payload payload;
    payload.offsets.reserve(objectCount);
    payload.data = reader.at() + size_t{objectCount} * sizeof(uint32_t);
    payload.size = size;
    uint64_t free = 0;
    for (uint32_t i = 0; i < objectCount; ++i) {
        const auto offset = reader.next<uint32_t>();
        require(offset % 4 == 0, "a misaligned object");
        require(offset >= free, "overlapping objects");
        require(offset + uint64_t{kDescriptorEntrySize} <= size, kOutside);
        free = offset + uint64_t{entrySize(Reader(payload.data + offset).next<uint32_t>())};
        require(free <= size, kOutside);
        payload.offsets.push_back(offset);
    }
    for (size_t i = 0; i < payload.offsets.size(); ++i) {
        const ObjectEntry entry = payload.object(i);
        require(entry.type == kOwnedBySender || entry.type == kOwnedByReceiver ||
                    entry.type == kDescriptor,
                "an object of unknown type");
        require(entry.handle <= UINT32_MAX, "an object with an impossible handle");
        if (entry.type == kDescriptor) ++payload.descriptors;
    }
    require(payload.descriptors <= kMaxDescriptors, "too many descriptors");
    return payload;
}

// Adds the bytes of one frame and writes its header.
Writer beginFrame(std::vector<uint8_t>* out, FrameKind kind, size_t bodySize) {
    const size_t at = out->size();
    out->resize(at + kFrameHeader + bodySize);
    Writer writer(out->data() + at);
    writer.put(static_cast<uint32_t>(bodySize)).put(kind);
    return writer;
}

void putPayload(Writer writer, const OutgoingPayload& payload) {
    writer.put(payload.offsets.data(), payload.offsets.size() * sizeof(uint32_t));
    uint8_t* const data = writer.at();
    writer.put(payload.data, payload.size);
    for (size_t i = 0; i < payload.offsets.size(); ++i) {
        const ObjectEntry& entry = payload.objects[i];
        memcpy(data + payload.offsets[i], &entry, entrySize(entry.type));
    }
}

}  // namespace

ObjectEntry Payload::object(size_t index) const {
    const uint8_t* const at = data + offsets[index];
    ObjectEntry entry{};
    memcpy(&entry, at, entrySize(Reader(at).next<uint32_t>()));
    return entry;
}

void parseHello(const uint8_t* body, size_t size) {
    require(size == 2 * sizeof(uint32_t), "a greeting of the wrong size");
    Reader reader(body);
    require(reader.next<uint32_t>() == kHelloMagic, "a strange greeting");
    require(reader.next<uint32_t>() == kHelloVersion, "a greeting of another version");
}

CallFrame parseCall(const uint8_t* body, size_t size) {
    require(size >= kCallHead, "a call cut short");
    Reader reader(body);
    CallFrame frame;
    frame.id = reader.next<uint64_t>();
    frame.handle = reader.next<uint32_t>();
    frame.code = reader.next<uint32_t>();
    frame.flags = reader.next<uint32_t>();
    const auto chainLength = reader.next<uint32_t>();
    const auto dataSize = reader.next<uint32_t>();
    const auto objectCount = reader.next<uint32_t>();
    require(frame.oneway() == (frame.id == 0), "a call with a wrong id");
    require(chainLength <= kMaxChain && frame.oneway() == (chainLength == 0),
            "a call with a wrong chain");
    const uint64_t rest = uint64_t{chainLength} * sizeof(uint64_t) +
                          uint64_t{objectCount} * sizeof(uint32_t) + dataSize;
    require(size - kCallHead == rest, "a call whose sizes do not fit");
    require(transactionCost(dataSize, objectCount) <= kMaxTransaction, "a call too large");
    frame.chain.reserve(chainLength);
    for (uint32_t i = 0; i < chainLength; ++i) frame.chain.push_back(reader.next<uint64_t>());
    require(frame.oneway() || frame.chain.back() == frame.id, "a call with a wrong chain");
    frame.payload = parsePayload(reader, objectCount, dataSize);
    return frame;
}

ReplyFrame parseReply(const uint8_t* body, size_t size) {
    require(size >= kReplyHead, "a reply cut short");
    Reader reader(body);
    ReplyFrame frame;
    frame.id = reader.next<uint64_t>();
    frame.status = reader.next<int32_t>();
    const auto dataSize = reader.next<uint32_t>();
    const auto objectCount = reader.next<uint32_t>();
    require(reader.next<uint32_t>() == 0, "a reply with something in its gap");
    const uint64_t rest = uint64_t{objectCount} * sizeof(uint32_t) + dataSize;
    require(size - kReplyHead == rest, "a reply whose sizes do not fit");
    require(transactionCost(dataSize, objectCount) <= kMaxTransaction, "a reply too large");
    require(frame.status == STATUS_OK || rest == 0, "a failed reply with data");
    frame.payload = parsePayload(reader, objectCount, dataSize);
    return frame;
}

ReleaseFrame parseRelease(const uint8_t* body, size_t size) {
    require(size == sizeof(uint64_t) + sizeof(uint32_t), "a release of the wrong size");
    Reader reader(body);
    return {reader.next<uint64_t>(), reader.next<uint32_t>()};
}

uint32_t parseDone(const uint8_t* body, size_t size) {
    require(size == sizeof(uint32_t), "an acknowledgement of the wrong size");
    return Reader(body).next<uint32_t>();
}

void appendHello(std::vector<uint8_t>* out) {
    beginFrame(out, FrameKind::kHello, 2 * sizeof(uint32_t)).put(kHelloMagic).put(kHelloVersion);
}

void appendCall(std::vector<uint8_t>* out, uint64_t id, uint32_t handle, uint32_t code,
                uint32_t flags, const std::vector<uint64_t>& chain,
                const OutgoingPayload& payload) {
    const size_t size = callFrameSize(chain.size(), payload.size, payload.offsets.size());
    Writer writer = beginFrame(out, FrameKind::kCall, size - kFrameHeader);
    writer.put(id).put(handle).put(code).put(flags);
    writer.put(static_cast<uint32_t>(chain.size()));
    writer.put(static_cast<uint32_t>(payload.size));
    writer.put(static_cast<uint32_t>(payload.offsets.size()));
    writer.put(chain.data(), chain.size() * sizeof(uint64_t));
    putPayload(writer, payload);
}

void appendReply(std::vector<uint8_t>* out, uint64_t id, int32_t status,
                 const OutgoingPayload& payload) {
    const size_t rest = transactionCost(payload.size, payload.offsets.size());
    Writer writer = beginFrame(out, FrameKind::kReply, kReplyHead + rest);
    writer.put(id).put(status);
    writer.put(static_cast<uint32_t>(payload.size));
    writer.put(static_cast<uint32_t>(payload.offsets.size()));
    writer.put(uint32_t{0});
    putPayload(writer, payload);
}

void appendRelease(std::vector<uint8_t>* out, uint32_t handle, uint64_t count) {
    beginFrame(out, FrameKind::kRelease, sizeof count + sizeof handle).put(count).put(handle);
}

void appendDone(std::vector<uint8_t>* out, uint32_t bytes) {
    beginFrame(out, FrameKind::kDone, sizeof(uint32_t)).put(bytes);
}
