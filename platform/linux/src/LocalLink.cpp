// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LocalLink.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/src/CallContext.h"
#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/IncomingCall.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/OutgoingParcel.h"
#include "platform/linux/src/PendingCalls.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/Status.h"
#include "platform/linux/src/ThreadPool.h"
#include "utils/Log.h"

using lum::utils::MutexLock;

namespace {

// What is put on a peer's account besides bytes, a little more than it takes: for a connection what
// the kernel keeps for it, for a call what carries it, and for an object the tables, the proxy, and
// what a service is likely to note about it.
constexpr size_t kConnectionCost = size_t{256} * 1024;
constexpr size_t kCallCost = 512;
constexpr size_t kObjectCost = 1024;
constexpr size_t kReadSize = size_t{64} * 1024;

// Something with references that must not end in onReady(), since objects end with code of the
// application.
template <typename Held>
class Discarded final : public Work {
  public:
    explicit Discarded(Held held) : mHeld(std::move(held)) {}
    // It ends with the work, on the same thread.
    void run() override {}

  private:
    const Held mHeld;
};

template <typename Held>
void discard(Held held) {
    ThreadPool::instance().post(std::make_unique<Discarded<Held>>(std::move(held)));
}

// Ends the registration that a proxy has left behind. It goes by the number of the object, as in
// the driver: a peer gives out a number again only after all 2^32 others.
class LateUnwatch final : public LateCommand {
  public:
    LateUnwatch(std::weak_ptr<LocalLink> link, uint32_t handle)
        : mLink(std::move(link)), mHandle(handle) {}

  private:
    void run() noexcept override {
        const std::shared_ptr<LocalLink> link = mLink.lock();
        if (link != nullptr) link->unwatchDeath(mHandle);
    }

    const std::weak_ptr<LocalLink> mLink;
    const uint32_t mHandle;
};

ucred readPeer(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) return peer;
    // Nobody's: -1 is no user, and 0 no process.
    LUM_LOGE("binder: a peer without credentials (%s)", strerror(errno));
    return {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
}

// The calls that one made now on this thread is nested in, itself last.
std::vector<uint64_t> chainTo(uint64_t id) {
    std::vector<uint64_t> chain;
    if (const CallContext* const call = currentCall(); call != nullptr) {
        const std::vector<uint64_t>& outer = *call->chain;
        const size_t kept = std::min(outer.size(), kMaxChain - 1);
        chain.assign(outer.end() - static_cast<std::ptrdiff_t>(kept), outer.end());
    }
    chain.push_back(id);
    return chain;
}

}  // namespace

std::shared_ptr<LocalLink> LocalLink::open(UniqueFd socket, BinderRef root) {
    auto link = std::make_shared<LocalLink>(std::move(socket), std::move(root));
    {
        const MutexLock lock(link->mLock);
        link->mSocket.append(appendHello);
        if (!link->settle()) return nullptr;
    }
    if (!IoLoop::instance().add(link->mInput, link)) return nullptr;
    const MutexLock lock(link->mLock);
    if (!link->mSocket.broken()) link->flush();
    return link;
}

LocalLink::LocalLink(UniqueFd socket, BinderRef root)
    : mPeer(readPeer(socket.get())),
      mAccount(PeerAccount::of(mPeer.pid, mPeer.uid)),
      mSocket(std::move(socket), *this),
      mObjects(std::move(root)),
      mCharge(mAccount),
      mInput(mSocket.fd()) {}

size_t LocalLink::kept() const {
    return kConnectionCost + mPartBytesIn + mSocket.unwritten() + mFlow.bytesIn() +
           mFlow.countIn() * kCallCost + mObjects.size() * kObjectCost;
}

bool LocalLink::settle() {
    if (mCharge.set(kept())) return true;
    LUM_LOGE(
        "binder: process %d makes this one keep too much (at most %zu bytes for a process, and its "
        "share of %zu for user %u), connection ended",
        mPeer.pid, PeerAccount::kMostOfProcess, PeerAccount::kMostOfUser, mPeer.uid);
    return false;
}

bool LocalLink::isAlive() {
    const MutexLock lock(mLock);
    return !mSocket.broken() && !mSocket.peerHungUp();
}

binder_status_t LocalLink::watchDeath(uint32_t handle, std::unique_ptr<LateCommand>* late) {
    auto lateUnwatch = std::make_unique<LateUnwatch>(weak_from_this(), handle);
    const MutexLock lock(mLock);
    if (mSocket.broken() || mSocket.peerHungUp()) return STATUS_DEAD_OBJECT;
    mObjects.registerForDeath(handle);
    *late = std::move(lateUnwatch);
    return STATUS_OK;
}

void LocalLink::unwatchDeath(uint32_t handle) noexcept {
    const MutexLock lock(mLock);
    mObjects.unregister(handle);
}

BinderRef LocalLink::root() {
    const MutexLock lock(mLock);
    return mObjects.proxy(0, shared_from_this());
}

binder_status_t LocalLink::transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                                    binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    size_t size = 0;
    if ((flags & FLAG_ONEWAY) != 0) {
        auto empty = std::make_unique<AParcel>();
        const MutexLock lock(mLock);
        const binder_status_t status = sendCall(nullptr, handle, code, in, flags, &size);
        if (status == STATUS_OK) *out = std::move(empty);
        return status;
    }
    // What is nested in the call may let go of the proxy, and the proxy of this.
    const std::shared_ptr<LocalLink> self = shared_from_this();
    PendingCall call(this);
    {
        const MutexLock lock(mLock);
        const binder_status_t status = sendCall(&call, handle, code, in, flags, &size);
        if (status != STATUS_OK) return status;
    }
    std::unique_ptr<AParcel> reply;
    const binder_status_t status = call.wait(&reply);
    if (status == STATUS_OK) *out = std::move(reply);
    const MutexLock lock(mLock);
    mFlow.callEnded(size);
    return status;
}

// call: null for a one-way call; size: set to what counts as under way.
binder_status_t LocalLink::sendCall(const PendingCall* call, uint32_t handle,
                                    transaction_code_t code, const AParcel& in,
                                    binder_flags_t flags, size_t* size) {
    if (mSocket.broken()) return STATUS_DEAD_OBJECT;
    OutgoingParcel outgoing(in, *this, mObjects);
    const binder_status_t status = outgoing.prepare();
    if (status != STATUS_OK) return status;

    const bool oneway = call == nullptr;
    std::vector<uint64_t> chain;
    if (!oneway) chain = chainTo(call->id());
    *size = callFrameSize(chain.size(), in.bytes().size(), in.objects().size()) +
            outgoing.descriptors().size() * kDescriptorCost;
    if (!mFlow.maySend(oneway, *size)) {
        LUM_LOGE("binder: process %d has too many calls to finish, another is refused", mPeer.pid);
        return STATUS_FAILED_TRANSACTION;
    }
    mSocket.append(
        [&](std::vector<uint8_t>* frame) {
            appendCall(frame, oneway ? 0 : call->id(), handle, code, flags, chain,
                       outgoing.payload());
        },
        outgoing.descriptors());
    outgoing.sent();
    mFlow.sent(oneway, *size);
    flush();
    // A blocking call that is cut off here is ended by onReady(), as all others are.
    return oneway && mSocket.broken() ? STATUS_DEAD_OBJECT : STATUS_OK;
}

void LocalLink::flush() {
    mSocket.flush();
    if (!mSocket.broken() && !settle()) mSocket.giveUp();
}

void LocalLink::giveUpWithoutMemory() {
    LUM_LOGE("binder: no memory, connection to process %d ended", mPeer.pid);
    mSocket.giveUp();
}

template <typename Append>
void LocalLink::sendControl(Append&& append) noexcept {
    if (mSocket.broken()) return;
    try {
        mSocket.append(append);
        flush();
    } catch (const std::bad_alloc&) {
        giveUpWithoutMemory();
    }
}

void LocalLink::releaseProxy(RemoteBinder& proxy) noexcept {
    const MutexLock lock(mLock);
    const uint64_t count = mObjects.release(proxy);
    mCharge.set(kept());
    if (count == 0) return;
    sendControl([&](std::vector<uint8_t>* frame) { appendRelease(frame, proxy.handle(), count); });
}

void LocalLink::acknowledge(size_t size) noexcept {
    const MutexLock lock(mLock);
    const uint32_t bytes = mFlow.onewayDone(size);
    mCharge.set(kept());
    if (bytes == 0) return;
    sendControl([&](std::vector<uint8_t>* frame) { appendDone(frame, bytes); });
}

void LocalLink::reply(uint64_t id, size_t size, binder_status_t status,
                      const AParcel& out) noexcept {
    const MutexLock lock(mLock);
    mFlow.callDone(size);
    mCharge.set(kept());
    if (mSocket.broken()) return;
    try {
        sendReply(id, status, out);
    } catch (const std::bad_alloc&) {
        giveUpWithoutMemory();
    }
}

void LocalLink::sendReply(uint64_t id, binder_status_t status, const AParcel& out) {
    const AParcel nothing;
    OutgoingParcel outgoing(status == STATUS_OK ? out : nothing, *this, mObjects);
    const binder_status_t prepared = outgoing.prepare();
    if (prepared == STATUS_OK) {
        mSocket.append(
            [&](std::vector<uint8_t>* frame) {
                appendReply(frame, id, status, outgoing.payload());
            },
            outgoing.descriptors());
        outgoing.sent();
    } else {
        mSocket.append([&](std::vector<uint8_t>* frame) {
            appendReply(frame, id, prepared, {nullptr, 0, {}, {}});
        });
    }
    flush();
}

void LocalLink::onReady(uint32_t events) {
    if (mEnded) return;
    if ((events & EPOLLOUT) != 0) {
        const MutexLock lock(mLock);
        if (!mSocket.broken()) flush();
    }
    if ((events & ~uint32_t{EPOLLOUT}) == 0) return;
    if (!withoutThrowing([this] { return receive(); }, false)) end();
}

// Returns false when the connection is over.
bool LocalLink::receive() try {
    std::array<uint8_t, kReadSize> chunk;
    const ssize_t received = mDescriptors.receive(mInput, chunk.data(), chunk.size());
    if (received < 0) return errno == EAGAIN || errno == EINTR;
    if (received == 0) {
        if (!mReader.empty())
            LUM_LOGE("binder: process %d left in the middle of a frame", mPeer.pid);
        return false;
    }
    mReader.feed(
        chunk.data(), static_cast<size_t>(received),
        [this](FrameKind kind, const uint8_t* body, size_t size) { onFrame(kind, body, size); });
    mDescriptors.check(!mReader.empty());
    const MutexLock lock(mLock);
    mPartBytesIn = mReader.capacity() + mDescriptors.size() * kDescriptorCost;
    return mSocket.broken() || settle();
} catch (const MalformedFrame& fault) {
    LUM_LOGE("binder: process %d sent malformed data (%s), connection ended", mPeer.pid,
             fault.what());
    return false;
}

void LocalLink::onFrame(FrameKind kind, const uint8_t* body, size_t size) {
    if (!mGreeted) {
        require(kind == FrameKind::kHello, "no greeting");
        mGreeted = true;
        parseHello(body, size);
        return;
    }
    switch (kind) {
        case FrameKind::kHello: throw MalformedFrame("a second greeting");
        case FrameKind::kCall: return onCall(parseCall(body, size), kFrameHeader + size);
        case FrameKind::kReply: return onReply(parseReply(body, size));
        case FrameKind::kRelease: return onRelease(parseRelease(body, size));
        case FrameKind::kDone: {
            const MutexLock lock(mLock);
            return mFlow.acknowledged(parseDone(body, size));
        }
    }
    throw MalformedFrame("a frame of unknown kind");
}

void LocalLink::onCall(CallFrame&& frame, size_t size) {
    size += frame.payload.descriptors * kDescriptorCost;
    BinderRef target;
    {
        const MutexLock lock(mLock);
        target = refTo(&mObjects.exported(frame.handle, "a call of an object it does not hold"));
        mFlow.receive(frame.oneway(), size);
    }
    bool complete = false;
    std::unique_ptr<AParcel> in = importParcel(frame.payload, &complete);
    auto call = std::make_unique<IncomingCall>(shared_from_this(), std::move(frame), size,
                                               std::move(target), std::move(in), complete);
    if (call->oneway()) {
        LocalBinder& object = call->target();
        object.postOneway(std::move(call));
        return;
    }
    const std::vector<uint64_t>& chain = call->chain();
    std::unique_ptr<Work> work = std::move(call);
    if (!PendingCalls::instance().runNested(chain, &work)) {
        ThreadPool::instance().post(std::move(work));
    }
}

std::unique_ptr<AParcel> LocalLink::importParcel(const Payload& payload, bool* complete) {
    std::vector<SharedFd> descriptors;
    *complete = mDescriptors.take(payload.descriptors, &descriptors);
    if (!*complete) {
        LUM_LOGE("binder: no descriptors left for what process %d sent, the call fails", mPeer.pid);
        descriptors.resize(payload.descriptors);
    }
    auto descriptor = descriptors.begin();
    std::vector<uint8_t> bytes(payload.data, payload.data + payload.size);
    std::vector<AParcel::Object> objects;
    objects.reserve(payload.offsets.size());
    // Locked behind them: without memory for all, the proxies made so far end, which locks it too.
    const MutexLock lock(mLock);
    // All of it first: what is received must not be dropped again in onReady().
    for (size_t i = 0; i < payload.offsets.size(); ++i) mObjects.check(payload.object(i));
    for (size_t i = 0; i < payload.offsets.size(); ++i) {
        const uint32_t offset = payload.offsets[i];
        const ObjectEntry entry = payload.object(i);
        if (entry.type == kDescriptor) {
            objects.push_back({offset, nullptr, std::move(*descriptor++)});
        } else {
            objects.push_back({offset, mObjects.receive(entry, shared_from_this())});
        }
        // What the entry says besides its stability is of use on the wire only.
        memset(bytes.data() + offset, 0, offsetof(ObjectEntry, stability));
    }
    return std::make_unique<AParcel>(std::move(bytes), std::move(objects));
}

void LocalLink::onReply(const ReplyFrame& frame) {
    bool complete = false;
    std::unique_ptr<AParcel> reply = importParcel(frame.payload, &complete);
    const binder_status_t status = complete ? knownStatus(frame.status) : STATUS_FAILED_TRANSACTION;
    if (PendingCalls::instance().finish(this, frame.id, status, &reply)) return;
    discard(std::move(reply));
    throw MalformedFrame("a reply to no call");
}

void LocalLink::onRelease(const ReleaseFrame& frame) {
    BinderRef last;
    {
        const MutexLock lock(mLock);
        last = mObjects.takeBack(frame.handle, frame.count);
    }
    if (last != nullptr) discard(std::move(last));
}

void LocalLink::end() noexcept {
    mEnded = true;
    mDescriptors.clear();
    std::map<uint32_t, ObjectTable::Export> exports;
    {
        const MutexLock lock(mLock);
        mSocket.close();
        exports = mObjects.takeAllBack();
        mPartBytesIn = 0;
        mCharge.set(kept());
    }
    PendingCalls::instance().failAll(this, STATUS_DEAD_OBJECT);
    for (;;) {
        std::unique_ptr<DeathNotification> notification;
        {
            const MutexLock lock(mLock);
            if (!mObjects.takeRegistration(&notification)) break;
        }
        if (notification != nullptr) ThreadPool::instance().post(std::move(notification));
    }
    if (!exports.empty()) withoutThrowing([&] { discard(std::move(exports)); });
}
