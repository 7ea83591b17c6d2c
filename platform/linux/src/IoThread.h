// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/linux/src/UniqueFd.h"
#include "utils/Mutex.h"

// Something with a descriptor that the I/O thread waits for.
class IoSource {
  public:
    IoSource() = default;
    virtual ~IoSource() = default;
    IoSource(const IoSource&) = delete;
    IoSource& operator=(const IoSource&) = delete;

    // The descriptor is ready, or was a moment ago. Runs on the I/O thread; must not block and must
    // not throw.
    // events: EPOLL bits.
    virtual void onReady(uint32_t events) = 0;
};

// The one thread per process that reads what comes over sockets, and writes what their senders
// could not. It runs no code of the application. Every function may be called on any thread.
class IoThread {
  public:
    // Never destroyed: the thread runs until the process ends.
    static IoThread& instance();

    // Waits for input on a descriptor from now on, on a thread that the first call makes. The
    // source is kept until remove(). Returns whether it could be arranged; logs why not. May throw
    // std::bad_alloc, with nothing arranged.
    bool add(int fd, const std::shared_ptr<IoSource>& source);

    // Waits until output is possible too, or no longer.
    void wantOutput(int fd, IoSource* source, bool want);

    // Does not wait for input for a while.
    void pause(int fd, IoSource* source);

    // Does not wait for it any more. To be called before the descriptor is closed.
    void remove(int fd, IoSource* source);

  private:
    // One with its input paused.
    struct Paused {
        int fd;
        IoSource* source;
    };

    bool start() LUM_REQUIRES(mLock);
    static void* threadMain(void* self);
    [[noreturn]] void run();
    std::shared_ptr<IoSource> find(void* source);
    void resumePaused();

    lum::utils::Mutex mLock;
    bool mRunning LUM_GUARDED_BY(mLock) = false;
    // Set once, before the first source is added.
    UniqueFd mEpoll;
    std::unordered_map<void*, std::shared_ptr<IoSource>> mSources LUM_GUARDED_BY(mLock);
    std::vector<Paused> mPaused LUM_GUARDED_BY(mLock);
};
