// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/PendingCalls.h"

#include <sys/random.h>
#include <unistd.h>

#include <utility>

#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/ThreadPool.h"
#include "utils/NoDestroy.h"

using lum::utils::Condition;
using lum::utils::MutexLock;

namespace {

NoDestroy<PendingCalls> gCalls;

// Where a process starts to count: far from where any other does.
uint64_t firstId() {
    uint32_t high = 0;
    if (getrandom(&high, sizeof high, GRND_NONBLOCK) != sizeof high) {
        high = static_cast<uint32_t>(getpid());
    }
    return uint64_t{high} << 32 | 1;
}

}  // namespace

// Ends with the process without code of its own: threads may wait until then.
lum::utils::Mutex PendingCalls::sLock;

PendingCalls& PendingCalls::instance() {
    return gCalls.value;
}

PendingCall::PendingCall(const Link* link) : mLink(link), mChanged(std::make_shared<Condition>()) {
    PendingCalls& calls = PendingCalls::instance();
    const MutexLock lock(PendingCalls::sLock);
    // 0 is no id: it marks one-way calls.
    if (calls.mNextId == 0) calls.mNextId = firstId();
    mId = calls.mNextId++;
    calls.mCalls.emplace(mId, this);
}

PendingCall::~PendingCall() {
    const MutexLock lock(PendingCalls::sLock);
    PendingCalls::instance().mCalls.erase(mId);
    // The call it was nested in is over, so that nobody waits for its outcome; it still runs.
    while (!mNested.empty()) ThreadPool::instance().post(mNested.pop());
}

binder_status_t PendingCall::wait(std::unique_ptr<AParcel>* reply) {
    MutexLock lock(PendingCalls::sLock);
    while (!mDone) {
        std::unique_ptr<Work> work = mNested.pop();
        if (work == nullptr) {
            mChanged->wait(PendingCalls::sLock);
            continue;
        }
        lock.unlock();
        work->run();
        work.reset();
        LateCommand::runQueued();
        lock.lock();
    }
    *reply = std::move(mReply);
    return mStatus;
}

void PendingCall::end(binder_status_t status) {
    mDone = true;
    mStatus = status;
}

bool PendingCalls::finish(const Link* link, uint64_t id, binder_status_t status,
                          std::unique_ptr<AParcel>* reply) {
    std::shared_ptr<Condition> changed;
    {
        const MutexLock lock(sLock);
        const auto found = mCalls.find(id);
        if (found == mCalls.end() || found->second->mLink != link) return false;
        PendingCall& call = *found->second;
        mCalls.erase(found);
        call.mReply = std::move(*reply);
        call.end(status);
        changed = call.mChanged;
    }
    // Not under the lock, which the thread that wakes needs at once.
    changed->notifyOne();
    return true;
}

void PendingCalls::failAll(const Link* link, binder_status_t status) noexcept {
    const MutexLock lock(sLock);
    for (auto it = mCalls.begin(); it != mCalls.end();) {
        if (it->second->mLink == link) {
            it->second->end(status);
            it->second->mChanged->notifyOne();
            it = mCalls.erase(it);
        } else {
            ++it;
        }
    }
}

bool PendingCalls::runNested(const std::vector<uint64_t>& chain, std::unique_ptr<Work>* work) {
    const MutexLock lock(sLock);
    for (auto id = chain.rbegin(); id != chain.rend(); ++id) {
        const auto found = mCalls.find(*id);
        if (found == mCalls.end()) continue;
        found->second->mNested.push(std::move(*work));
        found->second->mChanged->notifyOne();
        return true;
    }
    return false;
}
