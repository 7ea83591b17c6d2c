// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/FrameReader.h"
#include "platform/linux/src/IoThread.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/OutBuffer.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/PeerAccount.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/UniqueFd.h"

struct PendingCall;

// The link over a Unix stream socket: one connection, made by a client of a service, with calls in
// both directions. Frame.h has what is said over it.
//
// Nothing blocks on the peer but the threads that wait for its replies. What cannot be written at
// once is kept and written by the I/O thread, which also does all reading. The peer is not trusted:
// a frame that makes no sense ends the connection, as the peer's death would.
//
// An object of one process can be handed on by another only back to where it came from: passing a
// proxy over any other connection is refused with STATUS_INVALID_OPERATION.
class LocalLink final : public Link,
                        public IoSource,
                        public std::enable_shared_from_this<LocalLink> {
  public:
    // Takes over a connected, non-blocking socket and starts to serve it.
    // root: for the accepting side, the object that the peer may call as handle 0; null for the
    // connecting side, which may call the peer's.
    // Returns null if it cannot be served, which is logged. May throw std::bad_alloc.
    static std::shared_ptr<LocalLink> open(UniqueFd socket, BinderRef root);

    LocalLink(UniqueFd socket, BinderRef root);

    // The proxy of the peer's handle 0. May throw std::bad_alloc.
    BinderRef root();

    binder_status_t transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                             binder_flags_t flags, std::unique_ptr<AParcel>* out) override;
    void releaseProxy(RemoteBinder& proxy) noexcept override;
    bool isAlive() override;
    binder_status_t watchDeath(RemoteBinder& proxy) override;
    void unwatchDeath(RemoteBinder& proxy) noexcept override;
    // Ends the registration for an object's death.
    void endRegistration(uint32_t handle) noexcept;

    void onReady(uint32_t events) override;

    // What an incoming call says when it has been carried out; `size`: of its whole frame.
    void callDone(size_t size) noexcept;
    void onewayDone(size_t size) noexcept;
    // Answers a call; reply: null for a failed one.
    void sendReply(uint64_t id, binder_status_t status, const AParcel* reply) noexcept;

    uid_t peerUid() const { return mPeer.uid; }
    pid_t peerPid() const { return mPeer.pid; }
    const std::shared_ptr<PeerAccount>& account() const { return mCharge.account(); }

  private:
    // A local object that the peer holds.
    struct Export {
        BinderRef binder;
        uint64_t timesSent = 0;
    };
    class Outgoing;

    bool receive();
    void end() noexcept;
    void announceDeath() noexcept;

    // With mLock held.
    bool peerHungUp() const;
    size_t kept() const;
    // Puts what is kept for the peer on its account. Returns whether it may be, and logs if not.
    bool settle();
    binder_status_t sendCall(PendingCall* call, uint32_t handle, transaction_code_t code,
                             const AParcel& in, binder_flags_t flags);
    template <typename Append>
    void sendControl(Append&& append) noexcept;
    void flush();
    void giveUp();
    uint32_t exportObject(AIBinder* binder);
    // Takes an object back that was sent `count` times; returns it when that were all.
    BinderRef takeBack(uint32_t id, uint64_t count);
    BinderRef proxyFor(uint32_t handle);
    const char* importObject(const ObjectEntry& entry, BinderRef* binder);

    // On the I/O thread.
    bool settleInput();
    const char* onFrame(FrameKind kind, const uint8_t* body, size_t size);
    const char* onCall(const uint8_t* body, size_t size);
    const char* onReply(const uint8_t* body, size_t size);
    const char* onRelease(const uint8_t* body, size_t size);
    const char* onDone(const uint8_t* body, size_t size);
    const char* admit(const CallFrame& frame, size_t size, BinderRef* target);
    const char* importParcel(const Payload& payload, std::unique_ptr<AParcel>* parcel);

    const bool mAccepted;
    const ucred mPeer;

    std::mutex mLock;
    // The rest down to mReader is guarded by mLock.
    UniqueFd mSocket;
    bool mBroken = false;  // nothing more can be sent, or the socket is closed
    Charge mCharge;
    OutBuffer mOut;
    bool mWantsOutput = false;
    // What counts towards the limits on calls under way: of ours at the peer, and of the peer's
    // here.
    size_t mCallBytesOut = 0;
    size_t mOnewayBytesOut = 0;
    size_t mCallBytesIn = 0;
    size_t mOnewayBytesIn = 0;
    size_t mCallsIn = 0;      // of either kind
    size_t mPartBytesIn = 0;  // of the frame that is not whole yet
    uint32_t mDoneOwed = 0;   // finished one-way bytes that the peer has not been told of
    // Maps that give the memory of what is erased back, which hash tables do not.
    std::map<uint32_t, Export> mExports;
    std::map<AIBinder*, uint32_t> mExportIds;
    uint32_t mNextExport = 1;
    // Those of the peer's objects in use here. A proxy takes itself out before its memory goes.
    std::map<uint32_t, RemoteBinder*> mProxies;
    // By object, and not by proxy: a registration can outlive the proxy that made it, and is then
    // in the way of the next one's.
    std::map<uint32_t, std::unique_ptr<DeathNotification>> mRegistrations;

    // Used by the I/O thread alone.
    FrameReader mReader;
    bool mGreeted = false;
    bool mEnded = false;
};
