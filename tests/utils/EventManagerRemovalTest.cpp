// SPDX-License-Identifier: Apache-2.0
// How descriptors leave the event manager, and what it logs of that, whole and in order.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/utils/EventLoopFixture.h"
#include "tests/utils/SystemCalls.h"
#include "utils/EventManager.h"

namespace {

class EventManagerRemovalTest : public EventLoopTest {};

TEST_F(EventManagerRemovalTest, UnknownDescriptor) {
    Watched watched;
    EXPECT_EQ(logOf([&] { removeWithDone(watched); }), Lines{askedToRemove(watched.fd())});
    EXPECT_EQ(logOfPass(), Lines{});
    EXPECT_EQ(watched.dones, 0);
    EXPECT_TRUE(isOpen(watched.fd()));
}

TEST_F(EventManagerRemovalTest, Closing) {
    Watched watched(*manager);
    const int fd = watched.fd();
    EXPECT_TRUE(manager->isApprovedFd(fd));
    EXPECT_EQ(logOf([&] { removeAndClose(watched); }), Lines{askedToRemove(fd)});
    EXPECT_FALSE(manager->isApprovedFd(fd));
    EXPECT_TRUE(isOpen(fd));
    EXPECT_EQ(logOfPass(), removalPass({removing(fd), closed(fd), clearing(fd)}));
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(watched.closes, 0);
}

TEST_F(EventManagerRemovalTest, LeavingTheDescriptorOpen) {
    Watched watched(*manager);
    const int fd = watched.fd();
    removeOnly(watched);
    EXPECT_EQ(logOfPass(), removalPass({removing(fd), clearing(fd)}));
    EXPECT_TRUE(isOpen(fd));
    EXPECT_EQ(watched.dones, 0);
    EXPECT_EQ(watched.closes, 0);
    EXPECT_TRUE(watched.addTo(*manager));
    watched.makeReadable();
    pass();
    EXPECT_EQ(watched.calls, 1);
}

TEST_F(EventManagerRemovalTest, WithADoneFunctionThatAddsTheDescriptorAgain) {
    Watched watched(*manager);
    const int fd = watched.fd();
    watched.onDone = [&] { EXPECT_TRUE(watched.addTo(*manager)); };
    removeWithDone(watched);
    EXPECT_EQ(watched.dones, 0);
    EXPECT_EQ(logOfPass(),
              removalPass({removing(fd), adding(fd, Watched::run, &watched, Watched::closed, 17),
                           added(fd), closed(fd), clearing(fd)}));
    EXPECT_EQ(watched.dones, 1);
    EXPECT_TRUE(isOpen(fd));
    watched.makeReadable();
    pass();
    EXPECT_EQ(watched.calls, 1);
}

TEST_F(EventManagerRemovalTest, RequestedByARemovalIsCarriedOutInTheSamePass) {
    Watched first(*manager);
    Watched second(*manager);
    first.onDone = [&] { removeOnly(second); };
    removeWithDone(first);
    EXPECT_EQ(logOfPass(), removalPass({removing(first.fd()), askedToRemove(second.fd()),
                                        closed(first.fd()), clearing(first.fd()),
                                        logD(format("updateEpollFd not finished, repeating: %p",
                                                    static_cast<void*>(manager.get()))),
                                        removing(second.fd()), clearing(second.fd())}));
}

TEST_F(EventManagerRemovalTest, ThatEpollRefusesGoesOn) {
    Watched watched(*manager);
    const int fd = watched.fd();
    removeWithDone(watched);
    failEpollCtl(ENOENT);
    EXPECT_EQ(logOfPass(), removalPass({removing(fd), logE("Cannot remove event handler errno 2"),
                                        closed(fd), clearing(fd)}));
    EXPECT_EQ(watched.dones, 1);
}

// The event thread does not hear of these, so the destructor carries them out.
TEST_F(EventManagerRemovalTest, WhoseSignalFailsStaysQueued) {
    Watched watched(*manager);
    Watched hungUp(*manager);
    failWrites(-1, EBADF);
    EXPECT_EQ(
        logOf([&] { removeWithDone(watched); }),
        (Lines{askedToRemove(watched.fd()),
               logE(format("Error in rem write. rv: -1, error: Bad file descriptor, for fd[%d]",
                           watched.fd()))}));
    EXPECT_EQ(watched.closes, 1);
    EXPECT_EQ(watched.dones, 0);
    failWrites(4, EIO);
    const int fd = hungUp.release();
    EXPECT_EQ(logOf([&] { manager->immediatelyRemoveEventHandler(fd); }),
              (Lines{askedToRemoveAtOnce(fd),
                     logE(format("Error in rem write. rv: 4, error: Input/output error, for fd[%d]",
                                 fd))}));
    EXPECT_EQ(hungUp.closes, 0);
    EXPECT_TRUE(isOpen(fd));
    manager.reset();
    EXPECT_EQ(watched.dones, 1);
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(EventManagerRemovalTest, PassThatCannotDrain) {
    gSystemCalls.read = [](int, void*, size_t) -> ssize_t {
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(logOf([this] { EventManager::processRemove(removeFd, manager.get()); }),
              (Lines{logD("processRemove enter"),
                     logW(format("Error while clearing the read buffer on fd %d", removeFd)),
                     logD("processRemove exit")}));
    EXPECT_EQ(logOf([this] { EventManager::processRemove(removeFd, nullptr); }), Lines{});
}

TEST_F(EventManagerRemovalTest, DescriptorRemovedInTheSamePassIsSkipped) {
    Watched first(*manager);
    Watched second(*manager);
    first.onRun = [&] { removeOnly(second); };
    EXPECT_EQ(
        logOfPass({{EPOLLIN, first.fd()}, {EPOLLIN, second.fd()}}),
        (Lines{pending(2), handling(0, 1, first.fd()), calling(first.fd(), Watched::run, &first),
               askedToRemove(second.fd()), pending(1), notApproved(second.fd())}));
    EXPECT_EQ(second.calls, 0);
}

TEST_F(EventManagerRemovalTest, ComesAfterAllOtherEventsOfThePass) {
    Watched watched(*manager);
    Watched removed(*manager);
    const int fd = watched.fd();
    removeAndClose(removed);
    EXPECT_EQ(
        logOfPass({{EPOLLIN, removeFd}, {EPOLLIN, fd}}),
        (Lines{pending(2), pending(1), handling(1, 1, fd), calling(fd, Watched::run, &watched),
               logD("processRemove enter"), removing(removed.fd()), closed(removed.fd()),
               clearing(removed.fd()), logD("processRemove exit")}));
}

TEST_F(EventManagerRemovalTest, HangUpErrorAndReadHangUpRemoveAndClose) {
    for (const uint32_t bits : {uint32_t{EPOLLERR}, uint32_t{EPOLLHUP}, uint32_t{EPOLLRDHUP},
                                uint32_t{EPOLLIN | EPOLLHUP}, uint32_t{EPOLLIN | EPOLLRDHUP}}) {
        Watched watched(*manager);  // the same number each time
        const int fd = watched.release();
        EXPECT_EQ(logOfPass({{bits, fd}}),
                  (Lines{pending(1), handling(0, bits, fd),
                         logE(format("file descriptor '%d' sent HUP/ERR.", fd)),
                         askedToRemoveAtOnce(fd)}));
        EXPECT_EQ(manager->getNumRegisteredFds(), 0);
        EXPECT_TRUE(isOpen(fd));
        EXPECT_EQ(logOfPass(), removalPass({removing(fd), closed(fd), clearing(fd)}));
        EXPECT_FALSE(isOpen(fd));
        EXPECT_EQ(watched.calls, 0);
        EXPECT_EQ(watched.closes, 0);
    }
}

TEST_F(EventManagerRemovalTest, HangUpOfADescriptorWithoutAHandlerClosesIt) {
    const int fd = Watched().release();
    manager->addApprovedFd(fd);
    pass({{EPOLLHUP, fd}});
    pass();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(EventManagerRemovalTest, NothingReplacesAPendingOne) {
    Watched watched(*manager);
    Watched keptOpen(*manager);
    Watched second;
    removeWithDone(watched);
    removeOnly(keptOpen);
    manager->removeEventHandler(watched.fd(), true, Watched::done, &second);
    log.take();
    EXPECT_FALSE(watched.addTo(*manager));
    EXPECT_TRUE(log.has(logE(format("Cannot add event handler. err:%d", EEXIST))));
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
    manager->immediatelyRemoveEventHandler(watched.fd());
    manager->immediatelyRemoveEventHandler(keptOpen.fd());
    pass();
    pass();
    EXPECT_EQ(watched.dones, 1);
    EXPECT_EQ(second.dones, 0);
    EXPECT_TRUE(isOpen(watched.fd()));
    EXPECT_TRUE(isOpen(keptOpen.fd()));
}

TEST_F(EventManagerRemovalTest, NewerOneOfTheSameDescriptorIsNotErasedWithTheOlder) {
    Watched first(*manager);
    Watched second;
    first.onDone = [&] {
        // Out of epoll by now, so it may be added again.
        ASSERT_TRUE(manager->addEventHandler(first.fd(), Watched::run, &second, nullptr, 17));
        manager->removeEventHandler(first.fd(), true, Watched::done, &second);
    };
    removeWithDone(first);
    pass();
    pass();
    EXPECT_EQ(first.dones, 1);
    EXPECT_EQ(second.dones, 1);
    EXPECT_EQ(second.calls, 0);
}

TEST_F(EventManagerRemovalTest, ExceptionOfADoneFunctionPassesThroughAndNothingIsRepeatedOrLost) {
    Watched throwing(*manager);
    Watched other(*manager);
    throwing.onDone = [] { throw std::runtime_error("refused"); };
    removeWithDone(throwing);
    removeAndClose(other);
    EXPECT_THROW(pass(), std::runtime_error);
    EXPECT_EQ(EventManagerPeer::inProgress(*manager), 0);
    EXPECT_FALSE(RunUntilBlocked([&] { manager->getNumRegisteredFds(); }).blocked());
    pass();
    EXPECT_EQ(throwing.dones, 1);
    EXPECT_FALSE(isOpen(other.fd()));
}

// An event loop that has ended carries out no removal any more. In the order of the descriptors.
TEST_F(EventManagerRemovalTest, DestructorCarriesOutWhatIsPending) {
    Watched closing(*manager);
    Watched withDone(*manager);
    Watched keptOpen(*manager);
    const int first = closing.fd();
    const int second = withDone.fd();
    const int third = keptOpen.fd();
    ASSERT_TRUE(first < second && second < third);
    removeOnly(keptOpen);
    removeWithDone(withDone);
    removeAndClose(closing);
    EXPECT_EQ(logOf([this] { manager.reset(); }),
              (Lines{logD("EventManager: dtor"), removing(first), closed(first), removing(second),
                     closed(second), removing(third), clearing(first), clearing(second),
                     clearing(third)}));
    EXPECT_FALSE(isOpen(first));
    EXPECT_EQ(withDone.dones, 1);
    EXPECT_TRUE(isOpen(second));
    EXPECT_TRUE(isOpen(third));
}

TEST_F(EventManagerRemovalTest, DestructorSurvivesDoneFunctionsThatThrow) {
    Watched throwing[] = {Watched(*manager), Watched(*manager)};
    Watched last(*manager);
    for (Watched& watched : throwing) {
        watched.onDone = [] { throw std::runtime_error("refused"); };
        removeWithDone(watched);
    }
    removeAndClose(last);
    manager.reset();
    for (const Watched& watched : throwing) EXPECT_EQ(watched.dones, 1);
    EXPECT_FALSE(isOpen(last.fd()));
    EXPECT_EQ(log.count(logE("EventManager: dtor, a removal ended with an exception")), 2U);
}

// Between "nothing is left" and draining the removal descriptor, no removal may come in: its signal
// would be drained with the old ones.
TEST_F(EventManagerRemovalTest, RequestedWhileTheSignalIsDrainedIsNotLost) {
    const std::function<void()> ways[] = {
        [this] { EventManager::processRemove(removeFd, manager.get()); }, [this] { pass(); }};
    for (const std::function<void()>& carryOut : ways) {
        Watched early(*manager);
        Watched late(*manager);
        removeWithDone(early);
        std::optional<RunUntilBlocked> other;
        gSystemCalls.read = [&](int fd, void* buffer, size_t size) {
            if (fd == removeFd && !other) other.emplace([&] { removeWithDone(late); });
            return SystemCalls::realRead(fd, buffer, size);
        };
        carryOut();
        ASSERT_TRUE(other);
        other.reset();
        gSystemCalls.read = nullptr;
        pass();
        EXPECT_EQ(early.dones, 1);
        EXPECT_EQ(late.dones, 1);
    }
}

// What follows: a number closed by its owner and given out anew while its removal is still pending.
class ReusedNumberTest : public EventLoopTest {
  protected:
    // Watches a descriptor, requests its removal, closes it, and makes `fresh` with its number.
    void reuse(bool closeFlag) {
        closeFlag ? removeWithDone(old) : removeOnly(old);
        close(old.release());
        fresh.emplace();
        ASSERT_EQ(fresh->fd(), old.fd());
    }

    void expectWatched() {
        fresh->makeReadable();
        pass();
        EXPECT_EQ(fresh->calls, 1);
        EXPECT_EQ(old.calls, 0);
        manager.reset();
        EXPECT_TRUE(isOpen(fresh->fd()));
    }

    Watched old{*manager};
    std::optional<Watched> fresh;
};

TEST_F(ReusedNumberTest, StaleRemovalDoesNotUndoTheNewHandler) {
    reuse(false);
    EXPECT_TRUE(fresh->addTo(*manager));
    pass();
    expectWatched();
    EXPECT_EQ(old.dones, 0);
}

TEST_F(ReusedNumberTest, StaleDoneFunctionIsStillCalledOnce) {
    reuse(true);
    const int fd = fresh->fd();
    EXPECT_TRUE(fresh->addTo(*manager));
    EXPECT_EQ(old.dones, 0);
    EXPECT_EQ(logOfPass(),
              removalPass({logD(format("fd %d was added again before its removal", fd))}));
    EXPECT_EQ(old.dones, 1);
    expectWatched();
    EXPECT_EQ(old.dones, 1);
}

TEST_F(ReusedNumberTest, RemovalOfTheNewOneDoesNotReplaceTheStaleDoneFunction) {
    reuse(true);
    EXPECT_TRUE(fresh->addTo(*manager));
    removeWithDone(*fresh);
    pass();
    EXPECT_EQ(old.dones, 1);
    EXPECT_EQ(fresh->dones, 1);
}

TEST_F(ReusedNumberTest, HangUpOfTheNewOneClosesIt) {
    reuse(true);
    EXPECT_TRUE(fresh->addTo(*manager));
    manager->immediatelyRemoveEventHandler(fresh->release());
    pass();
    EXPECT_EQ(old.dones, 1);
    EXPECT_FALSE(isOpen(fresh->fd()));
}

TEST_F(ReusedNumberTest, DestructorCallsTheStaleDoneFunction) {
    reuse(true);
    EXPECT_TRUE(fresh->addTo(*manager));
    manager.reset();
    EXPECT_EQ(old.dones, 1);
    EXPECT_TRUE(isOpen(fresh->fd()));
}

TEST_F(ReusedNumberTest, RefusedHandlerLeavesTheStaleRemoval) {
    reuse(true);
    failEpollCtl(ENOSPC);
    EXPECT_FALSE(fresh->addTo(*manager));
    gSystemCalls.epollCtl = nullptr;
    pass();
    EXPECT_EQ(old.dones, 1);
}

TEST_F(ReusedNumberTest, ReuseByADoneFunctionOfTheSamePass) {
    Watched high(*manager);
    const int number = high.release();
    ASSERT_LT(old.fd(), number);
    old.onDone = [&] {
        close(number);
        fresh.emplace();
        ASSERT_EQ(fresh->fd(), number);
        EXPECT_TRUE(fresh->addTo(*manager));
    };
    removeWithDone(old);
    removeAndClose(high);
    pass();
    EXPECT_EQ(old.dones, 1);
    ASSERT_TRUE(isOpen(number));
    expectWatched();
}

}  // namespace
