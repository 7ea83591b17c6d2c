// SPDX-License-Identifier: Apache-2.0
#include "utils/EventManager.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "utils/Log.h"

namespace lum::utils {

namespace {

constexpr int kOwnEvents = EPOLLIN | EPOLLHUP;
constexpr uint32_t kHangUpEvents = EPOLLERR | EPOLLHUP | EPOLLRDHUP;
constexpr int kOwnApprovedFds = 2;
constexpr size_t kReadChunk = 256;

// Counts a processEvents call for as long as it runs, also when a callback throws.
class CallInProgress {
  public:
    explicit CallInProgress(int64_t& count) : mCount(count) { ++mCount; }
    ~CallInProgress() { --mCount; }
    CallInProgress(const CallInProgress&) = delete;
    CallInProgress& operator=(const CallInProgress&) = delete;

  private:
    int64_t& mCount;
};

void* address(void (*function)(int, void*)) {
    return reinterpret_cast<void*>(function);
}

// Beside the descriptor, epoll's events carry which registration of its number they are of.
int fdOf(const epoll_event& event) {
    return static_cast<int>(static_cast<uint32_t>(event.data.u64));
}

ssize_t addOne(int eventFd) {
    const uint64_t one = 1;
    return write(eventFd, &one, sizeof one);
}

std::string flagNames(uint32_t events) {
    std::string names;
    if ((events & EPOLLOUT) != 0) names += "EPOLLOUT ";
    if ((events & EPOLLPRI) != 0) names += "EPOLLPRI ";
    if ((events & EPOLLET) != 0) names += "EPOLLET ";
    return names;
}

[[noreturn]] void fail(const char* text) {
    LUM_LOGE("%s", text);
    exit(-1);
}

}  // namespace

EventManager::EventManager() {
    LUM_LOGD("EventManager: ctor");
    mEpollFd = epoll_create(4);
    if (mEpollFd == -1) fail("Cannot create epoll instance");
    fcntl(mEpollFd, F_SETFD, FD_CLOEXEC);
    try {
        registerOwnDescriptors();
    } catch (...) {
        closeOwnDescriptors();
        throw;
    }
    LUM_LOGD("EventManager is ready. epollFd:%d", mEpollFd);
}

EventManager::~EventManager() {
    LUM_LOGD("EventManager: dtor");
    bool finished = false;
    while (!finished) {
        try {
            finished = carryOutOnce();
        } catch (...) {
            LUM_LOGE("EventManager: dtor, a removal ended with an exception");
        }
    }
    closeOwnDescriptors();
}

void EventManager::registerOwnDescriptors() {
    mWakeFd = eventfd(0, EFD_NONBLOCK);
    if (mWakeFd == -1) fail("Cannot create eventfd instance");
    fcntl(mWakeFd, F_SETFD, FD_CLOEXEC);
    addEventHandler(mWakeFd, clearRead, nullptr, nullptr, kOwnEvents);
    mRemoveFd = eventfd(0, EFD_NONBLOCK);
    if (mRemoveFd == -1) fail("Cannot create removeFd instance");
    fcntl(mRemoveFd, F_SETFD, FD_CLOEXEC);
    addEventHandler(mRemoveFd, processRemove, nullptr, nullptr, kOwnEvents);
}

void EventManager::closeOwnDescriptors() {
    for (const int fd : {mRemoveFd, mWakeFd, mEpollFd}) {
        if (fd != -1) close(fd);
    }
}

bool EventManager::addEventHandler(int fd, void (*eventCallback)(int, void*), void* data,
                                   void (*closeCallback)(int, void*), int events) {
    const MutexLock lock(mMutex);
    LUM_LOGD("addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, events %d) EX",
             fd, address(eventCallback), data, address(closeCallback), events);
    if (mHandlers.count(fd) != 0) {
        LUM_LOGW("fd=%d is already in handlers", fd);
        return false;
    }
    // All that needs memory comes before epoll knows the descriptor, its removal included.
    std::map<int, HandlerObject> handler;
    const uint64_t watchedAs = ++mRegistered << 32U | static_cast<uint32_t>(fd);
    handler.emplace(
        fd, HandlerObject{eventCallback, closeCallback, data, eventCallback == nullptr, watchedAs});
    std::set<int> approved{fd};
    mRemovals.reserve(mRemovals.size() + mHandlers.size() + 1);
    epoll_event watched{};
    watched.events = static_cast<uint32_t>(events);
    watched.data.u64 = watchedAs;
    if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &watched) == -1) {
        LUM_LOGE("Cannot add event handler. err:%d", errno);
        return false;
    }
    LUM_LOGD("Added event handler %d", fd);
    // A descriptor that waits for its removal is still in epoll, which refuses it. One that epoll
    // has just accepted is another with the same number.
    mRemovals.disown(fd);
    mHandlers.merge(handler);
    mApprovedFds.merge(approved);
    return true;
}

void EventManager::removeEventHandler(int fd, bool closeFd, void (*done)(void*), void* doneData) {
    MutexLock lock(mMutex);
    LUM_LOGD("removeEventHandler(int fd: %d) EX", fd);
    const auto found = mHandlers.find(fd);
    if (found == mHandlers.end()) return;
    const auto closeCallback = found->second.mCloseCallback;
    void* const data = found->second.mData;
    const size_t erased = mHandlers.erase(fd);
    if (erased != 1) LUM_LOGE("handlers.erase for fd %d returned %zu!", fd, erased);
    mApprovedFds.erase(fd);
    mRemovals.add({fd, closeFd, done, doneData});
    if (signalRemoval(fd)) return;
    lock.unlock();
    if (closeCallback != nullptr) closeCallback(fd, data);
}

void EventManager::immediatelyRemoveEventHandler(int fd) {
    const MutexLock lock(mMutex);
    LUM_LOGD("immediatelyRemoveEventHandler(int fd: %d) EX", fd);
    mApprovedFds.erase(fd);
    // A removal already asked for may carry a done function, or leave the descriptor open.
    if (!mRemovals.concerns(fd)) mRemovals.add({fd, true, nullptr, nullptr});
    signalRemoval(fd);
    mHandlers.erase(fd);
}

bool EventManager::signalRemoval(int fd) {
    const ssize_t written = addOne(mRemoveFd);
    if (written == sizeof(uint64_t)) return true;
    LUM_LOGE("Error in rem write. rv: %d, error: %s, for fd[%d]", static_cast<int>(written),
             strerror(errno), fd);
    return false;
}

void EventManager::processEvents(LumTimer* timer) {
    const int timeout = timer == nullptr ? -1 : timer->timeUntilNextEvent();
    // Not a member: a callback may run a pass of its own.
    std::array<epoll_event, kMaxEvents> events;
    const int ready = epoll_wait(mEpollFd, events.data(), kMaxEvents, timeout);
    if (ready == -1) {
        LUM_LOGE("epoll_wait error");
        return;
    }
    const CallInProgress inProgress(mInProgress);
    if (timer != nullptr) timer->processEvents();
    bool removalsPending = false;
    for (int i = 0; i < ready; ++i) {
        LUM_LOGD("there are %d file descriptor(s) with events pending", ready - i);
        const epoll_event& event = events[static_cast<size_t>(i)];
        if (fdOf(event) == mRemoveFd) {
            removalsPending = true;
        } else {
            dispatch(i, event);
        }
    }
    if (!removalsPending) return;
    const MutexLock lock(mMutex);
    processRemove(mRemoveFd, this);
}

void EventManager::dispatch(int index, const epoll_event& event) {
    const int fd = fdOf(event);
    const uint32_t bits = event.events;
    MutexLock lock(mMutex);
    if (!isApprovedFd(fd)) {
        LUM_LOGE("file descriptor %d is not on the approved list, cannot process event", fd);
        return;
    }
    const auto found = mHandlers.find(fd);
    if (found != mHandlers.end() && found->second.mWatchedAs != event.data.u64) {
        LUM_LOGD("file descriptor %d was added after this event", fd);
        return;
    }
    LUM_LOGD("processing event number: %d, handling %d for %d", index, static_cast<int>(bits), fd);
    if ((bits & kHangUpEvents) != 0) {
        LUM_LOGE("file descriptor '%d' sent HUP/ERR.", fd);
        // With the lock kept, so that it is still this descriptor that is removed.
        immediatelyRemoveEventHandler(fd);
    } else if ((bits & EPOLLIN) == 0) {
        LUM_LOGE("Unhandled epoll event: %s [flags 0%o]. SHOULD NOT HAPPEN",
                 flagNames(bits).c_str(), bits);
    } else if (found == mHandlers.end()) {
        LUM_LOGW(
            "file descriptor '%d' does not have an event handler registered. SHOULD NOT HAPPEN",
            fd);
    } else if (found->second.mNoEventCallback) {
        LUM_LOGW("no callback registered fd:%d. SHOULD NOT HAPPEN.", fd);
    } else {
        const auto callback = found->second.mEventCallback;
        void* const data = found->second.mData;
        LUM_LOGD("file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
                 address(callback), data);
        lock.unlock();
        callback(fd, data);
    }
}

void EventManager::wake() {
    LUM_LOGD("wake() EX");
    const ssize_t written = addOne(mWakeFd);
    if (written == sizeof(uint64_t)) return;
    LUM_LOGW("Error in writing rv: %zu, error: %s", static_cast<size_t>(written), strerror(errno));
}

void EventManager::addApprovedFd(int fd) {
    mApprovedFds.insert(fd);
}

bool EventManager::isApprovedFd(int fd) const {
    return mApprovedFds.count(fd) != 0;
}

void EventManager::remApprovedFd(int fd) {
    mApprovedFds.erase(fd);
}

int EventManager::getNumRegisteredFds() {
    const MutexLock lock(mMutex);
    const int count = static_cast<int>(mApprovedFds.size()) - kOwnApprovedFds;
    if (count < 0) LUM_LOGE("Invalid approvedFd size %d. Should not happen", count);
    for (const int fd : mApprovedFds) LUM_LOGD("Approved FD: %d", fd);
    return count;
}

void EventManager::lockRecursiveMutex() {
    mMutex.lock();
}

void EventManager::unlockRecursiveMutex() {
    mMutex.unlock();
}

void EventManager::clearRead(int fd, void* /*data*/) {
    std::array<char, kReadChunk> buffer{};
    ssize_t length = 0;
    do {
        length = read(fd, buffer.data(), buffer.size());
    } while (length > 0);
    if (length < 0 && errno != EAGAIN) {
        LUM_LOGW("Error while clearing the read buffer on fd %d", fd);
    }
}

void EventManager::processRemove(int /*fd*/, void* data) {
    if (data != nullptr) static_cast<EventManager*>(data)->carryOutRemovals();
}

void EventManager::carryOutRemovals() {
    LUM_LOGD("processRemove enter");
    while (!carryOutOnce()) {
        LUM_LOGD("updateEpollFd not finished, repeating: %p", static_cast<void*>(this));
    }
    LUM_LOGD("processRemove exit");
}

// Carries out what is pending now; true when nothing has come to it meanwhile.
bool EventManager::carryOutOnce() {
    {
        const MutexLock lock(mMutex);
        mRemovals.begin();
    }
    while (carryOutNext()) {
    }
    const MutexLock lock(mMutex);
    mRemovals.end();
    if (!mRemovals.empty()) return false;
    // Drained in the same hold of the lock that found nothing left: a removal queued in between
    // would lose its signal.
    clearRead(mRemoveFd, nullptr);
    return true;
}

// Carries out the next removal of the pass; false when there is none left.
bool EventManager::carryOutNext() {
    EventManagerUpdate removal{};
    bool disowned = false;
    {
        const MutexLock lock(mMutex);
        if (!mRemovals.next(&removal, &disowned)) return false;
        if (disowned) {
            LUM_LOGD("fd %d was added again before its removal", removal.mFd);
        } else {
            LUM_LOGD("removing %d from epollFd", removal.mFd);
            if (epoll_ctl(mEpollFd, EPOLL_CTL_DEL, removal.mFd, nullptr) == -1) {
                LUM_LOGE("Cannot remove event handler errno %d", errno);
            }
        }
    }
    if (!removal.mCloseFd) return true;
    if (removal.mDone != nullptr) {
        removal.mDone(removal.mDoneData);
    } else {
        close(removal.mFd);
    }
    if (!disowned) LUM_LOGD("Closed %d", removal.mFd);
    return true;
}

}  // namespace lum::utils
