// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <map>
#include <set>

#include "utils/Export.h"
#include "utils/LumTimer.h"
#include "utils/Mutex.h"
#include "utils/PendingRemovals.h"

namespace lum::utils {

// What a registered descriptor is watched for.
struct HandlerObject {
    void (*mEventCallback)(int fd, void* data);
    void (*mCloseCallback)(int fd, void* data);
    void* mData;
    bool mNoEventCallback;
    uint64_t mWatchedAs;  // what epoll reports it as
};

// Watches descriptors with epoll and runs their callbacks, and those of a LumTimer, on one thread:
// the one that calls processEvents in a loop, the event thread.
//
// All operations may be called on any thread, callbacks included, unless they say otherwise. Event
// callbacks run with the manager's mutex released; functions that end a removal run with it held by
// the event thread, so they must not wait for another thread that uses the manager.
class LUM_EXPORT EventManager {
  public:
    // Ends the process with exit(-1) when the system refuses a descriptor.
    EventManager();
    // Carries out the removals still pending and closes the manager's own descriptors, no others.
    // The event thread must have left processEvents, and no other call may be under way.
    ~EventManager();
    EventManager(const EventManager&) = delete;
    EventManager& operator=(const EventManager&) = delete;

    // Starts watching a descriptor, level-triggered.
    // fd: stays its owner's until it is removed with the close flag set or hangs up.
    // eventCallback: called on the event thread with (fd, data) while fd is readable. When it is
    // null, events of fd are only logged.
    // data: passed to both callbacks; not owned; must live until the handler is gone.
    // closeCallback: may be null. Called with (fd, data), in removeEventHandler, only when the
    // event thread could not be notified of the removal. It must not close fd: the removal stays
    // queued.
    // events: epoll event bits, EPOLLIN | EPOLLHUP as a rule.
    // Returns true when fd is being watched, false when it was already or epoll refuses it. Throws
    // std::bad_alloc, having changed nothing.
    // A number that was closed and given out anew while its removal was still pending may be added
    // again; the old removal then leaves it alone, but its done function is still called.
    bool addEventHandler(int fd, void (*eventCallback)(int, void*), void* data,
                         void (*closeCallback)(int, void*), int events);

    // Removes a descriptor: no callback starts for it any more, and the event thread takes it out
    // of epoll at the end of its pass. Does nothing when fd has no handler. Needs no memory.
    // closeFd: true to have it closed then, or done called in its place.
    // done, doneData: called on the event thread (or in the destructor), only if closeFd is true;
    // done may be null.
    // A callback of fd already running on the event thread is not waited for.
    void removeEventHandler(int fd, bool closeFd, void (*done)(void*), void* doneData);

    // Removes a descriptor that has hung up and closes it in the next removal pass. A removal
    // already pending for it stays as it is. Event thread only.
    void immediatelyRemoveEventHandler(int fd);

    // One pass: waits for the earliest timed callback, a ready descriptor or wake(), runs the timed
    // callbacks that are due, then the callbacks of at most four descriptors, then pending
    // removals. Exceptions of event callbacks and done functions pass through; the next call goes
    // on after them.
    // timer: used by this call only; null waits without limit and runs no timed callbacks.
    void processEvents(LumTimer* timer);

    // Makes a processEvents that waits, or else the next one, return from its wait.
    void wake();

    // The set of descriptors whose events are dispatched; addEventHandler and the removals keep it.
    // These three take no lock: hold the mutex (lockRecursiveMutex) where another thread may run.
    void addApprovedFd(int fd) LUM_UNCHECKED;
    bool isApprovedFd(int fd) const LUM_UNCHECKED;
    void remApprovedFd(int fd) LUM_UNCHECKED;

    // How many descriptors are approved, the manager's own two not counted. Logs each.
    int getNumRegisteredFds();

    // Hold off all other threads, for several calls that belong together. The mutex is recursive;
    // as many unlocks as locks, on the same thread.
    void lockRecursiveMutex() LUM_ACQUIRE(mMutex);
    void unlockRecursiveMutex() LUM_RELEASE(mMutex);

    // Event callback that reads fd, which must be non-blocking, until it is empty. data is not
    // used.
    static void clearRead(int fd, void* data);
    // Carries out the pending removals of the manager that data points to; does nothing if data is
    // null. fd is not used: the manager knows its removal descriptor. Event thread only.
    static void processRemove(int fd, void* data);

  private:
    friend class EventManagerPeer;  // tests: reads the counter of calls in progress

    static constexpr int kMaxEvents = 4;

    void registerOwnDescriptors();
    void closeOwnDescriptors();
    bool signalRemoval(int fd);
    void dispatch(int index, const epoll_event& event);
    void carryOutRemovals();
    bool carryOutOnce();
    bool carryOutNext();

    mutable RecursiveMutex mMutex;
    int mEpollFd = -1;
    int mWakeFd = -1;
    int mRemoveFd = -1;
    int64_t mInProgress = 0;
    std::map<int, HandlerObject> mHandlers LUM_GUARDED_BY(mMutex);
    uint64_t mRegistered LUM_GUARDED_BY(mMutex) = 0;  // how many have ever been
    PendingRemovals mRemovals LUM_GUARDED_BY(mMutex);
    std::set<int> mApprovedFds LUM_GUARDED_BY(mMutex);
};

}  // namespace lum::utils
