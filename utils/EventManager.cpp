// SPDX-License-Identifier: Apache-2.0
#include "utils/EventManager.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

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

ssize_t addOne(int eventFd) {
    const uint64_t one = 1;
    return write(eventFd, &one, sizeof one);
}

EventManagerUpdates::node_type makeRemoval(int fd) {
    EventManagerUpdates made;
    made.emplace(fd, std::make_shared<EventManagerUpdate>());
    return made.extract(fd);
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
    while (hasRemovals()) {
        try {
            carryOutLast();
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
    const std::lock_guard<std::recursive_mutex> guard(mMutex);
    LUM_LOGD("addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, events %d) EX",
             fd, address(eventCallback), data, address(closeCallback), events);
    if (mHandlers.count(fd) != 0) {
        LUM_LOGW("fd=%d is already in handlers", fd);
        return false;
    }
    // All that needs memory comes before epoll knows the descriptor.
    std::map<int, HandlerObject> handler;
    handler.emplace(fd, HandlerObject{eventCallback, closeCallback, data, eventCallback == nullptr,
                                      makeRemoval(fd)});
    std::set<int> approved{fd};
    epoll_event watched{};
    watched.events = static_cast<uint32_t>(events);
    watched.data.fd = fd;
    if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &watched) == -1) {
        LUM_LOGE("Cannot add event handler. err:%d", errno);
        return false;
    }
    LUM_LOGD("Added event handler %d", fd);
    dropReusedNumber(fd);
    mHandlers.merge(handler);
    mApprovedFds.merge(approved);
    return true;
}

// A descriptor that waits for its removal is still in epoll, which refuses it. So one that epoll
// has just accepted is another with the same number, and the removal must not take that out or
// close it.
void EventManager::dropReusedNumber(int fd) {
    EventManagerUpdates::node_type pending = mUpdates.extract(fd);
    if (pending.empty()) return;
    if (pending.mapped()->mCloseFd && pending.mapped()->mDone != nullptr) {
        mSuperseded.insert(std::move(pending));
    }
}

void EventManager::removeEventHandler(int fd, bool closeFd, void (*done)(void*), void* doneData) {
    std::unique_lock<std::recursive_mutex> guard(mMutex);
    LUM_LOGD("removeEventHandler(int fd: %d) EX", fd);
    const auto found = mHandlers.find(fd);
    if (found == mHandlers.end()) return;
    const auto closeCallback = found->second.mCloseCallback;
    void* const data = found->second.mData;
    EventManagerUpdates::node_type removal = std::move(found->second.mRemoval);
    const size_t erased = mHandlers.erase(fd);
    if (erased != 1) LUM_LOGE("handlers.erase for fd %d returned %zu!", fd, erased);
    mApprovedFds.erase(fd);
    queueRemoval(std::move(removal), closeFd, done, doneData);
    if (signalRemoval(fd)) return;
    guard.unlock();
    if (closeCallback != nullptr) closeCallback(fd, data);
}

void EventManager::immediatelyRemoveEventHandler(int fd) {
    const std::lock_guard<std::recursive_mutex> guard(mMutex);
    LUM_LOGD("immediatelyRemoveEventHandler(int fd: %d) EX", fd);
    mApprovedFds.erase(fd);
    // A removal already asked for may carry a done function, or leave the descriptor open.
    if (mUpdates.count(fd) == 0) {
        const auto found = mHandlers.find(fd);
        queueRemoval(found == mHandlers.end() ? makeRemoval(fd) : std::move(found->second.mRemoval),
                     true, nullptr, nullptr);
    }
    signalRemoval(fd);
    mHandlers.erase(fd);
}

// No removal is pending for a number that has a handler: adding the handler took it out.
void EventManager::queueRemoval(EventManagerUpdates::node_type removal, bool closeFd,
                                void (*done)(void*), void* doneData) {
    *removal.mapped() = {removal.key(), closeFd, done, doneData};
    mUpdates.insert(std::move(removal));
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
    const int ready = epoll_wait(mEpollFd, mEvents, kMaxEvents, timeout);
    if (ready == -1) {
        LUM_LOGE("epoll_wait error");
        return;
    }
    const CallInProgress inProgress(mInProgress);
    // A callback may run a pass of its own, which fills mEvents anew.
    std::array<epoll_event, kMaxEvents> events{};
    std::copy_n(mEvents, ready, events.begin());
    if (timer != nullptr) timer->processEvents();
    bool removalsPending = false;
    for (int i = 0; i < ready; ++i) {
        LUM_LOGD("there are %d file descriptor(s) with events pending", ready - i);
        const epoll_event& event = events[static_cast<size_t>(i)];
        if (event.data.fd == mRemoveFd) {
            removalsPending = true;
        } else {
            dispatch(i, event);
        }
    }
    if (!removalsPending) return;
    const std::lock_guard<std::recursive_mutex> guard(mMutex);
    processRemove(mRemoveFd, this);
}

void EventManager::dispatch(int index, const epoll_event& event) {
    const int fd = event.data.fd;
    const uint32_t bits = event.events;
    std::unique_lock<std::recursive_mutex> guard(mMutex);
    if (!isApprovedFd(fd)) {
        LUM_LOGE("file descriptor %d is not on the approved list, cannot process event", fd);
        return;
    }
    LUM_LOGD("processing event number: %d, handling %d for %d", index, static_cast<int>(bits), fd);
    if ((bits & kHangUpEvents) != 0) {
        LUM_LOGE("file descriptor '%d' sent HUP/ERR.", fd);
        // With the lock kept, so that it is still this descriptor that is removed.
        immediatelyRemoveEventHandler(fd);
    } else if ((bits & EPOLLIN) != 0) {
        dispatchReadable(fd, guard);
    } else {
        LUM_LOGE("Unhandled epoll event: %s [flags 0%o]. SHOULD NOT HAPPEN",
                 flagNames(bits).c_str(), bits);
    }
}

void EventManager::dispatchReadable(int fd, std::unique_lock<std::recursive_mutex>& guard) {
    const auto found = mHandlers.find(fd);
    if (found == mHandlers.end()) {
        LUM_LOGW(
            "file descriptor '%d' does not have an event handler registered. SHOULD NOT HAPPEN",
            fd);
        return;
    }
    if (found->second.mNoEventCallback) {
        LUM_LOGW("no callback registered fd:%d. SHOULD NOT HAPPEN.", fd);
        return;
    }
    const auto callback = found->second.mEventCallback;
    void* const data = found->second.mData;
    LUM_LOGD("file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
             address(callback), data);
    guard.unlock();
    callback(fd, data);
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
    const std::lock_guard<std::recursive_mutex> guard(mMutex);
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

bool EventManager::hasRemovals() const {
    return !mUpdates.empty() || !mSuperseded.empty();
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
    callSupersededDone();
    EventManagerUpdates updates;
    {
        const std::lock_guard<std::recursive_mutex> guard(mMutex);
        updates = mUpdates;
    }
    for (const auto& update : updates) carryOut(update.second);

    const std::lock_guard<std::recursive_mutex> guard(mMutex);
    for (const auto& update : updates) {
        LUM_LOGD("Clearing local update FD:%d", update.first);
        // A done function may have added the descriptor and removed it again: that one stays.
        const auto found = mUpdates.find(update.first);
        if (found != mUpdates.end() && found->second == update.second) mUpdates.erase(found);
    }
    if (hasRemovals()) return false;
    // Drained in the same hold of the lock that found nothing left: a removal queued in between
    // would lose its signal.
    clearRead(mRemoveFd, nullptr);
    return true;
}

// Carries out one removal, for the destructor: without a copy of the map, which takes memory. Each
// call leaves fewer removals, also one that throws.
void EventManager::carryOutLast() {
    callSupersededDone();
    if (mUpdates.empty()) return;
    const EventManagerUpdate claimed = claim(*mUpdates.begin()->second);
    mUpdates.erase(mUpdates.begin());
    finish(claimed);
}

void EventManager::carryOut(const std::shared_ptr<EventManagerUpdate>& update) {
    EventManagerUpdate claimed{};
    {
        const std::lock_guard<std::recursive_mutex> guard(mMutex);
        const auto found = mUpdates.find(update->mFd);
        if (found == mUpdates.end() || found->second != update) return;
        claimed = claim(*update);
    }
    finish(claimed);
}

// Takes the descriptor out of epoll. From here on the removal counts as done: neither a second pass
// nor a reuse of the number repeats it.
EventManagerUpdate EventManager::claim(EventManagerUpdate& update) const {
    const int fd = update.mFd;
    LUM_LOGD("removing %d from epollFd", fd);
    if (epoll_ctl(mEpollFd, EPOLL_CTL_DEL, fd, nullptr) == -1) {
        LUM_LOGE("Cannot remove event handler errno %d", errno);
    }
    return std::exchange(update, {fd, false, nullptr, nullptr});
}

void EventManager::finish(const EventManagerUpdate& claimed) {
    if (!claimed.mCloseFd) return;
    if (claimed.mDone != nullptr) {
        claimed.mDone(claimed.mDoneData);
    } else {
        close(claimed.mFd);
    }
    LUM_LOGD("Closed %d", claimed.mFd);
}

void EventManager::callSupersededDone() {
    std::unique_lock<std::recursive_mutex> guard(mMutex);
    while (!mSuperseded.empty()) {
        const auto removal = mSuperseded.extract(mSuperseded.begin());
        guard.unlock();
        LUM_LOGD("fd %d was added again before its removal", removal.key());
        removal.mapped()->mDone(removal.mapped()->mDoneData);
        guard.lock();
    }
}

}  // namespace lum::utils
