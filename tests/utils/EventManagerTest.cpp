// SPDX-License-Identifier: Apache-2.0
// What the event manager does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/AllocationLimit.h"
#include "tests/support/LogCapture.h"
#include "tests/utils/EventLoopFixture.h"
#include "tests/utils/SystemCalls.h"
#include "tools/emulator/ProcessStats.h"
#include "utils/EventManager.h"
#include "utils/LumTimer.h"

using lum::utils::EventManager;
using lum::utils::EventManagerPeer;

namespace {

static_assert(!std::is_polymorphic_v<EventManager>);

// A timed callback that does what it is given.
int runTimed(void* data) {
    (*static_cast<std::function<void()>*>(data))();
    return -1;
}

class EventManagerTest : public EventLoopTest {};

TEST_F(EventManagerTest, AsksTheSystemForTheRightDescriptors) {
    std::vector<int> sizes;
    std::vector<std::pair<unsigned int, int>> eventFds;
    std::vector<std::tuple<int, int, uint32_t, int>> watched;
    std::vector<int> fds;
    gSystemCalls.epollCreate = [&](int size) {
        sizes.push_back(size);
        return fds.emplace_back(SystemCalls::realEpollCreate(size));
    };
    gSystemCalls.eventFd = [&](unsigned int count, int flags) {
        eventFds.emplace_back(count, flags);
        return fds.emplace_back(SystemCalls::realEventFd(count, flags));
    };
    gSystemCalls.epollCtl = [&](int epoll, int op, int fd, epoll_event* event) {
        watched.emplace_back(op, fd, uint32_t{event->events}, int{event->data.fd});
        return SystemCalls::realEpollCtl(epoll, op, fd, event);
    };
    const EventManager plain;
    EXPECT_EQ(sizes, (std::vector{4}));
    const std::pair<unsigned int, int> nonBlocking{0, EFD_NONBLOCK};
    EXPECT_EQ(eventFds, (std::vector{nonBlocking, nonBlocking}));
    ASSERT_EQ(fds.size(), 3U);
    EXPECT_EQ(watched,
              (std::vector<std::tuple<int, int, uint32_t, int>>{
                  {EPOLL_CTL_ADD, fds[1], 17, fds[1]}, {EPOLL_CTL_ADD, fds[2], 17, fds[2]}}));
    for (const int fd : fds) EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(EventManagerTest, DestructorClosesItsOwnDescriptorsAndNoOthers) {
    const size_t before = openDescriptors();
    make();
    EXPECT_EQ(openDescriptors(), before + 3);
    const Watched registered;
    ASSERT_TRUE(manager->addEventHandler(registered.fd(), Watched::run, nullptr, nullptr, 17));
    manager.reset();
    EXPECT_FALSE(isOpen(epollFd));
    EXPECT_FALSE(isOpen(wakeFd));
    EXPECT_FALSE(isOpen(removeFd));
    EXPECT_TRUE(isOpen(registered.fd()));
    EXPECT_EQ(openDescriptors(), before + 1);
}

// An event loop that has ended carries out no removal any more: the destructor must.
TEST_F(EventManagerTest, DestructorCarriesOutPendingRemovals) {
    const size_t before = openDescriptors();
    make();
    Watched closing;
    Watched withDone;
    watch(closing.release(), closing);
    watch(withDone.fd(), withDone);
    manager->removeEventHandler(closing.fd(), true, nullptr, nullptr);
    manager->removeEventHandler(withDone.fd(), true, Watched::done, &withDone);
    manager.reset();
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_FALSE(isOpen(closing.fd()));
    EXPECT_EQ(withDone.dones, 1);
}

TEST_F(EventManagerTest, DestructorSurvivesDoneFunctionsThatThrow) {
    make();
    Watched throwing[2];
    Watched last;
    for (Watched& watched : throwing) {
        watch(watched.fd(), watched);
        watched.onDone = [] { throw std::runtime_error("refused"); };
        manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    }
    watch(last.release(), last);
    manager->removeEventHandler(last.fd(), true, nullptr, nullptr);
    manager.reset();
    EXPECT_EQ(throwing[0].dones, 1);
    EXPECT_EQ(throwing[1].dones, 1);
    EXPECT_FALSE(isOpen(last.fd()));
    EXPECT_EQ(log.count(logE("EventManager: dtor, a removal ended with an exception")), 2U);
}

TEST_F(EventManagerTest, AddingTwiceLeavesTheFirstHandlerInPlace) {
    make();
    Watched first;
    watch(first.fd(), first);
    EXPECT_FALSE(manager->addEventHandler(
        first.fd(), [](int, void*) { FAIL() << "the second handler was called"; }, nullptr, nullptr,
        EPOLLIN));
    first.makeReadable();
    pass();
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(manager->getNumRegisteredFds(), 1);
}

TEST_F(EventManagerTest, RemovingAnUnknownDescriptorDoesNothing) {
    make();
    Watched watched;
    manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    pass();
    EXPECT_EQ(watched.dones, 0);
    EXPECT_TRUE(isOpen(watched.fd()));
}

TEST_F(EventManagerTest, RemovingTwiceCarriesOutTheFirst) {
    make();
    Watched watched;
    Watched second;
    watch(watched.fd(), watched);
    manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    manager->removeEventHandler(watched.fd(), true, Watched::done, &second);
    pass();
    pass();
    EXPECT_EQ(watched.dones, 1);
    EXPECT_EQ(second.dones, 0);
}

TEST_F(EventManagerTest, RemovedDescriptorIsNotDispatched) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    watched.makeReadable();
    manager->removeEventHandler(watched.fd(), false, nullptr, nullptr);
    pass();
    pass();
    EXPECT_EQ(watched.calls, 0);
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
}

TEST_F(EventManagerTest, DescriptorLeftOpenMayBeAddedAgainAfterThePass) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    manager->removeEventHandler(watched.fd(), false, nullptr, nullptr);
    pass();
    watch(watched.fd(), watched);
    watched.makeReadable();
    pass();
    EXPECT_EQ(watched.calls, 1);
}

TEST_F(EventManagerTest, DescriptorWaitingForItsRemovalIsRefused) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    EXPECT_FALSE(manager->addEventHandler(watched.fd(), Watched::run, &watched, nullptr, 17));
    EXPECT_TRUE(log.has(logE(format("Cannot add event handler. err:%d", EEXIST))));
    pass();
    EXPECT_EQ(watched.dones, 1);
}

TEST_F(EventManagerTest, HangUpRemovesAndClosesInTheNextRemovalPass) {
    make();
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    int calls = 0;
    ASSERT_TRUE(manager->addEventHandler(
        ends[0], [](int, void* data) { ++*static_cast<int*>(data); }, &calls, nullptr, 17));
    close(ends[1]);
    pass();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
    EXPECT_TRUE(isOpen(ends[0]));
    pass();
    EXPECT_FALSE(isOpen(ends[0]));
    Watched next;
    ASSERT_EQ(next.fd(), ends[0]);
    watch(next.fd(), next);
    next.makeReadable();
    pass();
    EXPECT_EQ(next.calls, 1);
}

TEST_F(EventManagerTest, WaitIsBoundedByTheTimer) {
    make();
    int timeout = -2;
    int most = 0;
    gSystemCalls.epollWait = [&](int epoll, epoll_event* /*events*/, int max, int limit) {
        EXPECT_EQ(epoll, epollFd);
        most = max;
        timeout = limit;
        return 0;
    };
    gSystemCalls.clockGettime = [](clockid_t /*clock*/, timespec* now) {
        *now = {50, 0};
        return 0;
    };
    manager->processEvents(nullptr);
    EXPECT_EQ(timeout, -1);
    EXPECT_EQ(most, 4);
    LumTimer timer(nullptr);
    manager->processEvents(&timer);
    EXPECT_EQ(timeout, -1);
    std::function<void()> nothing = [] {};
    timer.addTimedCallback(1234, runTimed, &nothing);
    manager->processEvents(&timer);
    EXPECT_EQ(timeout, 1234);
    timer.addTimedCallback(0, runTimed, &nothing);
    manager->processEvents(&timer);
    EXPECT_EQ(timeout, 0);
}

TEST_F(EventManagerTest, WithoutATimerItBlocksUntilWoken) {
    make();
    int waits = 0;
    std::thread waker;
    gSystemCalls.epollWait = [&](int epoll, epoll_event* events, int max, int timeout) {
        EXPECT_EQ(timeout, -1);
        EXPECT_EQ(SystemCalls::realEpollWait(epoll, events, max, 0), 0)
            << "nothing may be ready yet";
        ++waits;
        waker = std::thread([this] { manager->wake(); });
        return SystemCalls::realEpollWait(epoll, events, max, timeout);
    };
    manager->processEvents(nullptr);
    waker.join();
    EXPECT_EQ(waits, 1);
    gSystemCalls.epollWait = nullptr;
    log.take();
    pass();
    EXPECT_TRUE(log.take().empty()) << "the wake-up must have been drained";
}

TEST_F(EventManagerTest, WithoutATimerItBlocksUntilADescriptorIsReady) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    std::thread writer;
    gSystemCalls.epollWait = [&](int epoll, epoll_event* events, int max, int timeout) {
        EXPECT_EQ(SystemCalls::realEpollWait(epoll, events, max, 0), 0);
        writer = std::thread([&] { watched.makeReadable(); });
        return SystemCalls::realEpollWait(epoll, events, max, timeout);
    };
    manager->processEvents(nullptr);
    writer.join();
    EXPECT_EQ(watched.calls, 1);
}

TEST_F(EventManagerTest, WakingSeveralTimesEndsOneWait) {
    make();
    manager->wake();
    manager->wake();
    manager->processEvents(nullptr);
    log.take();
    pass();
    EXPECT_TRUE(log.take().empty());
}

TEST_F(EventManagerTest, TimedCallbacksRunBeforeDescriptors) {
    make();
    std::vector<char> order;
    Watched watched;
    watched.onRun = [&] { order.push_back('d'); };
    watch(watched.fd(), watched);
    watched.makeReadable();
    LumTimer timer(nullptr);
    std::function<void()> timed = [&] { order.push_back('t'); };
    timer.addTimedCallback(0, runTimed, &timed);
    manager->processEvents(&timer);
    EXPECT_EQ(order, (std::vector{'t', 'd'}));
}

TEST_F(EventManagerTest, TimedCallbacksRunWhenNoDescriptorIsReady) {
    make();
    int runs = 0;
    LumTimer timer(nullptr);
    std::function<void()> timed = [&] { ++runs; };
    timer.addTimedCallback(0, runTimed, &timed);
    manager->processEvents(&timer);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
}

TEST_F(EventManagerTest, TimedCallbackMayRemoveAReadyDescriptor) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    watched.makeReadable();
    LumTimer timer(nullptr);
    std::function<void()> timed = [&] {
        manager->removeEventHandler(watched.fd(), false, nullptr, nullptr);
    };
    timer.addTimedCallback(0, runTimed, &timed);
    manager->processEvents(&timer);
    EXPECT_EQ(watched.calls, 0);
}

TEST_F(EventManagerTest, AtMostFourDescriptorsPerPass) {
    make();
    Watched watched[5];
    for (Watched& one : watched) {
        watch(one.fd(), one);
        one.onRun = [&one] { EventManager::clearRead(one.fd(), nullptr); };
        one.makeReadable();
    }
    const auto calls = [&] {
        int sum = 0;
        for (const Watched& one : watched) sum += one.calls;
        return sum;
    };
    pass();
    EXPECT_EQ(calls(), 4);
    pass();
    EXPECT_EQ(calls(), 5);
    for (const Watched& one : watched) EXPECT_EQ(one.calls, 1);
}

TEST_F(EventManagerTest, DescriptorNotDrainedIsDispatchedAgain) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    watched.makeReadable();
    pass();
    pass();
    EXPECT_EQ(watched.calls, 2);
}

TEST_F(EventManagerTest, CallbackRunsWithTheMutexReleased) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    std::optional<RunUntilBlocked> other;
    watched.onRun = [&] { other.emplace([&] { manager->getNumRegisteredFds(); }); };
    watched.makeReadable();
    pass();
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->blocked());
}

TEST_F(EventManagerTest, CloseCallbackRunsWithTheMutexReleased) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    std::optional<RunUntilBlocked> other;
    watched.onClosed = [&] { other.emplace([&] { manager->getNumRegisteredFds(); }); };
    failWrites(-1, EBADF);
    manager->removeEventHandler(watched.fd(), false, nullptr, nullptr);
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->blocked());
}

TEST_F(EventManagerTest, RemovalsInTheLoopRunWithTheMutexHeld) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    std::optional<RunUntilBlocked> other;
    watched.onDone = [&] {
        other.emplace([&] { manager->getNumRegisteredFds(); });
        EXPECT_EQ(manager->getNumRegisteredFds(), 0)
            << "the event thread itself may use the manager";
    };
    manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    pass();
    ASSERT_TRUE(other);
    EXPECT_TRUE(other->blocked());
}

TEST_F(EventManagerTest, CallbackMayRemoveItsOwnHandler) {
    make();
    Watched watched;
    watch(watched.release(), watched);
    watched.onRun = [&] {
        manager->removeEventHandler(watched.fd(), true, nullptr, nullptr);
        EXPECT_TRUE(isOpen(watched.fd())) << "still in use by the callback";
    };
    watched.makeReadable();
    pass();
    pass();
    EXPECT_EQ(watched.calls, 1);
    EXPECT_FALSE(isOpen(watched.fd()));
}

TEST_F(EventManagerTest, CallbackMayAddHandlers) {
    make();
    Watched added;
    Watched watched;
    watch(watched.fd(), watched);
    added.makeReadable();
    watched.onRun = [&] {
        EventManager::clearRead(watched.fd(), nullptr);
        watch(added.fd(), added);
    };
    watched.makeReadable();
    pass();
    EXPECT_EQ(added.calls, 0);
    pass();
    EXPECT_EQ(added.calls, 1);
}

TEST_F(EventManagerTest, ExceptionOfACallbackPassesThroughAndNothingStaysHeld) {
    make();
    Watched throwing;
    Watched removed;
    watch(throwing.fd(), throwing);
    watch(removed.release(), removed);
    throwing.onRun = [] { throw std::runtime_error("refused"); };
    manager->removeEventHandler(removed.fd(), true, nullptr, nullptr);
    inject({{EPOLLIN, removeFd}, {EPOLLIN, throwing.fd()}});
    EXPECT_THROW(manager->processEvents(nullptr), std::runtime_error);
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
    EXPECT_FALSE(RunUntilBlocked([&] { manager->getNumRegisteredFds(); }).blocked());
    EXPECT_TRUE(isOpen(removed.fd()));
    pass();
    EXPECT_FALSE(isOpen(removed.fd())) << "the next pass goes on with what this one left";
}

TEST_F(EventManagerTest, ExceptionOfADoneFunctionPassesThroughAndNothingIsRepeatedOrLost) {
    make();
    Watched throwing;
    Watched other;
    watch(throwing.fd(), throwing);
    watch(other.release(), other);
    throwing.onDone = [] { throw std::runtime_error("refused"); };
    manager->removeEventHandler(throwing.fd(), true, Watched::done, &throwing);
    manager->removeEventHandler(other.fd(), true, nullptr, nullptr);
    EXPECT_THROW(manager->processEvents(nullptr), std::runtime_error);
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
    EXPECT_FALSE(RunUntilBlocked([&] { manager->getNumRegisteredFds(); }).blocked());
    pass();
    EXPECT_EQ(throwing.dones, 1);
    EXPECT_FALSE(isOpen(other.fd()));
}

TEST_F(EventManagerTest, CallsInProgressAreCounted) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    std::vector<int64_t> counts;
    watched.onRun = [&] {
        counts.push_back(EventManagerPeer::inProgress(*manager));
        if (counts.size() < 3) manager->processEvents(nullptr);
    };
    watched.makeReadable();
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
    manager->processEvents(nullptr);
    EXPECT_EQ(counts, (std::vector<int64_t>{1, 2, 3}));
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
}

TEST_F(EventManagerTest, PassInsideACallbackLeavesTheOuterPassItsEvents) {
    make();
    Watched outer;
    Watched second;
    Watched inner;
    watch(outer.fd(), outer);
    watch(second.fd(), second);
    watch(inner.fd(), inner);
    outer.onRun = [&] {
        inject({{EPOLLIN, inner.fd()}, {EPOLLIN, inner.fd()}});
        manager->processEvents(nullptr);
    };
    inject({{EPOLLIN, outer.fd()}, {EPOLLIN, second.fd()}});
    manager->processEvents(nullptr);
    EXPECT_EQ(outer.calls, 1);
    EXPECT_EQ(inner.calls, 2);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(EventManagerTest, MutexIsRecursiveAndHoldsOffOthers) {
    make();
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

TEST_F(EventManagerTest, ApprovedDescriptorsAreASet) {
    make();
    EXPECT_FALSE(manager->isApprovedFd(500));
    manager->addApprovedFd(500);
    manager->addApprovedFd(500);
    EXPECT_TRUE(manager->isApprovedFd(500));
    EXPECT_EQ(manager->getNumRegisteredFds(), 1);
    manager->remApprovedFd(500);
    manager->remApprovedFd(500);
    EXPECT_FALSE(manager->isApprovedFd(500));
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
}

TEST_F(EventManagerTest, HandlersAreApprovedWhileTheyAreRegistered) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    EXPECT_TRUE(manager->isApprovedFd(watched.fd()));
    manager->removeEventHandler(watched.fd(), false, nullptr, nullptr);
    EXPECT_FALSE(manager->isApprovedFd(watched.fd()));
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
    EventManager::clearRead(ends[0], nullptr);
    EXPECT_EQ(sizes, (std::vector<size_t>(5, 256)));  // 256, 256, 256, 232, nothing left
    close(ends[1]);
    EventManager::clearRead(ends[0], nullptr);
    EXPECT_EQ(sizes.size(), 6U) << "the end of a file ends it";
    EXPECT_TRUE(log.take().empty());
    close(ends[0]);
}

// Between "nothing is left" and draining the removal descriptor, no removal may come in: its signal
// would be drained with the old ones.
class LateRemovalTest : public EventManagerTest {
  protected:
    void removeWhileTheSignalIsDrained(const std::function<void()>& carryOut) {
        Watched early;
        Watched late;
        watch(early.fd(), early);
        watch(late.fd(), late);
        manager->removeEventHandler(early.fd(), true, Watched::done, &early);
        std::optional<RunUntilBlocked> other;
        gSystemCalls.read = [&](int fd, void* buffer, size_t size) {
            if (fd == removeFd && !other) {
                other.emplace(
                    [&] { manager->removeEventHandler(late.fd(), true, Watched::done, &late); });
            }
            return SystemCalls::realRead(fd, buffer, size);
        };
        carryOut();
        ASSERT_TRUE(other);
        other.reset();
        gSystemCalls.read = nullptr;
        pass();
        EXPECT_EQ(early.dones, 1);
        EXPECT_EQ(late.dones, 1);
        manager.reset();
    }
};

TEST_F(LateRemovalTest, IsNotLostInARemovalPassOfItsOwn) {
    make();
    removeWhileTheSignalIsDrained([this] { EventManager::processRemove(removeFd, manager.get()); });
}

TEST_F(LateRemovalTest, IsNotLostInTheLoop) {
    make();
    removeWhileTheSignalIsDrained([this] { pass(); });
}

TEST_F(EventManagerTest, NewerRemovalOfTheSameDescriptorIsNotErasedWithTheOlder) {
    make();
    Watched first;
    Watched second;
    watch(first.fd(), first);
    first.onDone = [&] {
        // Out of epoll by now, so it may be added again.
        ASSERT_TRUE(manager->addEventHandler(first.fd(), Watched::run, &second, nullptr, 17));
        manager->removeEventHandler(first.fd(), true, Watched::done, &second);
    };
    manager->removeEventHandler(first.fd(), true, Watched::done, &first);
    pass();
    pass();
    EXPECT_EQ(first.dones, 1);
    EXPECT_EQ(second.dones, 1);
    EXPECT_EQ(second.calls, 0);
}

TEST_F(EventManagerTest, HandlerAddedByADoneFunctionStays) {
    make();
    Watched watched;
    watch(watched.fd(), watched);
    watched.onDone = [&] { watch(watched.fd(), watched); };
    manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    pass();
    watched.makeReadable();
    pass();
    EXPECT_EQ(watched.dones, 1);
    EXPECT_EQ(watched.calls, 1);
}

TEST_F(EventManagerTest, HangUpDoesNotReplaceAPendingRemoval) {
    make();
    Watched withDone;
    Watched keptOpen;
    watch(withDone.fd(), withDone);
    watch(keptOpen.fd(), keptOpen);
    manager->removeEventHandler(withDone.fd(), true, Watched::done, &withDone);
    manager->removeEventHandler(keptOpen.fd(), false, nullptr, nullptr);
    manager->immediatelyRemoveEventHandler(withDone.fd());
    manager->immediatelyRemoveEventHandler(keptOpen.fd());
    pass();
    EXPECT_EQ(withDone.dones, 1);
    EXPECT_TRUE(isOpen(withDone.fd()));
    EXPECT_TRUE(isOpen(keptOpen.fd()));
}

TEST_F(EventManagerTest, HangUpOfADescriptorWithoutAHandlerClosesIt) {
    make();
    Watched watched;
    const int fd = watched.release();
    manager->addApprovedFd(fd);
    inject({{EPOLLHUP, fd}});
    manager->processEvents(nullptr);
    pass();
    EXPECT_FALSE(isOpen(fd));
}

// What follows: a number closed by its owner and given out anew while its removal is still pending.
class ReusedNumberTest : public EventManagerTest {
  protected:
    // Watches a descriptor, requests its removal, closes it, and makes `fresh` with the same
    // number.
    void reuse(bool closeFlag) {
        make();
        const int fd = old.release();
        watch(fd, old);
        manager->removeEventHandler(fd, closeFlag, closeFlag ? Watched::done : nullptr, &old);
        close(fd);
        fresh.emplace();
        ASSERT_EQ(fresh->fd(), fd);
    }

    void expectWatched() {
        fresh->makeReadable();
        pass();
        EXPECT_EQ(fresh->calls, 1);
        EXPECT_EQ(old.calls, 0);
    }

    Watched old;
    std::optional<Watched> fresh;
};

TEST_F(ReusedNumberTest, StaleRemovalDoesNotUndoTheNewHandler) {
    reuse(false);
    watch(fresh->fd(), *fresh);
    pass();
    expectWatched();
    manager.reset();
    EXPECT_TRUE(isOpen(fresh->fd()));
}

TEST_F(ReusedNumberTest, StaleDoneFunctionIsStillCalledOnce) {
    reuse(true);
    watch(fresh->fd(), *fresh);
    EXPECT_EQ(old.dones, 0);
    log.take();
    pass();
    EXPECT_EQ(
        log.take(),
        (std::vector{
            logD("there are 1 file descriptor(s) with events pending"), logD("processRemove enter"),
            logD(format("fd %d was added again before its removal", fresh->fd())),
            logD(format("Closed %d", fresh->fd())),
            logD(format("Clearing local update FD:%d", fresh->fd())), logD("processRemove exit")}));
    EXPECT_EQ(old.dones, 1);
    expectWatched();
    manager.reset();
    EXPECT_EQ(old.dones, 1);
    EXPECT_TRUE(isOpen(fresh->fd()));
}

TEST_F(ReusedNumberTest, RemovalOfTheNewOneDoesNotReplaceTheStaleDoneFunction) {
    reuse(true);
    watch(fresh->fd(), *fresh);
    manager->removeEventHandler(fresh->fd(), true, Watched::done, &*fresh);
    pass();
    EXPECT_EQ(old.dones, 1);
    EXPECT_EQ(fresh->dones, 1);
}

TEST_F(ReusedNumberTest, HangUpOfTheNewOneClosesIt) {
    reuse(true);
    watch(fresh->release(), *fresh);
    manager->immediatelyRemoveEventHandler(fresh->fd());
    pass();
    EXPECT_EQ(old.dones, 1);
    EXPECT_FALSE(isOpen(fresh->fd()));
}

TEST_F(ReusedNumberTest, DestructorCallsTheStaleDoneFunction) {
    reuse(true);
    watch(fresh->fd(), *fresh);
    manager.reset();
    EXPECT_EQ(old.dones, 1);
    EXPECT_TRUE(isOpen(fresh->fd()));
}

TEST_F(ReusedNumberTest, RefusedHandlerLeavesTheStaleRemoval) {
    reuse(true);
    gSystemCalls.epollCtl = [](int /*epoll*/, int /*op*/, int /*fd*/, epoll_event* /*event*/) {
        errno = ENOSPC;
        return -1;
    };
    EXPECT_FALSE(manager->addEventHandler(fresh->fd(), Watched::run, &*fresh, nullptr, 17));
    gSystemCalls.epollCtl = nullptr;
    pass();
    EXPECT_EQ(old.dones, 1);
}

TEST_F(EventManagerTest, NumberReusedByADoneFunctionOfTheSamePassStays) {
    make();
    Watched low;
    Watched high;
    std::optional<Watched> fresh;
    const int number = high.release();
    ASSERT_LT(low.fd(), number);
    watch(low.fd(), low);
    watch(number, high);
    low.onDone = [&] {
        close(number);
        fresh.emplace();
        ASSERT_EQ(fresh->fd(), number);
        watch(number, *fresh);
    };
    manager->removeEventHandler(low.fd(), true, Watched::done, &low);
    manager->removeEventHandler(number, true, nullptr, nullptr);
    pass();
    EXPECT_EQ(low.dones, 1);
    ASSERT_TRUE(isOpen(number));
    fresh->makeReadable();
    pass();
    EXPECT_EQ(fresh->calls, 1);
}

// Without a LogCapture, whose records need memory.
TEST(EventManagerMemoryTest, AddingThatRunsOutOfMemoryChangesNothing) {
    EventManager manager;
    Watched watched;
    bool added = false;
    long allocations = 0;
    while (!added) {
        try {
            const AllocationLimit limit(allocations);
            added = manager.addEventHandler(watched.fd(), Watched::run, &watched, nullptr, 17);
        } catch (const std::bad_alloc&) {
            ++allocations;
            EXPECT_EQ(manager.getNumRegisteredFds(), 0);
        }
    }
    EXPECT_GT(allocations, 0);
    EXPECT_EQ(manager.getNumRegisteredFds(), 1);
    watched.makeReadable();
    manager.processEvents(nullptr);
    EXPECT_EQ(watched.calls, 1);
}

TEST(EventManagerMemoryTest, RemovingNeedsNoMemory) {
    EventManager manager;
    Watched removed;
    Watched hungUp;
    manager.addEventHandler(removed.release(), Watched::run, &removed, nullptr, 17);
    manager.addEventHandler(hungUp.release(), Watched::run, &hungUp, nullptr, 17);
    {
        const AllocationLimit none(0);
        manager.removeEventHandler(removed.fd(), true, nullptr, nullptr);
        manager.immediatelyRemoveEventHandler(hungUp.fd());
    }
    manager.processEvents(nullptr);
    EXPECT_FALSE(isOpen(removed.fd()));
    EXPECT_FALSE(isOpen(hungUp.fd()));
}

TEST(EventManagerMemoryTest, DestructionNeedsNoMemory) {
    auto manager = std::make_unique<EventManager>();
    Watched removed;
    Watched withDone;
    manager->addEventHandler(removed.release(), Watched::run, &removed, nullptr, 17);
    manager->addEventHandler(withDone.fd(), Watched::run, &withDone, nullptr, 17);
    manager->removeEventHandler(removed.fd(), true, nullptr, nullptr);
    manager->removeEventHandler(withDone.fd(), true, Watched::done, &withDone);
    {
        const AllocationLimit none(0);
        manager.reset();
    }
    EXPECT_FALSE(isOpen(removed.fd()));
    EXPECT_EQ(withDone.dones, 1);
}

TEST(EventManagerMemoryTest, ConstructionThatRunsOutOfMemoryLeavesNothingOpen) {
    const size_t before = openDescriptors();
    std::unique_ptr<EventManager> manager;
    long allocations = 0;
    while (manager == nullptr) {
        try {
            const AllocationLimit limit(allocations);
            manager = std::make_unique<EventManager>();
        } catch (const std::bad_alloc&) {
            ++allocations;
            EXPECT_EQ(openDescriptors(), before);
        }
    }
    EXPECT_GT(allocations, 2);
}

TEST(EventManagerMemoryTest, RemovalPassNeedsNoMemory) {
    EventManager manager;
    Watched watched;
    manager.addEventHandler(watched.release(), Watched::run, &watched, nullptr, 17);
    manager.removeEventHandler(watched.fd(), true, nullptr, nullptr);
    {
        const AllocationLimit none(0);
        manager.processEvents(nullptr);
    }
    EXPECT_FALSE(isOpen(watched.fd()));
}

}  // namespace
