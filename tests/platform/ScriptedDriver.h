// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>
#include <linux/android/binder.h>

#include <cstdint>
#include <deque>
#include <vector>

#include "platform/linux/src/KernelDriver.h"
#include "utils/Mutex.h"

// While it lives, there is no memory for this thread's own data.
class ThreadDataRefusal {
  public:
    ThreadDataRefusal();
    ~ThreadDataRefusal();
    ThreadDataRefusal(const ThreadDataRefusal&) = delete;
    ThreadDataRefusal& operator=(const ThreadDataRefusal&) = delete;
};

// Takes the place of the kernel's driver in the test program: answers as the test says, and keeps
// what it was asked. Serves the link that was made last; the pool threads of others wait forever.
class ScriptedDriver {
  public:
    struct Command {
        uint32_t code;
        // Its last eight bytes: a handle, a cookie or a buffer; of a call, its code.
        uint64_t argument;
        binder_status_t status;  // that is sent instead of a reply
    };

    // A device that can be opened and mapped.
    static constexpr char kDevice[] = "/dev/zero";

    static ScriptedDriver& instance();

    // Forgets everything.
    void reset();
    // What one more read gives, of a thread that is none of the pool.
    void answer(const KernelCommands& answer);
    // The same for a thread of the pool, which waits for it. Others fail the test.
    void answerPool(const KernelCommands& answer);

    // After so many more reads nothing is carried out for threads that are none of the pool, before
    // one has read an error.
    void holdUp(int reads = 0);
    // The next exchange with the link finds no memory.
    void refuseOnce();
    bool hasRefused() const;

    // What it was asked, in order. So many commands with that code, and that argument.
    std::vector<Command> commands() const;
    size_t count(uint32_t code) const;
    size_t count(uint32_t code, uint64_t argument) const;

    int ioctl(int fd, unsigned long request, void* argument);

  private:
    ScriptedDriver() = default;

    bool carryOut(int fd, binder_write_read* exchange) LUM_REQUIRES(mLock);
    void keep(const binder_write_read& exchange) LUM_REQUIRES(mLock);
    bool read(int fd, binder_write_read* exchange) LUM_REQUIRES(mLock);

    mutable lum::utils::Mutex mLock;
    lum::utils::Condition mAnswered;
    int mFd LUM_GUARDED_BY(mLock) = -1;
    int mReadsToHoldUp LUM_GUARDED_BY(mLock) = -1;
    bool mRefuses LUM_GUARDED_BY(mLock) = false;
    std::vector<Command> mCommands LUM_GUARDED_BY(mLock);
    std::deque<KernelCommands> mAnswers LUM_GUARDED_BY(mLock);
    std::deque<KernelCommands> mPoolAnswers LUM_GUARDED_BY(mLock);
};
