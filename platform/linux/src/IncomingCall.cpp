// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/IncomingCall.h"

#include <utility>

#include "platform/linux/src/CallContext.h"

namespace {

// The lane for a call. One-way calls need none: of those to one object one is carried out at a
// time.
std::shared_ptr<WorkLane> laneFor(const CallFrame& frame, const LocalLink& link) {
    if (frame.oneway()) return nullptr;
    return {link.account(), &link.account()->lane()};
}

}  // namespace

IncomingCall::IncomingCall(std::shared_ptr<LocalLink> link, CallFrame&& frame, size_t size,
                           BinderRef target, std::unique_ptr<AParcel> in, bool complete)
    : Work(laneFor(frame, *link)),
      mLink(std::move(link)),
      mId(frame.id),
      mCode(frame.code),
      mChain(std::move(frame.chain)),
      mSize(size),
      mTarget(std::move(target)),
      mIn(std::move(in)),
      mComplete(complete) {}

void IncomingCall::run() {
    AParcel out;
    binder_status_t status = STATUS_FAILED_TRANSACTION;
    if (mComplete) {
        // Nobody answers for a one-way call: its caller may be gone, and another have its pid.
        const CallContext context{mLink->peerUid(), oneway() ? 0 : mLink->peerPid(), &mChain};
        const CallScope scope(context);
        status = target().transact(mCode, *mIn, &out);
    }
    if (oneway()) {
        mIn.reset();
        mLink->acknowledge(mSize);
        target().postNextOneway();
    } else {
        mLink->reply(mId, mSize, status, out);
    }
}
