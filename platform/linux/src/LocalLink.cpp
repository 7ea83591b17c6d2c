// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LocalLink.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "platform/linux/src/CallContext.h"
#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/PendingCalls.h"
#include "platform/linux/src/Status.h"
#include "platform/linux/src/ThreadPool.h"
#include "utils/Log.h"

namespace {

// How much may be under way over one connection and in one direction. One-way calls have half of
// what a transaction may have at most, so that they cannot crowd out the others.
constexpr size_t kMaxOnewayBytes = kMaxTransaction / 2;
constexpr size_t kMaxCallBytes = 16 * kMaxTransaction;
// What is put on a peer's account besides bytes, a little more than it takes: for a connection what
// the kernel keeps for it, for a call what carries it, and for an object the tables, the proxy, and
// what a service is likely to note about it.
constexpr size_t kConnectionCost = size_t{256} * 1024;
constexpr size_t kCallCost = 512;
constexpr size_t kObjectCost = 1024;
// The peer is told of finished one-way calls in portions, the last as soon as none is under way.
constexpr size_t kDonePortion = kMaxOnewayBytes / 4;
constexpr size_t kReadSize = size_t{64} * 1024;

// Something with references that must not end on the I/O thread, since objects end with code of the
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
        if (link != nullptr) link->endRegistration(mHandle);
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

// The lane for a call. One-way calls need none: those to one object are carried out one by one.
std::shared_ptr<WorkLane> laneFor(const CallFrame& frame, const LocalLink& link) {
    if (frame.oneway()) return nullptr;
    return {link.account(), &link.account()->lane()};
}

// A call of the peer, on its way to one of our objects.
class IncomingCall final : public Work {
  public:
    IncomingCall(std::shared_ptr<LocalLink> link, CallFrame&& frame, size_t size, BinderRef target,
                 std::unique_ptr<AParcel> in)
        : Work(laneFor(frame, *link)),
          mLink(std::move(link)),
          mId(frame.id),
          mCode(frame.code),
          mChain(std::move(frame.chain)),
          mSize(size),
          mTarget(std::move(target)),
          mIn(std::move(in)) {}

    bool oneway() const { return mId == 0; }
    const std::vector<uint64_t>& chain() const { return mChain; }
    LocalBinder& target() const { return *mTarget->asLocal(); }

    void run() override {
        AParcel out;
        const binder_status_t status = carryOut(&out);
        if (oneway()) {
            mIn.reset();
            mLink->onewayDone(mSize);
            target().onewayDone();
        } else {
            mLink->callDone(mSize);
            mLink->sendReply(mId, status, status == STATUS_OK ? &out : nullptr);
        }
    }

  private:
    binder_status_t carryOut(AParcel* out) {
        // Nobody answers for a one-way call: its caller may be gone, and another have its pid.
        const CallContext context{mLink->peerUid(), oneway() ? 0 : mLink->peerPid(), &mChain};
        const CallScope scope(context);
        return target().transact(mCode, *mIn, out);
    }

    const std::shared_ptr<LocalLink> mLink;
    const uint64_t mId;
    const uint32_t mCode;
    const std::vector<uint64_t> mChain;
    const size_t mSize;
    const BinderRef mTarget;
    std::unique_ptr<AParcel> mIn;
};

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

// The objects of a parcel on their way out. Each is exported once more; should the parcel not be
// sent after all, that is taken back.
class LocalLink::Outgoing {
  public:
    Outgoing(LocalLink& link, const AParcel& parcel) : mLink(link), mParcel(parcel) {}
    ~Outgoing() {
        // The parcel holds the objects, so that none ends here.
        for (const uint32_t id : mExported) mLink.takeBack(id, 1);
    }
    Outgoing(const Outgoing&) = delete;
    Outgoing& operator=(const Outgoing&) = delete;

    // Returns STATUS_OK, or why the parcel cannot be sent over this link.
    binder_status_t prepare() {
        const std::vector<AParcel::Object>& objects = mParcel.objects();
        if (transactionCost(mParcel.bytes().size(), objects.size()) > kMaxTransaction) {
            LUM_LOGE("binder: a transaction of %zu bytes is too large", mParcel.bytes().size());
            return STATUS_FAILED_TRANSACTION;
        }
        mOffsets.reserve(objects.size());
        mEntries.reserve(objects.size());
        mExported.reserve(objects.size());
        for (const AParcel::Object& object : objects) {
            const binder_status_t status = prepareObject(object);
            if (status != STATUS_OK) return status;
        }
        return STATUS_OK;
    }

    OutgoingPayload payload() const {
        return {mParcel.bytes().data(), mParcel.bytes().size(), mOffsets, mEntries};
    }

    void sent() { mExported.clear(); }

  private:
    binder_status_t prepareObject(const AParcel::Object& object) {
        ObjectEntry entry{};
        memcpy(&entry, mParcel.bytes().data() + object.offset, sizeof entry);
        entry.cookie = 0;
        if (RemoteBinder* const remote = object.binder->asRemote(); remote == nullptr) {
            entry.type = kOwnedBySender;
            entry.handle = mLink.exportObject(object.binder.get());
            if (entry.handle != 0) mExported.push_back(static_cast<uint32_t>(entry.handle));
        } else if (&remote->link() == &mLink) {
            entry.type = kOwnedByReceiver;
            entry.handle = remote->handle();
        } else {
            LUM_LOGE("binder: an object of a third process cannot be passed on");
            return STATUS_INVALID_OPERATION;
        }
        mOffsets.push_back(static_cast<uint32_t>(object.offset));
        mEntries.push_back(entry);
        return STATUS_OK;
    }

    LocalLink& mLink;
    const AParcel& mParcel;
    std::vector<uint32_t> mOffsets;
    std::vector<ObjectEntry> mEntries;
    std::vector<uint32_t> mExported;
};

std::shared_ptr<LocalLink> LocalLink::open(UniqueFd socket, BinderRef root) {
    const int fd = socket.get();
    auto link = std::make_shared<LocalLink>(std::move(socket), std::move(root));
    {
        const std::lock_guard<std::mutex> guard(link->mLock);
        if (!link->settle()) return nullptr;
    }
    if (!IoThread::instance().add(fd, link)) return nullptr;
    const std::lock_guard<std::mutex> guard(link->mLock);
    if (!link->mBroken) link->flush();
    return link;
}

LocalLink::LocalLink(UniqueFd socket, BinderRef root)
    : mAccepted(root != nullptr),
      mPeer(readPeer(socket.get())),
      mSocket(std::move(socket)),
      mCharge(PeerAccount::of(mPeer.pid, mPeer.uid)) {
    mOut.append(appendHello);
    if (mAccepted) {
        mExportIds.emplace(root.get(), 0);
        mExports[0].binder = std::move(root);
    }
}

size_t LocalLink::kept() const {
    return kConnectionCost + mPartBytesIn + mOut.size() + mCallBytesIn + mOnewayBytesIn +
           mCallsIn * kCallCost + (mProxies.size() + mExports.size()) * kObjectCost;
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
    const std::lock_guard<std::mutex> guard(mLock);
    return !mBroken && !peerHungUp();
}

// Asks the socket: the I/O thread may not have come to hear of a death yet.
bool LocalLink::peerHungUp() const {
    pollfd socket{mSocket.get(), POLLRDHUP, 0};
    return poll(&socket, 1, 0) == 1;
}

binder_status_t LocalLink::watchDeath(RemoteBinder& proxy) {
    // Made now, so that the end of the proxy needs no memory.
    auto lateUnwatch = std::make_unique<LateUnwatch>(weak_from_this(), proxy.handle());
    const std::lock_guard<std::mutex> guard(mLock);
    if (mBroken || peerHungUp()) return STATUS_DEAD_OBJECT;
    if (mRegistrations.count(proxy.handle()) == 0) {
        mRegistrations.emplace(proxy.handle(), std::make_unique<DeathNotification>());
    }
    proxy.lateUnwatch = std::move(lateUnwatch);
    return STATUS_OK;
}

void LocalLink::unwatchDeath(RemoteBinder& proxy) noexcept {
    proxy.lateUnwatch.reset();
    endRegistration(proxy.handle());
}

void LocalLink::endRegistration(uint32_t handle) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    mRegistrations.erase(handle);
}

BinderRef LocalLink::root() {
    const std::lock_guard<std::mutex> guard(mLock);
    return proxyFor(0);
}

binder_status_t LocalLink::transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                                    binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    if ((flags & FLAG_ONEWAY) != 0) {
        auto empty = std::make_unique<AParcel>();
        const std::lock_guard<std::mutex> guard(mLock);
        const binder_status_t status = sendCall(nullptr, handle, code, in, flags);
        if (status == STATUS_OK) *out = std::move(empty);
        return status;
    }
    // What is nested in the call may let go of the proxy, and the proxy of this.
    const std::shared_ptr<LocalLink> self = shared_from_this();
    PendingCalls& calls = PendingCalls::instance();
    PendingCall call(this, calls.newId());
    {
        const std::lock_guard<std::mutex> guard(mLock);
        const binder_status_t status = sendCall(&call, handle, code, in, flags);
        if (status != STATUS_OK) return status;
    }
    std::unique_ptr<AParcel> reply;
    const binder_status_t status = calls.wait(call, &reply);
    if (status == STATUS_OK) *out = std::move(reply);
    const std::lock_guard<std::mutex> guard(mLock);
    mCallBytesOut -= call.size;
    return status;
}

binder_status_t LocalLink::sendCall(PendingCall* call, uint32_t handle, transaction_code_t code,
                                    const AParcel& in, binder_flags_t flags) {
    if (mBroken) return STATUS_DEAD_OBJECT;
    Outgoing outgoing(*this, in);
    const binder_status_t status = outgoing.prepare();
    if (status != STATUS_OK) return status;

    std::vector<uint64_t> chain;
    if (call != nullptr) chain = chainTo(call->id);
    const size_t size = callFrameSize(chain.size(), in.bytes().size(), in.objects().size());
    size_t& underWay = call != nullptr ? mCallBytesOut : mOnewayBytesOut;
    if (size > (call != nullptr ? kMaxCallBytes : kMaxOnewayBytes) - underWay) {
        LUM_LOGE("binder: process %d has too many calls to finish, another is refused", mPeer.pid);
        return STATUS_FAILED_TRANSACTION;
    }
    if (call != nullptr) {
        call->size = size;
        PendingCalls::instance().add(*call);
    }
    try {
        mOut.append([&](std::vector<uint8_t>* out) {
            appendCall(out, call == nullptr ? 0 : call->id, handle, code, flags, chain,
                       outgoing.payload());
        });
    } catch (const std::bad_alloc&) {
        if (call != nullptr) PendingCalls::instance().remove(*call);
        throw;
    }
    outgoing.sent();
    underWay += size;
    flush();
    // A blocking call that is cut off here is ended by the I/O thread, as all others are.
    return call == nullptr && mBroken ? STATUS_DEAD_OBJECT : STATUS_OK;
}

uint32_t LocalLink::exportObject(AIBinder* binder) {
    if (const auto known = mExportIds.find(binder); known != mExportIds.end()) {
        // Handle 0 is the peer's for as long as the connection lasts, and is not counted.
        if (known->second != 0) ++mExports[known->second].timesSent;
        return known->second;
    }
    while (mNextExport == 0 || mExports.count(mNextExport) != 0) ++mNextExport;
    const uint32_t id = mNextExport;
    mExportIds.emplace(binder, id);
    try {
        mExports.emplace(id, Export{refTo(binder), 1});
    } catch (const std::bad_alloc&) {
        mExportIds.erase(binder);
        throw;
    }
    ++mNextExport;
    return id;
}

BinderRef LocalLink::takeBack(uint32_t id, uint64_t count) {
    const auto found = mExports.find(id);
    found->second.timesSent -= count;
    if (found->second.timesSent != 0) return nullptr;
    BinderRef binder = std::move(found->second.binder);
    mExportIds.erase(binder.get());
    mExports.erase(found);
    return binder;
}

void LocalLink::flush() {
    if (mOut.writeTo(mSocket.get()) != 0 || !settle()) {
        giveUp();
        return;
    }
    const bool wantsOutput = !mOut.empty();
    if (wantsOutput == mWantsOutput) return;
    mWantsOutput = wantsOutput;
    IoThread::instance().wantOutput(mSocket.get(), this, wantsOutput);
}

// Nothing more can be said. The I/O thread still reads what the peer has said, then finds the end.
void LocalLink::giveUp() {
    mBroken = true;
    mOut.clear();
    shutdown(mSocket.get(), SHUT_RDWR);
}

template <typename Append>
void LocalLink::sendControl(Append&& append) noexcept {
    if (mBroken) return;
    try {
        mOut.append(append);
    } catch (const std::bad_alloc&) {
        // Without this frame the two ends would count differently ever after.
        LUM_LOGE("binder: no memory, connection to process %d ended", mPeer.pid);
        giveUp();
        return;
    }
    flush();
}

void LocalLink::releaseProxy(RemoteBinder& proxy) noexcept {
    if (proxy.lateUnwatch != nullptr) LateCommand::queue(std::move(proxy.lateUnwatch));
    const std::lock_guard<std::mutex> guard(mLock);
    const auto found = mProxies.find(proxy.handle());
    // The object may have been received again since its last reference here was given up.
    if (found != mProxies.end() && found->second == &proxy) mProxies.erase(found);
    mCharge.set(kept());
    if (proxy.timesReceived == 0) return;
    sendControl([&](std::vector<uint8_t>* out) {
        appendRelease(out, proxy.handle(), proxy.timesReceived);
    });
}

void LocalLink::callDone(size_t size) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    mCallBytesIn -= size;
    --mCallsIn;
    mCharge.set(kept());
}

void LocalLink::onewayDone(size_t size) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    mOnewayBytesIn -= size;
    --mCallsIn;
    mCharge.set(kept());
    mDoneOwed += static_cast<uint32_t>(size);
    if (mOnewayBytesIn != 0 && mDoneOwed < kDonePortion) return;
    sendControl([&](std::vector<uint8_t>* out) { appendDone(out, mDoneOwed); });
    mDoneOwed = 0;
}

void LocalLink::sendReply(uint64_t id, binder_status_t status, const AParcel* reply) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    sendControl([&](std::vector<uint8_t>* out) {
        const AParcel nothing;
        Outgoing outgoing(*this, status == STATUS_OK ? *reply : nothing);
        const binder_status_t carried = outgoing.prepare();
        if (carried == STATUS_OK) {
            appendReply(out, id, status, outgoing.payload());
            outgoing.sent();
        } else {
            appendReply(out, id, carried, Outgoing(*this, nothing).payload());
        }
    });
}

void LocalLink::onReady(uint32_t events) {
    if (mEnded) return;
    if ((events & EPOLLOUT) != 0) {
        const std::lock_guard<std::mutex> guard(mLock);
        if (!mBroken) flush();
    }
    if ((events & ~uint32_t{EPOLLOUT}) == 0) return;
    if (!withoutThrowing([this] { return receive(); }, false)) end();
}

// Returns false when the connection is over.
bool LocalLink::receive() {
    std::array<uint8_t, kReadSize> chunk;
    const ssize_t received = recv(mSocket.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (received < 0) return errno == EAGAIN || errno == EINTR;
    if (received == 0) {
        if (!mReader.empty())
            LUM_LOGE("binder: process %d left in the middle of a frame", mPeer.pid);
        return false;
    }
    const char* const fault =
        mReader.feed(chunk.data(), static_cast<size_t>(received),
                     [this](FrameKind kind, const uint8_t* body, size_t size) {
                         return onFrame(kind, body, size);
                     });
    if (fault == nullptr) return settleInput();
    LUM_LOGE("binder: process %d sent malformed data (%s), connection ended", mPeer.pid, fault);
    return false;
}

bool LocalLink::settleInput() {
    const std::lock_guard<std::mutex> guard(mLock);
    mPartBytesIn = mReader.capacity();
    return mBroken || settle();
}

// This and the functions it calls return null, or what is wrong with what the peer sent.
const char* LocalLink::onFrame(FrameKind kind, const uint8_t* body, size_t size) {
    if (!mGreeted) {
        if (kind != FrameKind::kHello) return "no greeting";
        mGreeted = true;
        return parseHello(body, size);
    }
    switch (kind) {
        case FrameKind::kHello: return "a second greeting";
        case FrameKind::kCall: return onCall(body, size);
        case FrameKind::kReply: return onReply(body, size);
        case FrameKind::kRelease: return onRelease(body, size);
        case FrameKind::kDone: return onDone(body, size);
    }
    return "a frame of unknown kind";
}

const char* LocalLink::onCall(const uint8_t* body, size_t size) {
    CallFrame frame;
    const char* fault = parseCall(body, size, &frame);
    if (fault != nullptr) return fault;
    const size_t frameSize = kFrameHeader + size;
    BinderRef target;
    fault = admit(frame, frameSize, &target);
    if (fault != nullptr) return fault;
    std::unique_ptr<AParcel> in;
    fault = importParcel(frame.payload, &in);
    if (fault != nullptr) return fault;

    auto call = std::make_unique<IncomingCall>(shared_from_this(), std::move(frame), frameSize,
                                               std::move(target), std::move(in));
    if (call->oneway()) {
        LocalBinder& object = call->target();
        object.postOneway(std::move(call));
        return nullptr;
    }
    const std::vector<uint64_t>& chain = call->chain();
    std::unique_ptr<Work> work = std::move(call);
    if (!PendingCalls::instance().runNested(chain, &work)) {
        ThreadPool::instance().post(std::move(work));
    }
    return nullptr;
}

const char* LocalLink::admit(const CallFrame& frame, size_t size, BinderRef* target) {
    const std::lock_guard<std::mutex> guard(mLock);
    size_t& underWay = frame.oneway() ? mOnewayBytesIn : mCallBytesIn;
    if (size > (frame.oneway() ? kMaxOnewayBytes : kMaxCallBytes) - underWay) {
        return "more calls at once than allowed";
    }
    const auto found = mExports.find(frame.handle);
    if (found == mExports.end()) return "a call of an object it does not hold";
    underWay += size;
    ++mCallsIn;
    *target = refTo(found->second.binder.get());
    return nullptr;
}

const char* LocalLink::importParcel(const Payload& payload, std::unique_ptr<AParcel>* parcel) {
    std::vector<uint8_t> bytes(payload.data, payload.data + payload.size);
    // What the entries said is of use on the wire only.
    for (const uint32_t offset : payload.offsets) {
        memset(bytes.data() + offset, 0, offsetof(ObjectEntry, stability));
    }
    std::vector<AParcel::Object> objects;
    objects.reserve(payload.offsets.size());
    const char* fault = nullptr;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        for (size_t i = 0; i < payload.offsets.size() && fault == nullptr; ++i) {
            BinderRef binder;
            fault = importObject(payload.object(i), &binder);
            if (binder != nullptr) objects.push_back({payload.offsets[i], std::move(binder)});
        }
    }
    *parcel = std::make_unique<AParcel>(std::move(bytes), std::move(objects));
    if (fault != nullptr) discard(std::move(*parcel));
    return fault;
}

const char* LocalLink::importObject(const ObjectEntry& entry, BinderRef* binder) {
    const auto handle = static_cast<uint32_t>(entry.handle);
    if (entry.type == kOwnedByReceiver) {
        const auto found = mExports.find(handle);
        if (found == mExports.end()) return "an object it does not hold";
        *binder = refTo(found->second.binder.get());
        return nullptr;
    }
    if (handle == 0 && mAccepted) return "an object with a service's handle";
    *binder = proxyFor(handle);
    return nullptr;
}

// With mLock held.
BinderRef LocalLink::proxyFor(uint32_t handle) {
    RemoteBinder*& known = mProxies[handle];
    BinderRef proxy;
    // One that has lost its last reference cannot be had again; it waits for mLock to leave.
    if (known != nullptr && known->attemptIncStrong()) {
        proxy.reset(known);
    } else {
        proxy.reset(new RemoteBinder(shared_from_this(), handle));
        known = proxy->asRemote();
    }
    if (handle != 0) ++known->timesReceived;
    return proxy;
}

const char* LocalLink::onReply(const uint8_t* body, size_t size) {
    ReplyFrame frame;
    const char* fault = parseReply(body, size, &frame);
    if (fault != nullptr) return fault;
    std::unique_ptr<AParcel> reply;
    fault = importParcel(frame.payload, &reply);
    if (fault != nullptr) return fault;
    const binder_status_t status = knownStatus(frame.status);
    if (PendingCalls::instance().finish(this, frame.id, status, &reply)) return nullptr;
    discard(std::move(reply));
    return "a reply to no call";
}

const char* LocalLink::onRelease(const uint8_t* body, size_t size) {
    uint32_t handle = 0;
    uint64_t count = 0;
    const char* const fault = parseRelease(body, size, &handle, &count);
    if (fault != nullptr) return fault;
    BinderRef last;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        const auto found = mExports.find(handle);
        if (found == mExports.end() || count == 0 || count > found->second.timesSent) {
            return "a release of an object it does not hold";
        }
        last = takeBack(handle, count);
    }
    if (last != nullptr) discard(std::move(last));
    return nullptr;
}

const char* LocalLink::onDone(const uint8_t* body, size_t size) {
    uint32_t bytes = 0;
    const char* const fault = parseDone(body, size, &bytes);
    if (fault != nullptr) return fault;
    const std::lock_guard<std::mutex> guard(mLock);
    if (bytes > mOnewayBytesOut) return "an acknowledgement of calls never made";
    mOnewayBytesOut -= bytes;
    return nullptr;
}

void LocalLink::end() noexcept {
    mEnded = true;
    std::map<uint32_t, Export> exports;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mBroken = true;
        IoThread::instance().remove(mSocket.get(), this);
        mSocket.reset();
        mOut.clear();
        mExportIds.clear();
        exports.swap(mExports);
        mPartBytesIn = 0;
        mCharge.set(kept());
    }
    PendingCalls::instance().failAll(this, STATUS_DEAD_OBJECT);
    announceDeath();
    if (!exports.empty()) withoutThrowing([&] { discard(std::move(exports)); });
}

void LocalLink::announceDeath() noexcept {
    for (;;) {
        std::unique_ptr<DeathNotification> notification;
        {
            const std::lock_guard<std::mutex> guard(mLock);
            if (mRegistrations.empty()) return;
            const auto first = mRegistrations.begin();
            const auto proxy = mProxies.find(first->first);
            // One without references has no use for the news.
            if (proxy != mProxies.end() && proxy->second->attemptIncStrong()) {
                notification = std::move(first->second);
                notification->setProxy(BinderRef(proxy->second));
            }
            mRegistrations.erase(first);
        }
        if (notification != nullptr) ThreadPool::instance().post(std::move(notification));
    }
}
