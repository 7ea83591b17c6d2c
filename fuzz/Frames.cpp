// SPDX-License-Identifier: Apache-2.0
// What a peer sends over a socket link, frame by frame, damaged, or just bytes, in pieces of any
// size and with any descriptors, to a link whose objects are called, passed on, watched and let go
// meanwhile. What the link sends is well-formed, and it ends with what is not. Each blocking call
// returns what it was answered, and carries out meanwhile what is nested in it. Each death is
// reported once, and nothing is left of a link that has ended.
#include <android/binder_auto_utils.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/InlinePool.h"
#include "fuzz/Input.h"
#include "fuzz/Objects.h"
#include "platform/linux/src/CallContext.h"
#include "platform/linux/src/FrameReader.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/LocalLink.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/Status.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/RawPeer.h"
#include "tests/platform/SendWith.h"
#include "tools/emulator/ProcessStats.h"

namespace {

constexpr unsigned int kMostSteps = 64;
constexpr size_t kMostCalls = 3;
constexpr size_t kMostDescriptors = kMaxDescriptors + 2;

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
    // While a blocking call waits.
    void wait();

  private:
    // A blocking call, which this thread makes.
    struct Call {
        uint64_t id = 0;  // 0 until the peer has it
        std::optional<binder_status_t> answer;
        Bytes reply;           // unless it has objects
        bool certain = false;  // that the link has taken the answer
    };
    // A blocking call of the peer that is to be answered.
    struct Incoming {
        uint64_t id;
        uint64_t outer;  // the waiting call that it is nested in; 0 if none
    };
    struct Sent {
        Bytes bytes;
        size_t descriptors = 0;
    };

    bool isOver() const { return mSteps == kMostSteps || mInput.empty(); }
    void advance();
    void step();
    Sent makeFrame();
    Bytes makePayload(std::vector<uint32_t>* offsets, std::vector<ObjectEntry>* objects);
    uint32_t anyHandle();
    void send(const Sent& sent);
    void sendPiece(const uint8_t* bytes, size_t size, size_t descriptors);
    void onSent(FrameKind kind, const uint8_t* body, size_t size, bool taken);
    void receive();
    void onReceived(FrameKind kind, const uint8_t* body, size_t size);
    void useHeld();
    void call(const ndk::SpAIBinder& object);
    void checkOutcome(const Call& call, binder_status_t status, const AParcel* reply) const;
    Call* findWaiting(uint64_t id);
    void onAnswered(uint64_t id);
    void onPassed(size_t expected, bool taken);
    bool isUp() const;
    void hangUp();

    Input& mInput;
    unsigned int mSteps = 0;
    int mPeer = -1;  // the socket's other end
    std::shared_ptr<LocalLink> mLink;
    FrameReader mReader;
    FrameReader mSent;  // as the link's own
    bool mGreeted = false;
    std::vector<Call> mCalls;  // each made while the one before waits
    std::vector<Incoming> mIncoming;
    std::deque<size_t> mPassed;       // how many descriptors, of frames that were not whole yet
    std::vector<uint32_t> mExported;  // numbers of ours that the peer has seen
    Objects mObjects;
};

Program* gProgram = nullptr;

Program::Program(Input& input)
    : mInput(input),
      mObjects(
          input, [this](const ndk::SpAIBinder& object) { call(object); },
          [this] {
              if (!mInput.empty() && mInput.rarely(8)) useHeld();
          }) {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
          "no sockets");
    mPeer = ends[1];
    const ndk::SpAIBinder root = mInput.flag() ? mObjects.make() : nullptr;
    mLink = std::make_shared<LocalLink>(UniqueFd(ends[0]),
                                        root.get() == nullptr ? nullptr : refTo(root.get()));
    if (root.get() != nullptr) mExported.push_back(0);
    if (!mInput.rarely(16)) send({hello()});
}

Program::~Program() {
    if (mPeer >= 0) close(mPeer);
}

void Program::run() {
    while (!isOver()) advance();
    runPosted();
    receive();
    check(mIncoming.empty() || !isUp(), "a call that is not answered");
    hangUp();
    runPosted();
    mObjects.expectDeathOfAll();
    mObjects.checkDeaths();
    mObjects.letGo();
    mLink.reset();
    LateCommand::runQueued();
    runPosted();
    check(Objects::alive() == 0, "objects are left of a link that has ended");
}

void Program::wait() {
    check(mPeer >= 0, "a call that waits for a peer that is gone");
    receive();
    const bool busy = std::any_of(mIncoming.begin(), mIncoming.end(), [this](const Incoming& call) {
        return call.outer == mCalls.back().id;
    });
    check(!busy || mCalls.back().id == 0 || !isUp(), "a nested call that is not carried out");
    isOver() ? hangUp() : advance();
}

void Program::hangUp() {
    if (mPeer >= 0) close(std::exchange(mPeer, -1));
    mLink->onReady(EPOLLIN | EPOLLHUP);
}

void Program::advance() {
    ++mSteps;
    step();
    receive();
}

void Program::step() {
    switch (mInput.pick(12)) {
        case 0: {
            Bytes bytes = mInput.bytes(mInput.byte());
            send({std::move(bytes), mInput.rarely(4) ? mInput.pick(kMostDescriptors) : 0});
            break;
        }
        case 1: {
            Sent frame = makeFrame();
            frame.bytes[mInput.byte() % frame.bytes.size()] = mInput.byte();
            if (mInput.rarely(4)) frame.bytes.resize(mInput.byte() % frame.bytes.size());
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

Program::Sent Program::makeFrame() {
    Bytes frame;
    std::vector<uint32_t> offsets;
    std::vector<ObjectEntry> objects;
    switch (mInput.pick(8)) {
        case 0: frame = hello(); break;
        case 1: appendRelease(&frame, anyHandle(), 1 + mInput.pick(3)); break;
        case 2: appendDone(&frame, mInput.number<uint32_t>()); break;
        case 3: {
            const uint64_t id = mCalls.empty() || mInput.rarely(8)
                                    ? mInput.number<uint64_t>()
                                    : mCalls[mInput.byte() % mCalls.size()].id;
            if (mInput.rarely(4)) {
                frame = reply(id, mInput.number<int32_t>());
                break;
            }
            const Bytes data = makePayload(&offsets, &objects);
            appendReply(&frame, id, STATUS_OK, payloadOf(data, offsets, objects));
            break;
        }
        default: {
            const uint64_t id = mInput.flag() ? 0 : 1 + mInput.byte();
            const uint32_t handle = anyHandle();
            const uint32_t code = mInput.rarely(8) ? mInput.number<uint32_t>() : mInput.pick(16);
            const Bytes data = makePayload(&offsets, &objects);
            std::vector<uint64_t> chain;
            if (id != 0) {
                for (const Call& call : mCalls) {
                    if (mInput.flag()) chain.push_back(call.id);
                }
                chain.push_back(id);
            }
            appendCall(&frame, id, handle, code, id == 0 ? FLAG_ONEWAY : 0, chain,
                       payloadOf(data, offsets, objects));
            break;
        }
    }
    if (mInput.rarely(8)) return {frame, mInput.pick(kMostDescriptors)};
    const auto descriptors =
        std::count_if(objects.begin(), objects.end(),
                      [](const ObjectEntry& entry) { return entry.type == kDescriptor; });
    return {frame, static_cast<size_t>(descriptors)};
}

// In pieces, each of which the link is to read. The descriptors belong to the first, and seldom
// come with another.
void Program::send(const Sent& sent) {
    const size_t pieces = 1 + (mInput.rarely(4) ? mInput.pick(8) : 0);
    const size_t size = sent.bytes.size() / pieces + 1;
    const size_t withDescriptors = mInput.rarely(8) ? size : 0;
    for (size_t at = 0; at < sent.bytes.size() && isUp(); at += size) {
        const uint8_t* const piece = sent.bytes.data() + at;
        const size_t length = std::min(size, sent.bytes.size() - at);
        sendPiece(piece, length, at == withDescriptors ? sent.descriptors : 0);
        mLink->onReady(EPOLLIN);
        const bool taken = isUp();
        try {
            mSent.feed(piece, length, [&](FrameKind kind, const uint8_t* body, size_t bodySize) {
                onSent(kind, body, bodySize, taken);
            });
            check(!taken || mPassed.size() <= (mSent.empty() ? 0 : 1),
                  "a link that takes descriptors of no frame");
        } catch (const MalformedFrame&) {
            check(!taken, "a link that goes on after what is malformed");
        }
    }
    if (!isUp()) mLink->onReady(EPOLLIN | EPOLLHUP);
}

void Program::sendPiece(const uint8_t* bytes, size_t size, size_t descriptors) {
    if (descriptors != 0) mPassed.push_back(descriptors);
    (void)sendWith(mPeer, bytes, size, std::vector<int>(descriptors, STDERR_FILENO));
}

// A whole frame, as the link has it too. taken: whether it has surely taken it; otherwise the
// connection has ended, with it or with what came together with it.
void Program::onSent(FrameKind kind, const uint8_t* body, size_t size, bool taken) {
    require(mGreeted == (kind != FrameKind::kHello), "no greeting, or a second one");
    mGreeted = true;
    (void)writtenAgain(kind, body, size);
    if (kind == FrameKind::kReply) {
        const ReplyFrame reply = parseReply(body, size);
        onPassed(reply.payload.descriptors, taken);
        Call* const call = findWaiting(reply.id);
        check(call != nullptr || !taken, "a link that takes a reply to no call");
        if (call == nullptr) return;
        call->answer = knownStatus(reply.status);
        call->certain = taken;
        if (reply.payload.offsets.empty()) {
            call->reply.assign(reply.payload.data, reply.payload.data + reply.payload.size);
        }
    } else if (kind == FrameKind::kCall) {
        const CallFrame frame = parseCall(body, size);
        onPassed(frame.payload.descriptors, taken);
        if (frame.oneway() || !taken) return;
        const auto outer = std::find_if(frame.chain.rbegin(), frame.chain.rend(),
                                        [this](uint64_t id) { return findWaiting(id) != nullptr; });
        mIncoming.push_back({frame.id, outer == frame.chain.rend() ? 0 : *outer});
    }
}

// A whole frame has so many descriptors.
void Program::onPassed(size_t expected, bool taken) {
    if (expected == 0) return;
    const size_t passed = mPassed.empty() ? 0 : mPassed.front();
    if (passed != 0) mPassed.pop_front();
    check(passed == expected || !taken, "a link that takes other descriptors than a frame has");
}

// Of several calls with this id, rather one that is nested in the innermost that waits.
void Program::onAnswered(uint64_t id) {
    const uint64_t innermost = mCalls.empty() ? 0 : mCalls.back().id;
    auto found = mIncoming.end();
    for (auto call = mIncoming.begin(); call != mIncoming.end(); ++call) {
        if (call->id == id && (found == mIncoming.end() || call->outer == innermost)) found = call;
    }
    check(found != mIncoming.end(), "a reply to no call");
    mIncoming.erase(found);
}

Program::Call* Program::findWaiting(uint64_t id) {
    const auto found = std::find_if(mCalls.begin(), mCalls.end(), [id](const Call& call) {
        return call.id != 0 && call.id == id && !call.answer;
    });
    return found == mCalls.end() ? nullptr : &*found;
}

bool Program::isUp() const {
    pollfd end{mPeer, POLLRDHUP, 0};
    return mPeer >= 0 && TEMP_FAILURE_RETRY(poll(&end, 1, 0)) == 0;
}

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
                         onReceived(kind, body, size);
                     });
    }
}

// What the link has sent is well-formed, and is what would be written for the same.
void Program::onReceived(FrameKind kind, const uint8_t* body, size_t size) {
    const Bytes again = writtenAgain(kind, body, size);
    check(
        again.size() == kFrameHeader + size && memcmp(again.data() + kFrameHeader, body, size) == 0,
        "written again the frame is another one");
    Payload payload;
    if (kind == FrameKind::kReply) {
        ReplyFrame reply = parseReply(body, size);
        onAnswered(reply.id);
        payload = std::move(reply.payload);
    } else if (kind == FrameKind::kCall) {
        CallFrame call = parseCall(body, size);
        if (!call.oneway()) {
            check(!mCalls.empty() && mCalls.back().id == 0, "a call that nobody made");
            mCalls.back().id = call.id;
            std::vector<uint64_t> chain;
            if (currentCall() != nullptr) chain = *currentCall()->chain;
            chain.push_back(call.id);
            if (chain.size() > kMaxChain) chain.erase(chain.begin());
            check(call.chain == chain, "a call that does not say what it is nested in");
        }
        payload = std::move(call.payload);
    }
    for (size_t i = 0; i < payload.offsets.size(); ++i) {
        const ObjectEntry entry = payload.object(i);
        if (entry.type == kOwnedBySender) mExported.push_back(static_cast<uint32_t>(entry.handle));
    }
}

// As the generated code would, but that it would have asked for the interface first.
void Program::call(const ndk::SpAIBinder& object) {
    AParcel* in = new AParcel(object.get());
    mObjects.put(in);
    ndk::ScopedAParcel out;
    const transaction_code_t code = 1 + mInput.byte();
    if (mCalls.size() == kMostCalls || !mInput.flag()) {
        (void)AIBinder_transact(object.get(), code, &in, out.getR(), FLAG_ONEWAY);
        return;
    }
    mCalls.emplace_back();
    const binder_status_t status = AIBinder_transact(object.get(), code, &in, out.getR(), 0);
    checkOutcome(mCalls.back(), status, out.get());
    mCalls.pop_back();
    if (status == STATUS_OK) mObjects.take(out.get());
}

void Program::checkOutcome(const Call& call, binder_status_t status, const AParcel* reply) const {
    if (call.id == 0) {
        check(status != STATUS_OK, "a call that was never made and succeeds");
    } else if (!call.answer) {
        check(status == STATUS_DEAD_OBJECT && !isUp(), "a call that returns without an answer");
    } else {
        check(status == *call.answer || (status == STATUS_DEAD_OBJECT && !call.certain),
              "a call that does not return what it was answered");
        check(status != STATUS_OK || !reply->objects().empty() || reply->bytes() == call.reply,
              "a call that returns another's reply");
    }
}

void Program::useHeld() {
    if (mObjects.holdsAny()) {
        mObjects.use();
    } else if (mLink->isAlive() && mInput.flag()) {
        mObjects.hold(ndk::SpAIBinder(refTo(mLink->root().get()).release()));
    }
}

}  // namespace

// Only a blocking call waits, and this thread goes on with the program meanwhile.
extern "C" void __wrap__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(
    std::condition_variable*, std::unique_lock<std::mutex>* lock) {
    lock->unlock();
    gProgram->wait();
    lock->lock();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const size_t descriptors = openDescriptors();
    Input input(bytes, size);
    {
        Program program(input);
        gProgram = &program;
        program.run();
    }
    check(openDescriptors() == descriptors, "descriptors are left");
    return 0;
}
