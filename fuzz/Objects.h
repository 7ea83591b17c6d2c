// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>

#include <functional>
#include <list>
#include <vector>

#include "fuzz/Input.h"
#include "platform/linux/src/Parcel.h"

// What a program has on a link under test: objects of its own, which take what a call brings and
// return some, and those it was given, which it calls, passes on, watches and lets go.
class Objects {
  public:
    using Call = std::function<void(const ndk::SpAIBinder& object)>;

    // call: calls an object of another process, with what put() writes. inCall: what an object of
    // this process does, besides, when it is called; may be null.
    Objects(Input& input, Call call, std::function<void()> inCall);
    // How many of this process live, of any program.
    static int alive();

    ndk::SpAIBinder make();
    bool holdsAny() const { return !mHeld.empty(); }
    void hold(const ndk::SpAIBinder& object);
    // Holds what is in a parcel.
    void take(const AParcel* in);
    // Writes a few values: objects, descriptors, numbers.
    void put(AParcel* out);
    // Uses one that is held.
    void use();
    // An object of another process, or each, has died, which is to be reported once to each watch
    // that has not ended.
    void expectDeath(uint32_t handle);
    void expectDeathOfAll();
    void checkDeaths() const;
    void letGo();

  private:
    struct Watch {
        ndk::SpAIBinder object;
        int deaths = 0;
        bool linked = true;
        bool died = false;
    };

    binder_status_t onCall(transaction_code_t code, const AParcel* in, AParcel* out);
    void watch(const ndk::SpAIBinder& object);
    void unwatch(const ndk::SpAIBinder& object);

    Input& mInput;
    const Call mCall;
    const std::function<void()> mInCall;
    std::vector<ndk::SpAIBinder> mHeld;
    std::list<Watch> mWatches;
    const ndk::ScopedAIBinder_DeathRecipient mRecipient;
};
