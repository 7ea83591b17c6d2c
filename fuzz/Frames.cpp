// SPDX-License-Identifier: Apache-2.0
// What a peer sends over a socket link, frame by frame, damaged, or just bytes, in pieces of any
// size, to a link whose objects are called, passed on, watched and let go meanwhile. What the link
// sends is well-formed. Each death is reported once, and nothing is left of a link that has ended.
#include <android/binder_auto_utils.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/InlinePool.h"
#include "fuzz/Input.h"
#include "fuzz/Objects.h"
#include "platform/linux/src/FrameReader.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/LocalLink.h"
#include "platform/linux/src/Parcel.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/RawPeer.h"

namespace {

constexpr unsigned int kMostSteps = 64;

// A frame that was read, written again.
Bytes writtenAgain(FrameKind kind, const uint8_t* body, size_t size) {
    Bytes frame;
    const auto payloadOf = [](const Payload& payload, std::vector<ObjectEntry>* objects) {
        for (size_t i = 0; i < payload.offsets.size(); ++i) objects->push_back(payload.object(i));
        return OutgoingPayload{payload.data, payload.size, payload.offsets, *objects};
    };
    std::vector<ObjectEntry> objects;
    switch (kind) {
        case FrameKind::kHello:
            parseHello(body, size);
            appendHello(&frame);
            break;
        case FrameKind::kCall: {
            const CallFrame call = parseCall(body, size);
            appendCall(&frame, call.id, call.handle, call.code, call.flags, call.chain,
                       payloadOf(call.payload, &objects));
            break;
        }
        case FrameKind::kReply: {
            const ReplyFrame reply = parseReply(body, size);
            appendReply(&frame, reply.id, reply.status, payloadOf(reply.payload, &objects));
            break;
        }
        case FrameKind::kRelease: {
            const ReleaseFrame release = parseRelease(body, size);
            appendRelease(&frame, release.handle, release.count);
            break;
        }
        case FrameKind::kDone: appendDone(&frame, parseDone(body, size)); break;
        default: throw MalformedFrame("a frame of unknown kind");
    }
    return frame;
}

class Program {
  public:
    explicit Program(Input& input);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    void run();

  private:
    void step();
    Bytes makeFrame();
    Bytes makePayload(std::vector<uint32_t>* offsets, std::vector<ObjectEntry>* objects);
    uint32_t anyHandle();
    void send(const Bytes& bytes);
    void receive();
    void useHeld();
    void oneway(const ndk::SpAIBinder& binder);
    void end();

    Input& mInput;
    int mPeer = -1;  // the socket's other end
    std::shared_ptr<LocalLink> mLink;
    FrameReader mReader;
    std::vector<uint32_t> mExported;  // numbers of ours that the peer has seen
    Objects mObjects;
};

Program::Program(Input& input)
    : mInput(input),
      mObjects(
          input, [this](const ndk::SpAIBinder& object) { oneway(object); }, nullptr) {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
          "no sockets");
    mPeer = ends[1];
    const ndk::SpAIBinder root = mInput.flag() ? mObjects.make() : nullptr;
    mLink = std::make_shared<LocalLink>(UniqueFd(ends[0]),
                                        root.get() == nullptr ? nullptr : refTo(root.get()));
    if (root.get() != nullptr) mExported.push_back(0);
    if (!mInput.rarely(16)) send(hello());
}

Program::~Program() {
    if (mPeer >= 0) close(mPeer);
}

void Program::run() {
    for (unsigned int steps = 0; steps < kMostSteps && !mInput.empty(); ++steps) {
        step();
        receive();
    }
    end();
}

void Program::step() {
    switch (mInput.pick(12)) {
        case 0: send(mInput.bytes(mInput.byte())); break;
        case 1: {
            Bytes frame = makeFrame();
            frame[mInput.byte() % frame.size()] = mInput.byte();
            if (mInput.rarely(4)) frame.resize(mInput.byte() % frame.size());
            send(frame);
            break;
        }
        case 2: runPosted(true); break;
        case 3:
        case 4: runPosted(); break;
        case 5:
        case 6: useHeld(); break;
        default: send(makeFrame()); break;
    }
}

uint32_t Program::anyHandle() {
    if (mExported.empty() || mInput.rarely(8)) return mInput.number<uint32_t>();
    return mExported[mInput.byte() % mExported.size()];
}

Bytes Program::makePayload(std::vector<uint32_t>* offsets, std::vector<ObjectEntry>* objects) {
    Bytes data;
    if (!mInput.rarely(8)) data = tokenOf(kPeerDescriptor);
    for (unsigned int left = mInput.pick(4); left > 0; --left) {
        const unsigned int kind = mInput.pick(6);
        if (kind > 2) {
            const auto number = mInput.number<uint32_t>();
            const auto* const bytes = reinterpret_cast<const uint8_t*>(&number);
            data.insert(data.end(), bytes, bytes + sizeof number);
            continue;
        }
        constexpr uint32_t kTypes[] = {kOwnedBySender, kOwnedByReceiver, kDescriptor};
        const ObjectEntry entry{kTypes[kind], 0,
                                kind == 0 ? mInput.byte() % uint32_t{8} : anyHandle(), 0, 3};
        offsets->push_back(static_cast<uint32_t>(data.size()));
        objects->push_back(entry);
        data.resize(data.size() + entrySize(entry.type));
    }
    return data;
}

Bytes Program::makeFrame() {
    Bytes frame;
    std::vector<uint32_t> offsets;
    std::vector<ObjectEntry> objects;
    switch (mInput.pick(8)) {
        case 0: frame = hello(); break;
        case 1: appendRelease(&frame, anyHandle(), 1 + mInput.pick(3)); break;
        case 2: appendDone(&frame, mInput.number<uint32_t>()); break;
        case 3: {
            const auto id = mInput.number<uint64_t>();
            const Bytes data = makePayload(&offsets, &objects);
            appendReply(&frame, id, STATUS_OK, {data.data(), data.size(), offsets, objects});
            break;
        }
        default: {
            const uint64_t id = mInput.flag() ? 0 : 1 + mInput.byte();
            const uint32_t handle = anyHandle();
            const uint32_t code = mInput.rarely(8) ? mInput.number<uint32_t>() : mInput.pick(16);
            const Bytes data = makePayload(&offsets, &objects);
            std::vector<uint64_t> chain;
            if (id != 0) chain.push_back(id);
            appendCall(&frame, id, handle, code, id == 0 ? FLAG_ONEWAY : 0, chain,
                       {data.data(), data.size(), offsets, objects});
            break;
        }
    }
    return frame;
}

// In pieces, each of which the link is to read.
void Program::send(const Bytes& bytes) {
    const size_t pieces = 1 + (mInput.rarely(4) ? mInput.pick(8) : 0);
    for (size_t at = 0, size = bytes.size() / pieces + 1; at < bytes.size(); at += size) {
        const size_t length = std::min(size, bytes.size() - at);
        (void)::send(mPeer, bytes.data() + at, length, MSG_NOSIGNAL);
        mLink->onReady(EPOLLIN);
    }
}

// What the link has sent is well-formed, and is what would be written for the same.
void Program::receive() {
    Bytes chunk(size_t{64} * 1024);
    for (;;) {
        iovec buffer{chunk.data(), chunk.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(32 * sizeof(int))];
        msghdr message{};
        message.msg_iov = &buffer;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t received = recvmsg(mPeer, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (received <= 0) return;
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
             header = CMSG_NXTHDR(&message, header)) {
            for (size_t at = 0; at + sizeof(int) <= header->cmsg_len - CMSG_LEN(0);
                 at += sizeof(int)) {
                int fd = -1;
                memcpy(&fd, CMSG_DATA(header) + at, sizeof fd);
                close(fd);
            }
        }
        mReader.feed(chunk.data(), static_cast<size_t>(received),
                     [this](FrameKind kind, const uint8_t* body, size_t size) {
                         const Bytes again = writtenAgain(kind, body, size);
                         check(again.size() == kFrameHeader + size &&
                                   memcmp(again.data() + kFrameHeader, body, size) == 0,
                               "written again the frame is another one");
                         if (kind != FrameKind::kReply && kind != FrameKind::kCall) return;
                         const Payload payload = kind == FrameKind::kReply
                                                     ? parseReply(body, size).payload
                                                     : parseCall(body, size).payload;
                         for (size_t i = 0; i < payload.offsets.size(); ++i) {
                             const ObjectEntry entry = payload.object(i);
                             if (entry.type == kOwnedBySender) {
                                 mExported.push_back(static_cast<uint32_t>(entry.handle));
                             }
                         }
                     });
    }
}

// As the generated code would, but that it would have asked for the interface first, which blocks.
void Program::oneway(const ndk::SpAIBinder& binder) {
    AParcel* const in = new AParcel(binder.get());
    mObjects.put(in);
    AParcel* handedOver = in;
    ndk::ScopedAParcel out;
    (void)AIBinder_transact(binder.get(), 1 + mInput.byte(), &handedOver, out.getR(), FLAG_ONEWAY);
}

void Program::useHeld() {
    if (mObjects.holdsAny()) {
        mObjects.use();
    } else if (mLink->isAlive() && mInput.flag()) {
        mObjects.hold(ndk::SpAIBinder(refTo(mLink->root().get()).release()));
    }
}

void Program::end() {
    close(std::exchange(mPeer, -1));
    mLink->onReady(EPOLLIN | EPOLLHUP);
    runPosted();
    mObjects.expectDeathOfAll();
    mObjects.checkDeaths();
    mObjects.letGo();
    mLink.reset();
    LateCommand::runQueued();
    runPosted();
    check(Objects::alive() == 0, "objects are left of a link that has ended");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    Input input(bytes, size);
    Program(input).run();
    return 0;
}
