// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/LocalLink.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/Work.h"

// A call of a link's peer, on its way to one of our objects.
class IncomingCall final : public Work {
  public:
    // size: what it counts under way; target: a local object; complete: false if the call fails
    // since its descriptors are lost.
    IncomingCall(std::shared_ptr<LocalLink> link, CallFrame&& frame, size_t size, BinderRef target,
                 std::unique_ptr<AParcel> in, bool complete);

    bool oneway() const { return mId == 0; }
    const std::vector<uint64_t>& chain() const { return mChain; }
    LocalBinder& target() const { return *mTarget->asLocal(); }

    void run() override;

  private:
    const std::shared_ptr<LocalLink> mLink;
    const uint64_t mId;
    const uint32_t mCode;
    const std::vector<uint64_t> mChain;
    const size_t mSize;
    const BinderRef mTarget;
    std::unique_ptr<AParcel> mIn;
    const bool mComplete;
};
