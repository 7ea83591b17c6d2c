// SPDX-License-Identifier: Apache-2.0
// What the event manager logs, whole and in order, and what it asks of the system.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/utils/EventLoopFixture.h"
#include "tests/utils/SystemCalls.h"
#include "utils/EventManager.h"

using lum::utils::EventManager;
using lum::utils::EventManagerPeer;

namespace {

using Lines = std::vector<LogLine>;

class EventManagerLogTest : public EventLoopTest {};

LogLine addLine(int fd, void (*callback)(int, void*), void* data, void (*closing)(int, void*),
                int events) {
    return logD(format(
        "addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, events %d) EX", fd,
        pointer(callback), data, pointer(closing), events));
}

TEST_F(EventManagerLogTest, Construction) {
    make();
    EXPECT_EQ(log.take(),
              (Lines{logD("EventManager: ctor"),
                     addLine(wakeFd, EventManager::clearRead, nullptr, nullptr, 17),
                     logD(format("Added event handler %d", wakeFd)),
                     addLine(removeFd, EventManager::processRemove, nullptr, nullptr, 17),
                     logD(format("Added event handler %d", removeFd)),
                     logD(format("EventManager is ready. epollFd:%d", epollFd))}));
}

TEST_F(EventManagerLogTest, DestructionWithNothingPending) {
    make();
    log.take();
    manager.reset();
    EXPECT_EQ(log.take(), (Lines{logD("EventManager: dtor")}));
}

TEST_F(EventManagerLogTest, AddingTwice) {
    make();
    Watched watched;
    log.take();
    const int fd = watched.fd();
    EXPECT_TRUE(manager->addEventHandler(fd, Watched::run, &watched, Watched::closed, EPOLLIN));
    EXPECT_EQ(log.take(), (Lines{addLine(fd, Watched::run, &watched, Watched::closed, 1),
                                 logD(format("Added event handler %d", fd))}));
    EXPECT_FALSE(manager->addEventHandler(fd, Watched::run, nullptr, nullptr, 17));
    EXPECT_EQ(log.take(), (Lines{addLine(fd, Watched::run, nullptr, nullptr, 17),
                                 logW(format("fd=%d is already in handlers", fd))}));
}

TEST_F(EventManagerLogTest, AddingWhatEpollRefuses) {
    make();
    log.take();
    EXPECT_FALSE(manager->addEventHandler(-1, Watched::run, nullptr, nullptr, 17));
    EXPECT_EQ(log.take(), (Lines{addLine(-1, Watched::run, nullptr, nullptr, 17),
                                 logE("Cannot add event handler. err:9")}));
}

TEST_F(EventManagerLogTest, RemovingWhatIsUnknown) {
    make();
    log.take();
    manager->removeEventHandler(1234, true, Watched::done, nullptr);
    EXPECT_EQ(log.take(), (Lines{logD("removeEventHandler(int fd: 1234) EX")}));
}

TEST_F(EventManagerLogTest, RemovalThatCloses) {
    make();
    Watched watched;
    const int fd = watched.release();
    manager->addEventHandler(fd, Watched::run, &watched, Watched::closed, 17);
    log.take();
    manager->removeEventHandler(fd, true, nullptr, nullptr);
    EXPECT_EQ(log.take(), (Lines{logD(format("removeEventHandler(int fd: %d) EX", fd))}));
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              (Lines{logD("there are 1 file descriptor(s) with events pending"),
                     logD("processRemove enter"), logD(format("removing %d from epollFd", fd)),
                     logD(format("Closed %d", fd)), logD(format("Clearing local update FD:%d", fd)),
                     logD("processRemove exit")}));
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(watched.closes, 0);
}

TEST_F(EventManagerLogTest, RemovalThatDoesNotClose) {
    make();
    Watched watched;
    const int fd = watched.fd();
    manager->addEventHandler(fd, Watched::run, &watched, Watched::closed, 17);
    manager->removeEventHandler(fd, false, Watched::done, &watched);
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              (Lines{logD("there are 1 file descriptor(s) with events pending"),
                     logD("processRemove enter"), logD(format("removing %d from epollFd", fd)),
                     logD(format("Clearing local update FD:%d", fd)), logD("processRemove exit")}));
    EXPECT_TRUE(isOpen(fd));
    EXPECT_EQ(watched.dones, 0);
    EXPECT_EQ(watched.closes, 0);
}

TEST_F(EventManagerLogTest, RemovalWithADoneFunction) {
    make();
    Watched watched;
    const int fd = watched.fd();
    manager->addEventHandler(fd, Watched::run, &watched, Watched::closed, 17);
    manager->removeEventHandler(fd, true, Watched::done, &watched);
    EXPECT_EQ(watched.dones, 0);
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              (Lines{logD("there are 1 file descriptor(s) with events pending"),
                     logD("processRemove enter"), logD(format("removing %d from epollFd", fd)),
                     logD(format("Closed %d", fd)), logD(format("Clearing local update FD:%d", fd)),
                     logD("processRemove exit")}));
    EXPECT_TRUE(isOpen(fd));
    EXPECT_EQ(watched.dones, 1);
}

TEST_F(EventManagerLogTest, RemovalsAreCarriedOutInOrderOfTheirDescriptors) {
    make();
    Watched watched[2];
    const int low = watched[0].release();
    const int high = watched[1].release();
    ASSERT_LT(low, high);
    watch(high, watched[1]);
    watch(low, watched[0]);
    manager->removeEventHandler(high, true, nullptr, nullptr);
    manager->removeEventHandler(low, true, nullptr, nullptr);
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 1 file descriptor(s) with events pending"),
               logD("processRemove enter"), logD(format("removing %d from epollFd", low)),
               logD(format("Closed %d", low)), logD(format("removing %d from epollFd", high)),
               logD(format("Closed %d", high)), logD(format("Clearing local update FD:%d", low)),
               logD(format("Clearing local update FD:%d", high)), logD("processRemove exit")}));
}

TEST_F(EventManagerLogTest, RemovalRequestedByARemovalIsCarriedOutInTheSamePass) {
    make();
    Watched watched[2];
    const int first = watched[0].fd();
    const int second = watched[1].fd();
    watch(first, watched[0]);
    watch(second, watched[1]);
    watched[0].onDone = [&] { manager->removeEventHandler(second, false, nullptr, nullptr); };
    manager->removeEventHandler(first, true, Watched::done, &watched[0]);
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 1 file descriptor(s) with events pending"),
               logD("processRemove enter"), logD(format("removing %d from epollFd", first)),
               logD(format("removeEventHandler(int fd: %d) EX", second)),
               logD(format("Closed %d", first)), logD(format("Clearing local update FD:%d", first)),
               logD(format("updateEpollFd not finished, repeating: %p",
                           static_cast<void*>(manager.get()))),
               logD(format("removing %d from epollFd", second)),
               logD(format("Clearing local update FD:%d", second)), logD("processRemove exit")}));
}

TEST_F(EventManagerLogTest, RemovalThatEpollRefusesGoesOn) {
    make();
    Watched watched;
    const int fd = watched.fd();
    watch(fd, watched);
    manager->removeEventHandler(fd, true, Watched::done, &watched);
    gSystemCalls.epollCtl = [](int /*epoll*/, int op, int /*fd*/, epoll_event* /*event*/) {
        EXPECT_EQ(op, EPOLL_CTL_DEL);
        errno = ENOENT;
        return -1;
    };
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              (Lines{logD("there are 1 file descriptor(s) with events pending"),
                     logD("processRemove enter"), logD(format("removing %d from epollFd", fd)),
                     logE("Cannot remove event handler errno 2"), logD(format("Closed %d", fd)),
                     logD(format("Clearing local update FD:%d", fd)), logD("processRemove exit")}));
    EXPECT_EQ(watched.dones, 1);
}

TEST_F(EventManagerLogTest, RemovalWhoseSignalFailsCallsTheCloseCallbackAtOnce) {
    make();
    Watched watched;
    const int fd = watched.fd();
    watch(fd, watched);
    failWrites(-1, EBADF);
    log.take();
    manager->removeEventHandler(fd, true, Watched::done, &watched);
    EXPECT_EQ(
        log.take(),
        (Lines{logD(format("removeEventHandler(int fd: %d) EX", fd)),
               logE(format("Error in rem write. rv: -1, error: Bad file descriptor, for fd[%d]",
                           fd))}));
    EXPECT_EQ(watched.closes, 1);
    EXPECT_EQ(watched.closedFd, fd);
    EXPECT_EQ(watched.dones, 0);
    manager.reset();
    EXPECT_EQ(watched.dones, 1) << "the removal must have stayed queued";
}

TEST_F(EventManagerLogTest, RemovalWithAShortSignalCountsAsFailed) {
    make();
    Watched watched;
    const int fd = watched.fd();
    watch(fd, watched);
    failWrites(4, EIO);
    log.take();
    manager->removeEventHandler(fd, true, Watched::done, &watched);
    EXPECT_EQ(log.take(),
              (Lines{logD(format("removeEventHandler(int fd: %d) EX", fd)),
                     logE(format("Error in rem write. rv: 4, error: Input/output error, for fd[%d]",
                                 fd))}));
    EXPECT_EQ(watched.closes, 1);
    manager.reset();
    EXPECT_EQ(watched.closes, 1);
}

TEST_F(EventManagerLogTest, ImmediateRemoval) {
    make();
    Watched watched;
    const int fd = watched.release();
    watch(fd, watched);
    log.take();
    manager->immediatelyRemoveEventHandler(fd);
    EXPECT_EQ(log.take(),
              (Lines{logD(format("immediatelyRemoveEventHandler(int fd: %d) EX", fd))}));
    EXPECT_TRUE(isOpen(fd));
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              (Lines{logD("there are 1 file descriptor(s) with events pending"),
                     logD("processRemove enter"), logD(format("removing %d from epollFd", fd)),
                     logD(format("Closed %d", fd)), logD(format("Clearing local update FD:%d", fd)),
                     logD("processRemove exit")}));
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(watched.closes, 0);
}

TEST_F(EventManagerLogTest, ImmediateRemovalWhoseSignalFails) {
    make();
    Watched watched;
    const int fd = watched.release();
    watch(fd, watched);
    failWrites(-1, EBADF);
    log.take();
    manager->immediatelyRemoveEventHandler(fd);
    EXPECT_EQ(
        log.take(),
        (Lines{logD(format("immediatelyRemoveEventHandler(int fd: %d) EX", fd)),
               logE(format("Error in rem write. rv: -1, error: Bad file descriptor, for fd[%d]",
                           fd))}));
    EXPECT_EQ(watched.closes, 0);
    EXPECT_TRUE(isOpen(fd));
    manager.reset();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(EventManagerLogTest, RemovalPassThatCannotDrain) {
    make();
    gSystemCalls.read = [](int /*fd*/, void* /*buffer*/, size_t /*size*/) -> ssize_t {
        errno = EIO;
        return -1;
    };
    log.take();
    EventManager::processRemove(removeFd, manager.get());
    EXPECT_EQ(log.take(),
              (Lines{logD("processRemove enter"),
                     logW(format("Error while clearing the read buffer on fd %d", removeFd)),
                     logD("processRemove exit")}));
}

TEST_F(EventManagerLogTest, RemovalPassWithoutAManager) {
    make();
    log.take();
    EventManager::processRemove(removeFd, nullptr);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EventManagerLogTest, Dispatch) {
    make();
    Watched watched[2];
    const int first = watched[0].fd();
    const int second = watched[1].fd();
    watch(first, watched[0]);
    watch(second, watched[1]);
    inject({{EPOLLIN, first}, {EPOLLIN | EPOLLPRI, second}});
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 2 file descriptor(s) with events pending"),
               logD(format("processing event number: 0, handling 1 for %d", first)),
               logD(format("file descriptor '%d' is processing events [callback:%p, data:%p]",
                           first, pointer(Watched::run), static_cast<void*>(&watched[0]))),
               logD("there are 1 file descriptor(s) with events pending"),
               logD(format("processing event number: 1, handling 3 for %d", second)),
               logD(format("file descriptor '%d' is processing events [callback:%p, data:%p]",
                           second, pointer(Watched::run), static_cast<void*>(&watched[1])))}));
    EXPECT_EQ(watched[0].calls, 1);
    EXPECT_EQ(watched[1].calls, 1);
}

TEST_F(EventManagerLogTest, EventOfADescriptorNotApproved) {
    make();
    inject({{EPOLLIN, 77}});
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 1 file descriptor(s) with events pending"),
               logE("file descriptor 77 is not on the approved list, cannot process event")}));
}

TEST_F(EventManagerLogTest, DescriptorRemovedInTheSamePassIsSkipped) {
    make();
    Watched watched[2];
    const int first = watched[0].fd();
    const int second = watched[1].fd();
    watch(first, watched[0]);
    watch(second, watched[1]);
    watched[0].onRun = [&] { manager->removeEventHandler(second, false, nullptr, nullptr); };
    inject({{EPOLLIN, first}, {EPOLLIN, second}});
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 2 file descriptor(s) with events pending"),
               logD(format("processing event number: 0, handling 1 for %d", first)),
               logD(format("file descriptor '%d' is processing events [callback:%p, data:%p]",
                           first, pointer(Watched::run), static_cast<void*>(&watched[0]))),
               logD(format("removeEventHandler(int fd: %d) EX", second)),
               logD("there are 1 file descriptor(s) with events pending"),
               logE(format("file descriptor %d is not on the approved list, cannot process event",
                           second))}));
    EXPECT_EQ(watched[1].calls, 0);
}

TEST_F(EventManagerLogTest, HangUpErrorAndReadHangUpRemove) {
    for (const uint32_t bits : {uint32_t{EPOLLERR}, uint32_t{EPOLLHUP}, uint32_t{EPOLLRDHUP},
                                uint32_t{EPOLLIN | EPOLLHUP}, uint32_t{EPOLLIN | EPOLLRDHUP}}) {
        make();
        Watched watched;
        const int fd = watched.release();
        watch(fd, watched);
        inject({{bits, fd}});
        log.take();
        manager->processEvents(nullptr);
        EXPECT_EQ(log.take(),
                  (Lines{logD("there are 1 file descriptor(s) with events pending"),
                         logD(format("processing event number: 0, handling %u for %d", bits, fd)),
                         logE(format("file descriptor '%d' sent HUP/ERR.", fd)),
                         logD(format("immediatelyRemoveEventHandler(int fd: %d) EX", fd))}));
        EXPECT_EQ(watched.calls, 0);
        EXPECT_TRUE(isOpen(fd));
        manager->processEvents(nullptr);
        EXPECT_FALSE(isOpen(fd));
    }
}

TEST_F(EventManagerLogTest, ReadableWithoutACallback) {
    make();
    Watched watched;
    const int fd = watched.fd();
    ASSERT_TRUE(manager->addEventHandler(fd, nullptr, &watched, nullptr, 17));
    inject({{EPOLLIN, fd}});
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              (Lines{logD("there are 1 file descriptor(s) with events pending"),
                     logD(format("processing event number: 0, handling 1 for %d", fd)),
                     logW(format("no callback registered fd:%d. SHOULD NOT HAPPEN.", fd))}));
}

TEST_F(EventManagerLogTest, ReadableWithoutAHandler) {
    make();
    manager->addApprovedFd(77);
    inject({{EPOLLIN, 77}});
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{
            logD("there are 1 file descriptor(s) with events pending"),
            logD("processing event number: 0, handling 1 for 77"),
            logW(
                "file descriptor '77' does not have an event handler registered. SHOULD NOT HAPPEN")}));
}

TEST_F(EventManagerLogTest, EventsOfOtherKinds) {
    make();
    Watched watched;
    const int fd = watched.fd();
    watch(fd, watched);
    const struct {
        uint32_t bits;
        const char* text;
    } cases[] = {
        {EPOLLOUT, "Unhandled epoll event: EPOLLOUT  [flags 04]. SHOULD NOT HAPPEN"},
        {EPOLLPRI, "Unhandled epoll event: EPOLLPRI  [flags 02]. SHOULD NOT HAPPEN"},
        {EPOLLET, "Unhandled epoll event: EPOLLET  [flags 020000000000]. SHOULD NOT HAPPEN"},
        {EPOLLOUT | EPOLLPRI | EPOLLET,
         "Unhandled epoll event: EPOLLOUT EPOLLPRI EPOLLET  [flags 020000000006]. SHOULD NOT HAPPEN"},
        {EPOLLRDNORM, "Unhandled epoll event:  [flags 0100]. SHOULD NOT HAPPEN"},
    };
    for (const auto& unhandled : cases) {
        inject({{unhandled.bits, fd}});
        log.take();
        manager->processEvents(nullptr);
        EXPECT_EQ(log.take(), (Lines{logD("there are 1 file descriptor(s) with events pending"),
                                     logD(format("processing event number: 0, handling %d for %d",
                                                 static_cast<int>(unhandled.bits), fd)),
                                     logE(unhandled.text)}));
    }
    EXPECT_EQ(watched.calls, 0);
}

TEST_F(EventManagerLogTest, RemovalDescriptorIsServedLast) {
    make();
    Watched watched;
    Watched removed;
    const int fd = watched.fd();
    const int gone = removed.release();
    watch(fd, watched);
    watch(gone, removed);
    manager->removeEventHandler(gone, true, nullptr, nullptr);
    inject({{EPOLLIN, removeFd}, {EPOLLIN, fd}});
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 2 file descriptor(s) with events pending"),
               logD("there are 1 file descriptor(s) with events pending"),
               logD(format("processing event number: 1, handling 1 for %d", fd)),
               logD(format("file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
                           pointer(Watched::run), static_cast<void*>(&watched))),
               logD("processRemove enter"), logD(format("removing %d from epollFd", gone)),
               logD(format("Closed %d", gone)), logD(format("Clearing local update FD:%d", gone)),
               logD("processRemove exit")}));
}

TEST_F(EventManagerLogTest, FailedWait) {
    make();
    gSystemCalls.epollWait = [](int /*epoll*/, epoll_event* /*events*/, int /*max*/,
                                int /*timeout*/) {
        errno = EINTR;
        return -1;
    };
    LumTimer timer(nullptr);
    int runs = 0;
    timer.addTimedCallback(
        0,
        [](void* data) {
            ++*static_cast<int*>(data);
            return -1;
        },
        &runs);
    log.take();
    manager->processEvents(&timer);
    EXPECT_EQ(log.take(), (Lines{logE("epoll_wait error")}));
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
}

TEST_F(EventManagerLogTest, Wake) {
    make();
    log.take();
    manager->wake();
    EXPECT_EQ(log.take(), (Lines{logD("wake() EX")}));
    manager->processEvents(nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{logD("there are 1 file descriptor(s) with events pending"),
               logD(format("processing event number: 0, handling 1 for %d", wakeFd)),
               logD(format("file descriptor '%d' is processing events [callback:%p, data:(nil)]",
                           wakeFd, pointer(EventManager::clearRead)))}));
}

TEST_F(EventManagerLogTest, WakeThatFails) {
    make();
    failWrites(-1, EBADF);
    log.take();
    manager->wake();
    EXPECT_EQ(log.take(), (Lines{logD("wake() EX"),
                                 logW(format("Error in writing rv: %zu, error: Bad file descriptor",
                                             static_cast<size_t>(-1)))}));
    failWrites(3, EIO);
    manager->wake();
    EXPECT_EQ(log.take(), (Lines{logD("wake() EX"),
                                 logW("Error in writing rv: 3, error: Input/output error")}));
}

TEST_F(EventManagerLogTest, ClearReadOfABadDescriptor) {
    EventManager::clearRead(-1, nullptr);
    EXPECT_EQ(log.take(), (Lines{logW("Error while clearing the read buffer on fd -1")}));
}

TEST_F(EventManagerLogTest, RegisteredDescriptorsAreCountedAndListed) {
    make();
    log.take();
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
    EXPECT_EQ(log.take(), (Lines{logD(format("Approved FD: %d", wakeFd)),
                                 logD(format("Approved FD: %d", removeFd))}));
    manager->addApprovedFd(1000);
    manager->addApprovedFd(2);
    EXPECT_EQ(manager->getNumRegisteredFds(), 2);
    EXPECT_EQ(log.take(),
              (Lines{logD("Approved FD: 2"), logD(format("Approved FD: %d", wakeFd)),
                     logD(format("Approved FD: %d", removeFd)), logD("Approved FD: 1000")}));
}

TEST_F(EventManagerLogTest, CountBelowZeroIsLogged) {
    make();
    manager->remApprovedFd(wakeFd);
    log.take();
    EXPECT_EQ(manager->getNumRegisteredFds(), -1);
    EXPECT_EQ(log.take(), (Lines{logE("Invalid approvedFd size -1. Should not happen"),
                                 logD(format("Approved FD: %d", removeFd))}));
}

TEST_F(EventManagerLogTest, DestructionCarriesOutWhatIsPending) {
    make();
    Watched closing;
    Watched withDone;
    Watched keeping;
    const int first = closing.release();
    const int second = withDone.fd();
    const int third = keeping.fd();
    watch(first, closing);
    watch(second, withDone);
    watch(third, keeping);
    manager->removeEventHandler(first, true, nullptr, nullptr);
    manager->removeEventHandler(second, true, Watched::done, &withDone);
    manager->removeEventHandler(third, false, nullptr, nullptr);
    log.take();
    manager.reset();
    EXPECT_EQ(
        log.take(),
        (Lines{logD("EventManager: dtor"), logD(format("removing %d from epollFd", first)),
               logD(format("Closed %d", first)), logD(format("removing %d from epollFd", second)),
               logD(format("Closed %d", second)), logD(format("removing %d from epollFd", third)),
               logD(format("Clearing local update FD:%d", first)),
               logD(format("Clearing local update FD:%d", second)),
               logD(format("Clearing local update FD:%d", third))}));
    EXPECT_FALSE(isOpen(first));
    EXPECT_EQ(withDone.dones, 1);
    EXPECT_TRUE(isOpen(second));
    EXPECT_TRUE(isOpen(third));
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

// Replaces the eventfd call with this number, counted from 1, by one that fails.
void failEventFd(int number) {
    gSystemCalls.eventFd = [number, calls = 0](unsigned int count, int flags) mutable {
        if (++calls != number) return SystemCalls::realEventFd(count, flags);
        errno = EMFILE;
        return -1;
    };
}

TEST(EventManagerDeathTest, NoEpollInstance) {
    const RestoreSystemCalls restore;
    gSystemCalls.epollCreate = [](int /*size*/) {
        errno = EMFILE;
        return -1;
    };
    EXPECT_EXIT(constructInChild(), testing::ExitedWithCode(255),
                "^3:EventManager: ctor;6:Cannot create epoll instance;$");
}

TEST(EventManagerDeathTest, NoWakeDescriptor) {
    const RestoreSystemCalls restore;
    failEventFd(1);
    EXPECT_EXIT(constructInChild(), testing::ExitedWithCode(255),
                "^3:EventManager: ctor;6:Cannot create eventfd instance;$");
}

TEST(EventManagerDeathTest, NoRemovalDescriptor) {
    const RestoreSystemCalls restore;
    failEventFd(2);
    EXPECT_EXIT(
        constructInChild(), testing::ExitedWithCode(255),
        "^3:EventManager: ctor;3:addEventHandler.*;3:Added event handler [0-9]+;6:Cannot create removeFd instance;$");
}

}  // namespace
