// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/IoThread.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/linux/src/Threads.h"
#include "utils/Log.h"
#include "utils/NoDestroy.h"

using lum::utils::MutexLock;

namespace {

constexpr std::chrono::milliseconds kPause{100};

NoDestroy<IoThread> gIoThread;

bool control(int epoll, int operation, int fd, uint32_t events, IoSource* source) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = source;
    return epoll_ctl(epoll, operation, fd, &event) == 0;
}

// Returns 0 for a time that has passed.
int millisecondsUntil(std::chrono::steady_clock::time_point time) {
    const auto left = time - std::chrono::steady_clock::now();
    const auto whole = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::max<decltype(whole)>(whole, 0));
}

}  // namespace

IoThread& IoThread::instance() {
    return gIoThread.value;
}

bool IoThread::add(int fd, const std::shared_ptr<IoSource>& source) {
    const MutexLock lock(mLock);
    if (!start()) return false;
    // So that pause() never needs memory.
    mPaused.reserve(mSources.size() + 1);
    mSources.emplace(source.get(), source);
    if (control(mEpoll.get(), EPOLL_CTL_ADD, fd, EPOLLIN, source.get())) return true;
    LUM_LOGE("binder: cannot wait for a socket (%s)", strerror(errno));
    mSources.erase(source.get());
    return false;
}

bool IoThread::start() {
    if (mRunning) return true;
    if (!mEpoll.valid()) mEpoll.reset(epoll_create1(EPOLL_CLOEXEC));
    if (!mEpoll.valid()) {
        LUM_LOGE("binder: cannot wait for sockets (%s)", strerror(errno));
        return false;
    }
    const int error = startDetachedThread(&threadMain, this);
    if (error != 0) {
        LUM_LOGE("binder: no thread for sockets (%s)", strerror(error));
        return false;
    }
    mRunning = true;
    return true;
}

void IoThread::wantOutput(int fd, IoSource* source, bool want) {
    control(mEpoll.get(), EPOLL_CTL_MOD, fd, want ? EPOLLIN | EPOLLOUT : EPOLLIN, source);
}

void IoThread::pause(int fd, IoSource* source) {
    const MutexLock lock(mLock);
    // Removed meanwhile by another thread, its descriptor may soon be another source's.
    if (mSources.count(source) == 0) return;
    control(mEpoll.get(), EPOLL_CTL_MOD, fd, 0, source);
    mPaused.push_back({fd, source});
}

void IoThread::remove(int fd, IoSource* source) {
    const MutexLock lock(mLock);
    control(mEpoll.get(), EPOLL_CTL_DEL, fd, 0, source);
    mPaused.erase(std::remove_if(mPaused.begin(), mPaused.end(),
                                 [&](const Paused& paused) { return paused.source == source; }),
                  mPaused.end());
    mSources.erase(source);
}

std::shared_ptr<IoSource> IoThread::find(void* source) {
    const MutexLock lock(mLock);
    const auto found = mSources.find(source);
    return found == mSources.end() ? nullptr : found->second;
}

void IoThread::resumePaused() {
    const MutexLock lock(mLock);
    for (const Paused& paused : mPaused) {
        control(mEpoll.get(), EPOLL_CTL_MOD, paused.fd, EPOLLIN, paused.source);
    }
    mPaused.clear();
}

void* IoThread::threadMain(void* self) {
    static_cast<IoThread*>(self)->run();
}

void IoThread::run() {
    using Clock = std::chrono::steady_clock;
    bool paused = false;
    Clock::time_point resume;  // when `paused`
    for (;;) {
        std::array<epoll_event, 64> events;
        const int count = epoll_wait(mEpoll.get(), events.data(), static_cast<int>(events.size()),
                                     paused ? millisecondsUntil(resume) : -1);
        for (int i = 0; i < count; ++i) {
            // One removed after the wait returned is not found; one made since in the same place is
            // found by mistake, and finds nothing to read.
            const std::shared_ptr<IoSource> source = find(events[static_cast<size_t>(i)].data.ptr);
            if (source != nullptr) source->onReady(events[static_cast<size_t>(i)].events);
        }
        // However much others have to say meanwhile.
        if (paused && Clock::now() >= resume) {
            resumePaused();
            paused = false;
        }
        const MutexLock lock(mLock);
        if (!paused && !mPaused.empty()) resume = Clock::now() + kPause;
        paused = !mPaused.empty();
    }
}
