// SPDX-License-Identifier: Apache-2.0
// What the event manager watches and calls, and what it logs, whole and in order.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/utils/EventLoopFixture.h"
#include "tests/utils/OutOfMemory.h"
#include "tests/utils/SystemCalls.h"
#include "tools/emulator/ProcessStats.h"
#include "utils/EventManager.h"
#include "utils/LumTimer.h"

namespace {

static_assert(!std::is_polymorphic_v<EventManager>);

// A timed callback that does what it is given.
int runTimed(void* data) {
    (*static_cast<std::function<void()>*>(data))();
    return -1;
}

class EventManagerTest : public EventLoopTest {};

TEST_F(EventManagerTest, Construction) {
    std::vector<int> fds;
    gSystemCalls.epollCreate = [&](int size) {
        EXPECT_EQ(size, 4);
        return fds.emplace_back(SystemCalls::realEpollCreate(size));
    };
    gSystemCalls.eventFd = [&](unsigned int count, int flags) {
        EXPECT_EQ(count, 0U);
        EXPECT_EQ(flags, EFD_NONBLOCK);
        return fds.emplace_back(SystemCalls::realEventFd(count, flags));
    };
    std::vector<std::tuple<int, int, uint32_t, int>> watched;
    gSystemCalls.epollCtl = [&](int epoll, int op, int fd, epoll_event* event) {
        watched.emplace_back(op, fd, uint32_t{event->events}, int{event->data.fd});
        return SystemCalls::realEpollCtl(epoll, op, fd, event);
    };
    log.take();
    const EventManager plain;
    ASSERT_EQ(fds.size(), 3U);
    EXPECT_EQ(watched,
              (std::vector<std::tuple<int, int, uint32_t, int>>{
                  {EPOLL_CTL_ADD, fds[1], 17, fds[1]}, {EPOLL_CTL_ADD, fds[2], 17, fds[2]}}));
    for (const int fd : fds) EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(log.take(),
              (Lines{logD("EventManager: ctor"),
                     adding(fds[1], EventManager::clearRead, nullptr, nullptr, 17), added(fds[1]),
                     adding(fds[2], EventManager::processRemove, nullptr, nullptr, 17),
                     added(fds[2]), logD(format("EventManager is ready. epollFd:%d", fds[0]))}));
}

TEST_F(EventManagerTest, DestructorClosesItsOwnDescriptorsAndNoOthers) {
    const Watched registered(*manager);
    const size_t before = openDescriptors();
    EXPECT_EQ(logOf([this] { manager.reset(); }), Lines{logD("EventManager: dtor")});
    EXPECT_EQ(openDescriptors(), before - 3);
    for (const int fd : {epollFd, wakeFd, removeFd}) EXPECT_FALSE(isOpen(fd));
}

TEST_F(EventManagerTest, AddingTwiceLeavesTheFirstHandlerInPlace) {
    Watched first;
    const int fd = first.fd();
    log.take();
    EXPECT_TRUE(manager->addEventHandler(fd, Watched::run, &first, Watched::closed, EPOLLIN));
    EXPECT_EQ(log.take(), (Lines{adding(fd, Watched::run, &first, Watched::closed, 1), added(fd)}));
    const auto second = [](int, void*) { FAIL() << "the second handler was called"; };
    EXPECT_FALSE(manager->addEventHandler(fd, second, nullptr, nullptr, 17));
    EXPECT_EQ(log.take(), (Lines{adding(fd, second, nullptr, nullptr, 17),
                                 logW(format("fd=%d is already in handlers", fd))}));
    EXPECT_EQ(manager->getNumRegisteredFds(), 1);
    first.makeReadable();
    pass();
    pass();
    EXPECT_EQ(first.calls, 2) << "still readable in the second pass";
}

TEST_F(EventManagerTest, EventsThatAreOnlyLogged) {
    const Watched watched(*manager);
    const Watched withoutCallback;
    const int fd = watched.fd();
    const int mute = withoutCallback.fd();
    ASSERT_TRUE(manager->addEventHandler(mute, nullptr, nullptr, nullptr, 17));
    manager->addApprovedFd(77);
    const struct {
        int fd;
        uint32_t bits;
        LogLine line;
    } cases[] = {
        {mute, EPOLLIN, logW(format("no callback registered fd:%d. SHOULD NOT HAPPEN.", mute))},
        {77, EPOLLIN,
         logW("file descriptor '77' does not have an event handler registered. SHOULD NOT HAPPEN")},
        {fd, EPOLLOUT, logE("Unhandled epoll event: EPOLLOUT  [flags 04]. SHOULD NOT HAPPEN")},
        {fd, EPOLLPRI, logE("Unhandled epoll event: EPOLLPRI  [flags 02]. SHOULD NOT HAPPEN")},
        {fd, EPOLLOUT | EPOLLPRI | EPOLLET,
         logE(
             "Unhandled epoll event: EPOLLOUT EPOLLPRI EPOLLET  [flags 020000000006]. SHOULD NOT HAPPEN")},
        {fd, EPOLLRDNORM, logE("Unhandled epoll event:  [flags 0100]. SHOULD NOT HAPPEN")},
    };
    for (const auto& event : cases) {
        EXPECT_EQ(logOfPass({{event.bits, event.fd}}),
                  (Lines{pending(1), handling(0, event.bits, event.fd), event.line}));
    }
    EXPECT_EQ(watched.calls, 0);
}

TEST_F(EventManagerTest, WaitIsBoundedByTheTimer) {
    int timeout = -2;
    gSystemCalls.epollWait = [&](int epoll, epoll_event* /*events*/, int max, int limit) {
        EXPECT_EQ(epoll, epollFd);
        EXPECT_EQ(max, 4);
        timeout = limit;
        return 0;
    };
    gSystemCalls.clockGettime = [](clockid_t /*clock*/, timespec* now) {
        *now = {50, 0};
        return 0;
    };
    manager->processEvents(nullptr);
    EXPECT_EQ(timeout, -1);
    LumTimer timer(nullptr);
    manager->processEvents(&timer);
    EXPECT_EQ(timeout, -1);
    std::function<void()> nothing = [] {};
    for (const int delay : {1234, 0}) {
        timer.addTimedCallback(delay, runTimed, &nothing);
        manager->processEvents(&timer);
        EXPECT_EQ(timeout, delay);
    }
}

TEST_F(EventManagerTest, FailedWaitEndsThePass) {
    gSystemCalls.epollWait = [](int, epoll_event*, int, int) {
        errno = EINTR;
        return -1;
    };
    LumTimer timer(nullptr);
    std::function<void()> timed = [] { FAIL() << "a timed callback was run"; };
    timer.addTimedCallback(0, runTimed, &timed);
    EXPECT_EQ(logOf([&] { manager->processEvents(&timer); }), Lines{logE("epoll_wait error")});
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
}

TEST_F(EventManagerTest, WithoutATimerItBlocksUntilWokenOrADescriptorIsReady) {
    const Watched watched(*manager);
    const std::function<void()> ways[] = {[this] { manager->wake(); },
                                          [&] { watched.makeReadable(); }};
    for (const std::function<void()>& wakeUp : ways) {
        std::thread other;
        gSystemCalls.epollWait = [&](int epoll, epoll_event* events, int max, int timeout) {
            EXPECT_EQ(timeout, -1);
            EXPECT_EQ(SystemCalls::realEpollWait(epoll, events, max, 0), 0) << "ready too early";
            other = std::thread(wakeUp);
            return SystemCalls::realEpollWait(epoll, events, max, timeout);
        };
        manager->processEvents(nullptr);
        other.join();
    }
    EXPECT_EQ(watched.calls, 1);
}

TEST_F(EventManagerTest, WakingTwiceEndsOneWait) {
    const LogLine wakes = logD("wake() EX");
    EXPECT_EQ(logOf([this] {
                  manager->wake();
                  manager->wake();
              }),
              (Lines{wakes, wakes}));
    EXPECT_EQ(logOfPass(), (Lines{pending(1), handling(0, 1, wakeFd),
                                  calling(wakeFd, EventManager::clearRead, nullptr)}));
    EXPECT_EQ(logOfPass(), Lines{});
}

TEST_F(EventManagerTest, WakeThatFails) {
    const auto wake = [this] { manager->wake(); };
    failWrites(-1, EBADF);
    EXPECT_EQ(logOf(wake),
              (Lines{logD("wake() EX"),
                     logW(format("Error in writing rv: %zu, error: Bad file descriptor",
                                 static_cast<size_t>(-1)))}));
    failWrites(3, EIO);
    EXPECT_EQ(logOf(wake), (Lines{logD("wake() EX"),
                                  logW("Error in writing rv: 3, error: Input/output error")}));
}

TEST_F(EventManagerTest, TimedCallbacksRunBeforeDescriptors) {
    std::string order;
    Watched ready(*manager);
    ready.onRun = [&] {
        order += 'd';
        EventManager::clearRead(ready.fd(), nullptr);
    };
    Watched removed(*manager);
    ready.makeReadable();
    removed.makeReadable();
    LumTimer timer(nullptr);
    std::function<void()> timed = [&] {
        order += 't';
        removeOnly(removed);
    };
    timer.addTimedCallback(0, runTimed, &timed);
    manager->processEvents(&timer);
    EXPECT_EQ(order, "td");
    EXPECT_EQ(removed.calls, 0);
    pass();
    timer.addTimedCallback(0, runTimed, &timed);
    manager->processEvents(&timer);
    EXPECT_EQ(order, "tdt") << "with no descriptor ready";
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
}

TEST_F(EventManagerTest, OnlyDoneFunctionsRunWithTheMutexHeld) {
    std::optional<RunUntilBlocked> whileRun;
    std::optional<RunUntilBlocked> whileDone;
    std::optional<RunUntilBlocked> whileClosed;
    Watched watched(*manager);
    watched.onRun = use(whileRun);
    watched.makeReadable();
    pass();
    EXPECT_FALSE(whileRun.value().blocked());
    watched.onDone = [&] {
        use(whileDone)();
        EXPECT_EQ(manager->getNumRegisteredFds(), 0) << "from the event thread itself";
    };
    removeWithDone(watched);
    pass();
    EXPECT_TRUE(whileDone.value().blocked());
    whileDone.reset();  // it may still hold the mutex that it has waited for
    ASSERT_TRUE(watched.addTo(*manager));
    watched.onClosed = use(whileClosed);
    failWrites(-1, EBADF);
    removeOnly(watched);
    EXPECT_FALSE(whileClosed.value().blocked());
}

TEST_F(EventManagerTest, CallbackMayRemoveItsOwnHandlerAndAddOthers) {
    Watched added;
    Watched removed(*manager);
    removed.onRun = [&] {
        EXPECT_TRUE(added.addTo(*manager));
        removeAndClose(removed);
        EXPECT_TRUE(isOpen(removed.fd())) << "still in use by the callback";
    };
    added.makeReadable();
    removed.makeReadable();
    pass();
    EXPECT_EQ(added.calls, 0);
    pass();
    EXPECT_EQ(added.calls, 1);
    EXPECT_EQ(removed.calls, 1);
    EXPECT_FALSE(isOpen(removed.fd()));
}

TEST_F(EventManagerTest, ExceptionOfACallbackPassesThroughAndNothingStaysHeld) {
    Watched throwing(*manager);
    Watched removed(*manager);
    throwing.onRun = [] { throw std::runtime_error("refused"); };
    removeAndClose(removed);
    EXPECT_THROW(pass({{EPOLLIN, removeFd}, {EPOLLIN, throwing.fd()}}), std::runtime_error);
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
    EXPECT_FALSE(RunUntilBlocked([&] { manager->getNumRegisteredFds(); }).blocked());
    EXPECT_TRUE(isOpen(removed.fd()));
    pass();
    EXPECT_FALSE(isOpen(removed.fd())) << "the next pass goes on with what this one left";
}

TEST_F(EventManagerTest, PassInsideACallbackLeavesTheOuterPassItsEvents) {
    std::vector<int64_t> inProgress;
    const auto count = [&] { inProgress.push_back(EventManagerPeer::inProgress(*manager)); };
    Watched outer(*manager);
    Watched second(*manager);
    Watched inner(*manager);
    outer.onRun = [&] { pass({{EPOLLIN, inner.fd()}, {EPOLLIN, inner.fd()}}); };
    second.onRun = count;
    inner.onRun = count;
    pass({{EPOLLIN, outer.fd()}, {EPOLLIN, second.fd()}});
    EXPECT_EQ(outer.calls, 1);
    EXPECT_EQ(inner.calls, 2);
    EXPECT_EQ(second.calls, 1);
    EXPECT_EQ(inProgress, (std::vector<int64_t>{2, 2, 1}));
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
}

// Epoll has reported one that was closed since.
TEST_F(EventManagerTest, EventIsNotForTheNextDescriptorWithItsNumber) {
    Watched first(*manager);
    Watched second(*manager);
    first.onRun = [&] {
        removeOnly(second);
        const int other = eventfd(0, EFD_NONBLOCK);
        EXPECT_EQ(dup2(other, second.fd()), second.fd());
        close(other);
        EXPECT_TRUE(second.addTo(*manager));
    };
    pass({{EPOLLIN, first.fd()}, {EPOLLIN | EPOLLHUP, second.fd()}, {EPOLLIN, second.fd()}});
    EXPECT_EQ(second.calls, 0);
    pass();
    EXPECT_TRUE(isOpen(second.fd()));
    second.makeReadable();
    pass();
    EXPECT_EQ(second.calls, 1);
}

TEST_F(EventManagerTest, MutexIsRecursiveAndHoldsOffOthers) {
    std::optional<RunUntilBlocked> other;
    manager->lockRecursiveMutex();
    manager->lockRecursiveMutex();
    manager->unlockRecursiveMutex();
    other.emplace([this] {
        manager->lockRecursiveMutex();
        manager->addApprovedFd(500);
        manager->unlockRecursiveMutex();
    });
    EXPECT_TRUE(other->blocked());
    EXPECT_FALSE(manager->isApprovedFd(500));
    manager->unlockRecursiveMutex();
    other.reset();
    EXPECT_TRUE(manager->isApprovedFd(500));
}

TEST_F(EventManagerTest, ApprovedDescriptorsAreASetThatIsCountedAndListed) {
    const auto approved = [](int fd) { return logD(format("Approved FD: %d", fd)); };
    const auto expectCount = [this](int count, const Lines& lines) {
        EXPECT_EQ(logOf([&] { EXPECT_EQ(manager->getNumRegisteredFds(), count); }), lines);
    };
    expectCount(0, {approved(wakeFd), approved(removeFd)});
    for (const int fd : {1000, 2, 1000}) manager->addApprovedFd(fd);
    EXPECT_TRUE(manager->isApprovedFd(1000));
    expectCount(2, {approved(2), approved(wakeFd), approved(removeFd), approved(1000)});
    for (const int fd : {1000, 2, 1000, wakeFd}) manager->remApprovedFd(fd);
    EXPECT_FALSE(manager->isApprovedFd(1000));
    expectCount(-1, {logE("Invalid approvedFd size -1. Should not happen"), approved(removeFd)});
}

TEST_F(EventManagerTest, ClearReadEmptiesADescriptor) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    const std::array<char, 1000> bytes{};
    ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    std::vector<size_t> sizes;
    gSystemCalls.read = [&](int fd, void* buffer, size_t size) {
        sizes.push_back(size);
        return SystemCalls::realRead(fd, buffer, size);
    };
    log.take();
    EventManager::clearRead(ends[0], nullptr);
    EXPECT_EQ(sizes, (std::vector<size_t>(5, 256)));  // 256, 256, 256, 232, nothing left
    close(ends[1]);
    EventManager::clearRead(ends[0], nullptr);
    EXPECT_EQ(sizes.size(), 6U) << "the end of a file ends it";
    EXPECT_EQ(log.take(), Lines{});
    close(ends[0]);
    EventManager::clearRead(-1, nullptr);
    EXPECT_EQ(log.take(), Lines{logW("Error while clearing the read buffer on fd -1")});
}

// The fatal failures. The child prints what it logged when it ends.
LogCapture* gChildLog = nullptr;

void printChildLog() {
    for (const LogLine& line : gChildLog->lines()) {
        fprintf(stderr, "%d:%s;", line.priority, line.text.c_str());
    }
}

void constructInChild() {
    gChildLog = new LogCapture;
    atexit(printChildLog);
    const EventManager manager;
}

TEST(EventManagerDeathTest, WithoutADescriptorTheProcessEnds) {
    const RestoreSystemCalls restore;
    int calls = 0;
    int failing = 0;
    const auto refused = [&] {
        errno = EMFILE;
        return calls++ == failing;
    };
    gSystemCalls.epollCreate = [&](int size) {
        return refused() ? -1 : SystemCalls::realEpollCreate(size);
    };
    gSystemCalls.eventFd = [&](unsigned int count, int flags) {
        return refused() ? -1 : SystemCalls::realEventFd(count, flags);
    };
    for (const char* const lines :
         {"6:Cannot create epoll instance;$", "6:Cannot create eventfd instance;$",
          "3:addEventHandler.*;3:Added event handler [0-9]+;6:Cannot create removeFd instance;$"}) {
        EXPECT_EXIT(constructInChild(), testing::ExitedWithCode(255),
                    std::string("^3:EventManager: ctor;") + lines);
        ++failing;
    }
}

// Without a LogCapture, whose records need memory.
TEST(EventManagerMemoryTest, AddingThatRunsOutOfMemoryChangesNothing) {
    EventManager manager;
    Watched watched;
    const long allocations = allocationsNeeded(
        [&] { watched.addTo(manager); }, [&] { EXPECT_EQ(manager.getNumRegisteredFds(), 0); });
    EXPECT_GT(allocations, 0);
    EXPECT_EQ(manager.getNumRegisteredFds(), 1);
    watched.makeReadable();
    manager.processEvents(nullptr);
    EXPECT_EQ(watched.calls, 1);
}

TEST(EventManagerMemoryTest, ConstructionThatRunsOutOfMemoryLeavesNothingOpen) {
    const size_t before = openDescriptors();
    EXPECT_GT(allocationsNeeded([] { const EventManager manager; },
                                [&] { EXPECT_EQ(openDescriptors(), before); }),
              2);
}

TEST(EventManagerMemoryTest, RemovalsNeedNoMemory) {
    std::optional<EventManager> manager(std::in_place);
    Watched removed(*manager);
    Watched hungUp(*manager);
    Watched closedAtTheEnd(*manager);
    Watched doneAtTheEnd(*manager);
    for (Watched* const watched : {&removed, &hungUp, &closedAtTheEnd}) watched->release();
    {
        const AllocationLimit none(0);
        manager->removeEventHandler(removed.fd(), true, nullptr, nullptr);
        manager->immediatelyRemoveEventHandler(hungUp.fd());
        manager->processEvents(nullptr);
        manager->removeEventHandler(closedAtTheEnd.fd(), true, nullptr, nullptr);
        manager->removeEventHandler(doneAtTheEnd.fd(), true, Watched::done, &doneAtTheEnd);
        manager.reset();
    }
    for (const Watched* const watched : {&removed, &hungUp, &closedAtTheEnd}) {
        EXPECT_FALSE(isOpen(watched->fd()));
    }
    EXPECT_EQ(doneAtTheEnd.dones, 1);
}

}  // namespace
