// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "platform/linux/src/Frame.h"

// Bytes of which no more than a limit may be under way at once.
class BytesUnderWay {
  public:
    explicit BytesUnderWay(size_t most) : mMost(most) {}

    size_t get() const { return mBytes; }
    bool fits(size_t bytes) const { return bytes <= mMost - mBytes; }
    void add(size_t bytes) { mBytes += bytes; }
    void remove(size_t bytes) { mBytes -= bytes; }

  private:
    const size_t mMost;
    size_t mBytes = 0;
};

// How much is under way over one connection in each direction, in whole frames. A blocking call
// counts until its end, and a one-way call until the called side has acknowledged it. Not locked.
class FlowControl {
  public:
    // Whether another call of ours may be sent. The largest one-way call may while the peer has
    // carried out all others, whether or not it has acknowledged the last of them.
    bool maySend(bool oneway, size_t size) const {
        if (!oneway) return mCallsOut.fits(size);
        return size <= kMaxOnewayBytes - kLastPortion && mOnewayOut.fits(size);
    }
    void sent(bool oneway, size_t size) { (oneway ? mOnewayOut : mCallsOut).add(size); }
    // A blocking call of ours is over.
    void callEnded(size_t size) { mCallsOut.remove(size); }
    // The peer has carried out one-way calls of ours. Throws MalformedFrame if there were none.
    void acknowledged(size_t bytes) {
        require(bytes <= mOnewayOut.get(), "an acknowledgement of calls never made");
        mOnewayOut.remove(bytes);
    }

    // A call of the peer has come. Throws MalformedFrame if it should not have been sent.
    void receive(bool oneway, size_t size) {
        BytesUnderWay& underWay = oneway ? mOnewayIn : mCallsIn;
        require(underWay.fits(size), "more calls at once than allowed");
        underWay.add(size);
        ++mCountIn;
    }
    // A blocking call of the peer is carried out.
    void callDone(size_t size) {
        mCallsIn.remove(size);
        --mCountIn;
    }
    // A one-way call of the peer is carried out. Returns how many bytes are to be acknowledged now:
    // that is done in portions, so that it does not cost a frame for each call; in smaller ones
    // while none is under way.
    uint32_t onewayDone(size_t size) {
        mOnewayIn.remove(size);
        --mCountIn;
        mUnacknowledged += static_cast<uint32_t>(size);
        if (mUnacknowledged < (mOnewayIn.get() == 0 ? kLastPortion : kPortion)) return 0;
        return std::exchange(mUnacknowledged, 0);
    }

    // What this process keeps for the peer's calls: bytes, and calls of either kind.
    size_t bytesIn() const { return mCallsIn.get() + mOnewayIn.get(); }
    size_t countIn() const { return mCountIn; }

  private:
    // One-way calls have half of what a transaction may have at most, so that they cannot crowd out
    // the others.
    static constexpr size_t kMaxOnewayBytes = kMaxTransaction / 2;
    static constexpr size_t kMaxCallBytes = 16 * kMaxTransaction;
    static constexpr size_t kPortion = kMaxOnewayBytes / 4;
    static constexpr size_t kLastPortion = 4096;

    BytesUnderWay mCallsOut{kMaxCallBytes};
    BytesUnderWay mOnewayOut{kMaxOnewayBytes};
    BytesUnderWay mCallsIn{kMaxCallBytes};
    BytesUnderWay mOnewayIn{kMaxOnewayBytes};
    size_t mCountIn = 0;
    uint32_t mUnacknowledged = 0;
};
