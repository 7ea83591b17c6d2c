// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/PendingCalls.h"

#include <sys/random.h>
#include <unistd.h>

#include <utility>

#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/ThreadPool.h"
#include "utils/NoDestroy.h"

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

PendingCalls& PendingCalls::instance() {
    return gCalls.value;
}

uint64_t PendingCalls::newId() {
    const std::lock_guard<std::mutex> guard(mLock);
    // 0 is no id: it marks one-way calls.
    if (mNextId == 0) mNextId = firstId();
    return mNextId++;
}

void PendingCalls::add(PendingCall& call) {
    const std::lock_guard<std::mutex> guard(mLock);
    mCalls.emplace(call.id, &call);
}

void PendingCalls::remove(PendingCall& call) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    mCalls.erase(call.id);
}

binder_status_t PendingCalls::wait(PendingCall& call, std::unique_ptr<AParcel>* reply) {
    std::unique_lock<std::mutex> guard(mLock);
    for (;;) {
        call.changed.wait(guard, [&] { return call.done || !call.nested.empty(); });
        if (call.done) break;
        std::unique_ptr<Work> work = call.nested.pop();
        guard.unlock();
        work->run();
        work.reset();
        LateCommand::runQueued();
        guard.lock();
    }
    // The call it was nested in is over, so that nobody waits for its outcome; it still runs.
    while (!call.nested.empty()) ThreadPool::instance().post(call.nested.pop());
    *reply = std::move(call.reply);
    return call.status;
}

void PendingCalls::end(PendingCall& call, binder_status_t status) {
    call.done = true;
    call.status = status;
    // Under the lock: the waiting thread ends the call's life as soon as it has it.
    call.changed.notify_one();
}

bool PendingCalls::finish(const Link* link, uint64_t id, binder_status_t status,
                          std::unique_ptr<AParcel>* reply) {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto found = mCalls.find(id);
    if (found == mCalls.end() || found->second->link != link) return false;
    PendingCall& call = *found->second;
    mCalls.erase(found);
    call.reply = std::move(*reply);
    end(call, status);
    return true;
}

void PendingCalls::failAll(const Link* link, binder_status_t status) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    for (auto it = mCalls.begin(); it != mCalls.end();) {
        if (it->second->link == link) {
            end(*it->second, status);
            it = mCalls.erase(it);
        } else {
            ++it;
        }
    }
}

bool PendingCalls::runNested(const std::vector<uint64_t>& chain, std::unique_ptr<Work>* work) {
    const std::lock_guard<std::mutex> guard(mLock);
    for (auto id = chain.rbegin(); id != chain.rend(); ++id) {
        const auto found = mCalls.find(*id);
        if (found == mCalls.end()) continue;
        found->second->nested.push(std::move(*work));
        found->second->changed.notify_one();
        return true;
    }
    return false;
}
