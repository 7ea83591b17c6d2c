// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "platform/linux/src/UniqueFd.h"
#include "utils/Mutex.h"

// Something with a descriptor that threads of the pool wait for.
class IoSource {
  public:
    IoSource() = default;
    virtual ~IoSource() = default;
    IoSource(const IoSource&) = delete;
    IoSource& operator=(const IoSource&) = delete;

    // The descriptor is ready, or was a moment ago. Runs on one thread at a time; must not block,
    // must not throw, and must run no code of the application.
    // events: EPOLL bits.
    virtual void onReady(uint32_t events) = 0;
};

// What the threads of the pool wait for while they have no work: what comes over sockets, what can
// be written to them again, and more work. Every function may be called on any thread.
class IoLoop {
  public:
    // Never destroyed: threads wait until the process ends.
    static IoLoop& instance();

    // Gets what is needed to wait. Returns 0 or an error number.
    int open();

    // Waits for input on a descriptor from now on, on a thread that is made if there is none yet.
    // The source is kept until remove(). Returns whether it could be arranged; logs why not. May
    // throw std::bad_alloc, with nothing arranged.
    bool add(int fd, const std::shared_ptr<IoSource>& source);

    // Waits until output is possible too, or no longer.
    void wantOutput(IoSource* source, bool want);

    // Does not wait for the source until the next tick, in at most 100 ms. To be called by its
    // onReady().
    void pause(IoSource* source);

    // Does not wait for it any more; another thread may still be in its onReady(). To be called
    // before the descriptor is closed.
    void remove(IoSource* source);

    // Waits until one source is ready, and has it do its part; or until wake(), a tick or a signal.
    void wait();

    // Ends one wait(), the next one if there is none. Several calls may end one together.
    void wake();

    // Has a tick come in 100 ms, if none is to come: it ends one wait(), and every pause.
    void tickLater();

  private:
    struct Waited {
        std::shared_ptr<IoSource> source;
        int fd;
        bool output = false;  // wanted too
        bool busy = false;    // a thread is in onReady()
        bool paused = false;  // until the next tick
    };

    void onTick();
    // Has the next event reported to one thread, once. Sets errno if it fails.
    bool arm(int operation, const Waited& waited) LUM_REQUIRES(mLock);
    // The same for a source that is known, if it may be called now.
    void rearm(const Waited& waited) LUM_REQUIRES(mLock);

    lum::utils::Mutex mLock;
    // Set once, before there is a thread or a source.
    UniqueFd mEpoll;
    UniqueFd mWake;
    UniqueFd mTick;
    bool mTicking LUM_GUARDED_BY(mLock) = false;
    std::unordered_map<void*, Waited> mSources LUM_GUARDED_BY(mLock);
};
