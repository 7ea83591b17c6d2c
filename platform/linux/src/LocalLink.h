// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/linux/src/FlowControl.h"
#include "platform/linux/src/FrameReader.h"
#include "platform/linux/src/IoLoop.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/LinkSocket.h"
#include "platform/linux/src/ObjectTable.h"
#include "platform/linux/src/PeerAccount.h"
#include "platform/linux/src/ReceivedDescriptors.h"
#include "utils/Mutex.h"

class PendingCall;

// The link over a Unix stream socket: one connection, made by a client of a service, with calls in
// both directions. Frame.h has what is said over it.
//
// Nothing blocks on the peer but the threads that wait for its replies. What cannot be written at
// once is kept, and written when the socket is ready; what comes is read then. The peer is not
// trusted: a malformed frame ends the connection, as the peer's death would.
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
    binder_status_t watchDeath(uint32_t handle, std::unique_ptr<LateCommand>* late) override;
    void unwatchDeath(uint32_t handle) noexcept override;

    void onReady(uint32_t events) override;

    // An incoming call is carried out; `size`: what it counted under way. Acknowledges a one-way
    // call.
    void acknowledge(size_t size) noexcept;
    // Answers a blocking one. out: the reply, if status is STATUS_OK.
    void reply(uint64_t id, size_t size, binder_status_t status, const AParcel& out) noexcept;

    uid_t peerUid() const { return mPeer.uid; }
    pid_t peerPid() const { return mPeer.pid; }
    // What the peer's process has under way and keeps here.
    const std::shared_ptr<PeerAccount>& account() const { return mAccount; }

  private:
    size_t kept() const LUM_REQUIRES(mLock);
    // Puts what is kept for the peer on its account. Returns whether so much may be; logs it if
    // not.
    bool settle() LUM_REQUIRES(mLock);
    void flush() LUM_REQUIRES(mLock);
    void giveUpWithoutMemory() LUM_REQUIRES(mLock);
    binder_status_t sendCall(const PendingCall* call, uint32_t handle, transaction_code_t code,
                             const AParcel& in, binder_flags_t flags, size_t* size)
        LUM_REQUIRES(mLock);
    void sendReply(uint64_t id, binder_status_t status, const AParcel& out) LUM_REQUIRES(mLock);
    // Sends a frame without which the two ends would count differently ever after.
    template <typename Append>
    void sendControl(Append&& append) noexcept LUM_REQUIRES(mLock);

    // Called by onReady(). Throw MalformedFrame and std::bad_alloc.
    bool receive();
    void onFrame(FrameKind kind, const uint8_t* body, size_t size);
    void onCall(CallFrame&& frame, size_t size);
    void onReply(const ReplyFrame& frame);
    void onRelease(const ReleaseFrame& frame);
    // complete: set to false if the descriptors are lost for want of free ones.
    std::unique_ptr<AParcel> importParcel(const Payload& payload, bool* complete);
    void end() noexcept;

    const ucred mPeer;
    const std::shared_ptr<PeerAccount> mAccount;

    lum::utils::Mutex mLock;
    LinkSocket mSocket LUM_GUARDED_BY(mLock);
    FlowControl mFlow LUM_GUARDED_BY(mLock);
    ObjectTable mObjects LUM_GUARDED_BY(mLock);
    Charge mCharge LUM_GUARDED_BY(mLock);
    size_t mPartBytesIn LUM_GUARDED_BY(mLock) = 0;  // of the frame that is not whole yet

    // Used by onReady() alone.
    const int mInput;  // the socket
    FrameReader mReader;
    ReceivedDescriptors mDescriptors;
    bool mGreeted = false;
    bool mEnded = false;
};
