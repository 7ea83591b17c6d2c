// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Objects.h"

#include <unistd.h>

#include <utility>

#include "fuzz/Check.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/RemoteBinder.h"
#include "tests/platform/PeerInterface.h"

namespace {

constexpr size_t kMostHeld = 16;

int gAlive = 0;

struct Counted {
    Counted() { ++gAlive; }
    Counted(const Counted&) { ++gAlive; }
    ~Counted() { --gAlive; }
    Counted& operator=(const Counted&) = default;
};

}  // namespace

Objects::Objects(Input& input, Call call, std::function<void()> inCall)
    : mInput(input),
      mCall(std::move(call)),
      mInCall(std::move(inCall)),
      mRecipient(
          AIBinder_DeathRecipient_new([](void* watch) { ++static_cast<Watch*>(watch)->deaths; })) {}

int Objects::alive() {
    return gAlive;
}

ndk::SpAIBinder Objects::make() {
    const Counted counted;
    return makePeerObject([this, counted](transaction_code_t code, const AParcel* in,
                                          AParcel* out) { return onCall(code, in, out); });
}

void Objects::hold(const ndk::SpAIBinder& object) {
    if (object.get() != nullptr && mHeld.size() < kMostHeld) mHeld.push_back(object);
}

void Objects::take(const AParcel* in) {
    for (int values = 0; values < 8; ++values) {
        ndk::SpAIBinder object;
        if (AParcel_readStrongBinder(in, object.getR()) != STATUS_OK) break;
        hold(object);
    }
}

binder_status_t Objects::onCall(transaction_code_t code, const AParcel* in, AParcel* out) {
    take(in);
    if (mInCall) mInCall();
    if (out == nullptr) return STATUS_OK;
    put(out);
    return code % 16 == 15 ? STATUS_INVALID_OPERATION : STATUS_OK;
}

void Objects::put(AParcel* out) {
    for (unsigned int left = mInput.pick(4); left > 0; --left) {
        switch (mInput.pick(5)) {
            case 0: AParcel_writeStrongBinder(out, make().get()); break;
            case 1:
                AParcel_writeStrongBinder(
                    out, mHeld.empty() ? nullptr : mHeld[mInput.byte() % mHeld.size()].get());
                break;
            case 2: out->writeDescriptor(STDERR_FILENO); break;
            default: AParcel_writeInt32(out, mInput.number<int32_t>()); break;
        }
    }
}

void Objects::use() {
    const size_t index = mInput.byte() % mHeld.size();
    const ndk::SpAIBinder object = mHeld[index];
    const bool remote = AIBinder_isRemote(object.get());
    switch (mInput.pick(4)) {
        case 0: mHeld.erase(mHeld.begin() + static_cast<std::ptrdiff_t>(index)); break;
        case 1:
            if (remote) mCall(object);
            break;
        case 2:
            if (remote) watch(object);
            break;
        default: unwatch(object); break;
    }
    LateCommand::runQueued();
}

void Objects::watch(const ndk::SpAIBinder& object) {
    const bool alive = AIBinder_isAlive(object.get());
    mWatches.push_back({object});
    const binder_status_t status =
        AIBinder_linkToDeath(object.get(), mRecipient.get(), &mWatches.back());
    check(status == STATUS_OK || !alive, "cannot watch what is alive");
    if (status != STATUS_OK) mWatches.pop_back();
}

void Objects::unwatch(const ndk::SpAIBinder& object) {
    for (Watch& watch : mWatches) {
        if (watch.object != object || !watch.linked) continue;
        const bool dead = watch.deaths != 0;
        watch.linked = AIBinder_unlinkToDeath(object.get(), mRecipient.get(), &watch) != STATUS_OK;
        check(watch.linked == dead, "ended a watch that had ended, or did not");
        return;
    }
}

void Objects::expectDeath(uint32_t handle) {
    for (Watch& watch : mWatches) {
        if (watch.object.get()->asRemote()->handle() == handle) watch.died = true;
    }
}

void Objects::expectDeathOfAll() {
    for (Watch& watch : mWatches) watch.died = true;
}

void Objects::checkDeaths() const {
    for (const Watch& watch : mWatches) {
        const int expected = watch.linked && watch.died ? 1 : 0;
        check(watch.deaths <= expected, "a death that is reported too often");
        check(watch.deaths == expected, "a death that is not reported");
    }
}

void Objects::letGo() {
    mWatches.clear();
    mHeld.clear();
    LateCommand::runQueued();
}
