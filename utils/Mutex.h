// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// What Clang's -Wthread-safety checks, an error in the clang configuration: who guards what, and
// which locks a function needs. Other compilers ignore it.
#if defined(__clang__)
#define LUM_THREAD_ANNOTATION(...) __attribute__((__VA_ARGS__))
#else
#define LUM_THREAD_ANNOTATION(...)
#endif

// A variable: read and written only with this lock held. POINTEE: what a pointer points to.
#define LUM_GUARDED_BY(lock) LUM_THREAD_ANNOTATION(guarded_by(lock))
#define LUM_POINTEE_GUARDED_BY(lock) LUM_THREAD_ANNOTATION(pt_guarded_by(lock))
// A function: caller must hold these locks; caller must not hold them; locks them; unlocks them.
#define LUM_REQUIRES(...) LUM_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define LUM_EXCLUDES(...) LUM_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define LUM_ACQUIRE(...) LUM_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define LUM_RELEASE(...) LUM_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
// A function: returns this lock.
#define LUM_RETURNS(lock) LUM_THREAD_ANNOTATION(lock_returned(lock))
// A function that touches what is guarded without the lock, as its comment says.
#define LUM_UNCHECKED LUM_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace lum::utils {

// A lock of the standard library, annotated.
template <typename Native>
class LUM_THREAD_ANNOTATION(capability("mutex")) BasicMutex {
  public:
    void lock() LUM_ACQUIRE() { mNative.lock(); }
    bool try_lock() LUM_THREAD_ANNOTATION(try_acquire_capability(true)) {
        return mNative.try_lock();
    }
    void unlock() LUM_RELEASE() { mNative.unlock(); }

  private:
    friend class Condition;

    Native mNative;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

// Holds a lock as long as it lives, except between unlock() and lock().
template <typename Native>
class LUM_THREAD_ANNOTATION(scoped_lockable) MutexLock {
  public:
    explicit MutexLock(BasicMutex<Native>& mutex) LUM_ACQUIRE(mutex) : mMutex(mutex) { lock(); }
    ~MutexLock() LUM_RELEASE() {
        if (mHeld) mMutex.unlock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() LUM_ACQUIRE() {
        mMutex.lock();
        mHeld = true;
    }
    void unlock() LUM_RELEASE() {
        mHeld = false;
        mMutex.unlock();
    }

  private:
    BasicMutex<Native>& mMutex;
    bool mHeld = false;
};

// A condition variable for Mutex.
class Condition {
  public:
    // Releases the mutex until it is notified, or for no reason; holds it again on return.
    void wait(Mutex& mutex) LUM_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mNative, std::adopt_lock);
        mNative.wait(lock);
        lock.release();
    }
    // As wait(), but not beyond a time; false when it has come.
    template <typename Clock, typename Duration>
    bool waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& time)
        LUM_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mNative, std::adopt_lock);
        const bool inTime = mNative.wait_until(lock, time) == std::cv_status::no_timeout;
        lock.release();
        return inTime;
    }
    void notifyOne() { mNative.notify_one(); }
    void notifyAll() { mNative.notify_all(); }

  private:
    std::condition_variable mNative;
};

}  // namespace lum::utils
