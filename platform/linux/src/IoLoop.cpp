// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/IoLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/src/ThreadPool.h"
#include "utils/Log.h"
#include "utils/NoDestroy.h"

using lum::utils::MutexLock;

namespace {

constexpr long kTickNs = 100'000'000;

NoDestroy<IoLoop> gIoLoop;

bool control(int epoll, int operation, int fd, uint32_t events, void* data) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = data;
    return epoll_ctl(epoll, operation, fd, &event) == 0;
}

}  // namespace

IoLoop& IoLoop::instance() {
    return gIoLoop.value;
}

int IoLoop::open() {
    const MutexLock lock(mLock);
    if (mEpoll.valid()) return 0;
    UniqueFd epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.valid()) return errno;
    UniqueFd wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!wake.valid()) return errno;
    UniqueFd tick(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!tick.valid()) return errno;
    // Neither is read: what is reported is a new write or expiry.
    constexpr uint32_t kEvents = EPOLLIN | EPOLLET;
    const bool added = control(epoll.get(), EPOLL_CTL_ADD, wake.get(), kEvents, &mWake) &&
                       control(epoll.get(), EPOLL_CTL_ADD, tick.get(), kEvents, &mTick);
    if (!added) return errno;
    mEpoll = std::move(epoll);
    mWake = std::move(wake);
    mTick = std::move(tick);
    return 0;
}

bool IoLoop::add(int fd, const std::shared_ptr<IoSource>& source) {
    if (const int error = ThreadPool::instance().startWaiting(); error != 0) {
        LUM_LOGE("binder: cannot wait for sockets (%s)", strerror(error));
        return false;
    }
    const MutexLock lock(mLock);
    const auto added = mSources.emplace(source.get(), Waited{source, fd}).first;
    if (arm(EPOLL_CTL_ADD, added->second)) return true;
    LUM_LOGE("binder: cannot wait for a socket (%s)", strerror(errno));
    mSources.erase(added);
    return false;
}

void IoLoop::wantOutput(IoSource* source, bool want) {
    const MutexLock lock(mLock);
    const auto found = mSources.find(source);
    if (found == mSources.end()) return;
    found->second.output = want;
    rearm(found->second);
}

void IoLoop::pause(IoSource* source) {
    {
        const MutexLock lock(mLock);
        const auto found = mSources.find(source);
        if (found == mSources.end()) return;
        found->second.paused = true;
    }
    tickLater();  // only now: a tick ends only the pauses before it
}

void IoLoop::remove(IoSource* source) {
    const MutexLock lock(mLock);
    const auto found = mSources.find(source);
    if (found == mSources.end()) return;
    control(mEpoll.get(), EPOLL_CTL_DEL, found->second.fd, 0, source);
    mSources.erase(found);
}

bool IoLoop::arm(int operation, const Waited& waited) {
    const uint32_t events = EPOLLIN | EPOLLONESHOT | (waited.output ? uint32_t{EPOLLOUT} : 0);
    return control(mEpoll.get(), operation, waited.fd, events, waited.source.get());
}

void IoLoop::rearm(const Waited& waited) {
    if (!waited.busy && !waited.paused) arm(EPOLL_CTL_MOD, waited);
}

void IoLoop::wait() {
    epoll_event event;
    if (epoll_wait(mEpoll.get(), &event, 1, -1) != 1) return;
    void* const ready = event.data.ptr;  // not to be referred to there: the event is packed
    if (ready == &mWake) return;
    if (ready == &mTick) return onTick();
    std::shared_ptr<IoSource> source;
    {
        // A source removed after the wait returned is not found; one made since in the same place
        // is found by mistake, and finds nothing to read.
        const MutexLock lock(mLock);
        const auto found = mSources.find(ready);
        if (found == mSources.end() || found->second.busy) return;
        found->second.busy = true;
        source = found->second.source;
    }
    source->onReady(event.events);
    const MutexLock lock(mLock);
    const auto found = mSources.find(source.get());
    if (found == mSources.end()) return;
    found->second.busy = false;
    rearm(found->second);
}

void IoLoop::wake() {
    eventfd_write(mWake.get(), 1);
}

void IoLoop::tickLater() {
    const MutexLock lock(mLock);
    if (mTicking) return;
    itimerspec time{};
    time.it_value.tv_nsec = kTickNs;
    mTicking = timerfd_settime(mTick.get(), 0, &time, nullptr) == 0;
}

void IoLoop::onTick() {
    const MutexLock lock(mLock);
    mTicking = false;
    for (auto& [key, waited] : mSources) {
        if (!waited.paused) continue;
        waited.paused = false;
        rearm(waited);
    }
}
