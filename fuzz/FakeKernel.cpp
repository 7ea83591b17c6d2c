// SPDX-License-Identifier: Apache-2.0
#include "fuzz/FakeKernel.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "fuzz/Check.h"
#include "tests/utils/SystemCalls.h"

namespace {

constexpr int kFirst = 100000;  // no descriptor of the process has such a number

int failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace

FakeKernel::FakeKernel(Input& input) : mInput(input) {
    gSystemCalls.epollCreate = [this](int) { return open(false); };
    gSystemCalls.epollCtl = [this](int, int op, int fd, epoll_event* event) {
        return control(op, fd, event);
    };
    gSystemCalls.epollWait = [this](int, epoll_event* events, int max, int timeout) {
        return wait(events, max, timeout);
    };
    gSystemCalls.eventFd = [this](unsigned int, int flags) {
        return open((flags & EFD_SEMAPHORE) != 0);
    };
    gSystemCalls.read = [this](int fd, void* buffer, size_t size) {
        return fd < kFirst ? SystemCalls::realRead(fd, buffer, size) : read(fd, buffer, size);
    };
    gSystemCalls.write = [this](int fd, const void* buffer, size_t size) {
        return fd < kFirst ? SystemCalls::realWrite(fd, buffer, size) : write(fd, buffer, size);
    };
    gSystemCalls.close = [this](int fd) {
        if (fd < kFirst) return __real_close(fd);
        if (!isOpen(fd)) fail("closed " + std::to_string(fd) + ", which is not open");
        if (watcher != nullptr) watcher->onClose(fd);
        close(fd);
        return 0;
    };
    gSystemCalls.clockGettime = [this](clockid_t clock, timespec* now) {
        if (clock != CLOCK_BOOTTIME) return __real_clock_gettime(clock, now);
        if (mClockFails) return failWith(EINVAL);
        *now = mNow;
        return 0;
    };
}

FakeKernel::~FakeKernel() {
    gSystemCalls = {};
}

int FakeKernel::open(bool semaphore) {
    mLastOpened = -1;
    if (std::exchange(nextOpenFails, false)) return failWith(EMFILE);
    int fd = kFirst;
    while (isOpen(fd)) ++fd;
    mOpen[fd].semaphore = semaphore;
    return mLastOpened = fd;
}

void FakeKernel::close(int fd) {
    mOpen.erase(fd);
    mWatched.erase(fd);  // as the kernel does with the last reference
}

void FakeKernel::advance(int64_t milliseconds) {
    constexpr long kNsPerSecond = 1000000000;
    mNow.tv_sec += milliseconds / 1000;
    mNow.tv_nsec += milliseconds % 1000 * 1000000;
    if (mNow.tv_nsec >= kNsPerSecond) {
        mNow.tv_nsec -= kNsPerSecond;
        ++mNow.tv_sec;
    }
}

int FakeKernel::control(int op, int fd, const epoll_event* event) {
    if (op == EPOLL_CTL_DEL && watcher != nullptr) watcher->onUnwatch(fd);
    if (std::exchange(nextCtlFails, false)) return failWith(ENOMEM);
    if (!isOpen(fd)) return failWith(EBADF);
    if (op == EPOLL_CTL_ADD) {
        return mWatched.emplace(fd, *event).second ? 0 : failWith(EEXIST);
    }
    return mWatched.erase(fd) != 0 ? 0 : failWith(ENOENT);
}

uint32_t FakeKernel::readyBits(int fd) {
    Descriptor& descriptor = at(fd);
    const uint32_t wanted = mWatched.at(fd).events;
    uint32_t bits = wanted & EPOLLOUT;
    if (descriptor.count > 0) bits |= wanted & EPOLLIN;
    if (descriptor.hungUp) bits |= EPOLLHUP;
    return bits | std::exchange(descriptor.odd, 0);
}

int FakeKernel::wait(epoll_event* events, int max, int timeout) {
    std::vector<epoll_event> ready;
    for (const auto& watched : mWatched) {
        epoll_event event = watched.second;
        event.events = readyBits(watched.first);
        if (event.events != 0) ready.push_back(event);
    }
    // In any order.
    for (size_t last = ready.size(); last > 1; --last) {
        std::swap(ready[last - 1], ready[mInput.byte() % last]);
    }
    if (ready.size() > static_cast<size_t>(max)) ready.resize(static_cast<size_t>(max));
    // Nobody is there to end a wait without limit but a signal.
    if (ready.empty() && timeout < 0) return failWith(EINTR);
    if (ready.empty()) advance(timeout);
    std::copy(ready.begin(), ready.end(), events);
    if (watcher != nullptr) watcher->onReady(ready);
    return static_cast<int>(ready.size());
}

ssize_t FakeKernel::read(int fd, void* buffer, size_t size) {
    if (!isOpen(fd)) return failWith(EBADF);
    if (std::exchange(nextReadFails, false)) {
        mUnread.insert(fd);
        return failWith(EIO);
    }
    mUnread.erase(fd);
    Descriptor& descriptor = at(fd);
    if (descriptor.count == 0) return failWith(EAGAIN);
    const uint64_t taken = descriptor.semaphore ? 1 : descriptor.count;
    check(size >= sizeof taken, "read fewer than eight bytes of an eventfd");
    descriptor.count -= taken;
    memcpy(buffer, &taken, sizeof taken);
    return sizeof taken;
}

ssize_t FakeKernel::write(int fd, const void* buffer, size_t size) {
    uint64_t more = 0;
    if (!isOpen(fd)) fail("wrote to " + std::to_string(fd) + ", which is not open");
    check(size == sizeof more, "wrote other than eight bytes to an eventfd");
    if (std::exchange(nextWriteFails, false)) return failWith(EAGAIN);
    memcpy(&more, buffer, sizeof more);
    at(fd).count += more;
    return sizeof more;
}
