// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/utils/EventLoopFixture.h"
#include "tests/utils/OutOfMemory.h"
#include "tests/utils/SystemCalls.h"
#include "tools/emulator/ProcessStats.h"
#include "utils/LumEventBase.h"
#include "utils/LumEventHandler.h"

using lum::utils::LumEventHandler;

namespace {

using Value = std::shared_ptr<int>;

static_assert(std::is_same_v<LumEventBase, lum::utils::LumEventBase>);

// Keeps what it is given.
class Handler : public LumEventHandler<Value> {
  public:
    using LumEventHandler<Value>::LumEventHandler;

    void handleEvent(Value value) override {
        handled.push_back(*value);
        if (onHandle) onHandle(value);
    }
    void post(int number) { postEvent(std::make_shared<int>(number)); }

    LumTimer& timer() { return mTimer; }
    EventManager& manager() { return mEventManager; }

    std::vector<int> handled;
    std::function<void(const Value&)> onHandle;
};

template <typename T>
class KeepsLast : public LumEventHandler<T> {
  public:
    using LumEventHandler<T>::LumEventHandler;
    void handleEvent(T value) override { last = value; }
    T last{};
};

class LumEventHandlerTest : public EventLoopTest {
  protected:
    // Its descriptor's number is in fd.
    void makeHandler(const std::string& name = "queue") {
        gSystemCalls.eventFd = [this](unsigned int count, int flags) {
            EXPECT_EQ(count, 0U);
            EXPECT_EQ(flags, EFD_SEMAPHORE | EFD_NONBLOCK);
            return fd = SystemCalls::realEventFd(count, flags);
        };
        handler = std::make_unique<Handler>(*manager, *timer, name);
        gSystemCalls.eventFd = nullptr;
        address = static_cast<LumEventHandler<Value>*>(handler.get());
    }

    // What posting logs, and handling.
    Lines postLines(const Value& event) const {
        return {logD(format("LumEventHandler postEvent start for fd[%d]", fd)),
                logD(format("Wakelock evt start %p %p", address, static_cast<void*>(event.get())))};
    }
    LogLine ended(const Value& event) const {
        return logD(format("Wakelock evt end %p %p", address, static_cast<void*>(event.get())));
    }
    // What a pass logs around the lines of handling.
    Lines drainPass(Lines handling) const {
        handling.insert(handling.begin(), {pending(1), ::handling(0, 1, fd),
                                           calling(fd, Handler::cb, address), started});
        handling.push_back(finished);
        return handling;
    }

    const LogLine started = logD("LumEventHandler cb start");
    const LogLine finished = logD("LumEventHandler cb end");
    const Value event = std::make_shared<int>(1);
    std::unique_ptr<LumTimer> timer = std::make_unique<LumTimer>(nullptr);
    std::unique_ptr<Handler> handler;
    void* address = nullptr;  // as logged
    int fd = -1;
};

TEST_F(LumEventHandlerTest, Construction) {
    uint32_t watchedFor = 0;
    gSystemCalls.epollCtl = [&](int epoll, int op, int watched, epoll_event* event) {
        watchedFor = event->events;
        return SystemCalls::realEpollCtl(epoll, op, watched, event);
    };
    log.take();
    makeHandler("SomeName");
    EXPECT_EQ(
        log.take(),
        (Lines{logD("LumEventHandler ctor"), adding(fd, Handler::cb, address, nullptr, 1),
               added(fd),
               logD(format("LumEventHandler: ctor fd[%d] name[SomeName] addr[%p]", fd, address))}));
    EXPECT_EQ(watchedFor, uint32_t{EPOLLIN});
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(handler->isRegistered());
    EXPECT_EQ(&handler->timer(), timer.get());
    EXPECT_EQ(&handler->manager(), manager.get());
}

TEST_F(LumEventHandlerTest, ThreeValuesAreHandledInOrderInOneWakeUp) {
    makeHandler();
    const Value events[] = {event, std::make_shared<int>(2), std::make_shared<int>(3)};
    for (const Value& value : events) handler->postEvent(value);
    EXPECT_EQ(event.use_count(), 3);  // with that in events
    EXPECT_EQ(logOfPass(), drainPass({ended(events[0]), ended(events[1]), ended(events[2])}));
    EXPECT_EQ(handler->handled, (std::vector{1, 2, 3}));
    EXPECT_EQ(event.use_count(), 2);
    EXPECT_EQ(logOfPass(), Lines{}) << "the counter must be back at 0";
}

TEST_F(LumEventHandlerTest, ValuePostedByTheHandlerIsHandledInTheSameDrain) {
    makeHandler();
    handler->onHandle = [this](const Value& value) {
        if (*value < 4) handler->post(*value + 1);
    };
    handler->post(1);
    handler->post(10);
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1, 10, 2, 3, 4}));
    EXPECT_EQ(log.count(started), 1U);
}

TEST_F(LumEventHandlerTest, ValueMayPostWhenItIsDestroyed) {
    makeHandler();
    handler->postEvent(Value(new int(1), [this](const int* number) {
        delete number;
        handler->post(2);
    }));
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
}

TEST_F(LumEventHandlerTest, WakeUpWithNothingQueuedEndsSilently) {
    makeHandler();
    EXPECT_EQ(logOf([this] { Handler::cb(fd, address); }), (Lines{started, finished}));
    EXPECT_TRUE(handler->handled.empty());
}

TEST_F(LumEventHandlerTest, CounterAheadOfTheQueueIsLogged) {
    makeHandler();
    ASSERT_EQ(eventfd_write(fd, 2), 0);
    EXPECT_EQ(logOfPass(),
              drainPass({logE(
                  format("More fd reads than queue events. SHOULD NEVER HAPPEN. fd=%d", fd))}));
    EXPECT_TRUE(handler->handled.empty());
}

TEST_F(LumEventHandlerTest, FailedReadIsLoggedWithTheErrorFirst) {
    makeHandler();
    handler->postEvent(event);
    gSystemCalls.read = [](int, void*, size_t size) -> ssize_t {
        EXPECT_EQ(size, 8U);
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(
        logOf([this] { Handler::cb(fd, address); }),
        (Lines{started,
               logE(format("CB thread woken, but fd read failed. SHOULD NEVER HAPPEN. fd=5 err=%d",
                           fd)),
               finished}));
    EXPECT_FALSE(RunUntilBlocked([&] { handler->postEvent(event); }).blocked());
}

TEST_F(LumEventHandlerTest, FailedCounterWriteIsLoggedAndTheValueStaysQueued) {
    makeHandler();
    failWrites(-1, EBADF);
    Lines expected = postLines(event);
    expected.push_back(
        logE(format("Error in writing rv: -1, error: Bad file descriptor, for fd[%d]", fd)));
    EXPECT_EQ(logOf([this] { handler->postEvent(event); }), expected);
    failWrites(4, EIO);
    handler->post(2);
    EXPECT_TRUE(
        log.has(logE(format("Error in writing rv: 4, error: Input/output error, for fd[%d]", fd))));
    gSystemCalls.write = nullptr;
    pass();
    EXPECT_TRUE(handler->handled.empty());
    handler->post(3);
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1})) << "the counter allows one, the oldest";
    handler->post(4);
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
}

TEST_F(LumEventHandlerTest, ExceptionOfTheHandlerPassesThroughAndTheRestIsHandledNext) {
    makeHandler();
    handler->onHandle = [](const Value& value) {
        if (*value == 2) throw std::runtime_error("refused");
    };
    for (const int number : {1, 2, 3}) handler->post(number);
    EXPECT_THROW(pass(), std::runtime_error);
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1, 2, 3}));
}

TEST_F(LumEventHandlerTest, DestructorDiscardsWhatIsQueued) {
    makeHandler();
    handler->onHandle = [](const Value&) { FAIL() << "handled"; };
    handler->postEvent(event);
    EXPECT_EQ(logOf([this] { handler.reset(); }), (Lines{logD("dtor"), askedToRemove(fd)}));
    EXPECT_EQ(event.use_count(), 1);
    EXPECT_TRUE(isOpen(fd)) << "the event manager closes it";
    pass();
    pass();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(LumEventHandlerTest, WithoutADescriptor) {
    gSystemCalls.eventFd = [](unsigned int, int) {
        errno = EMFILE;
        return -1;
    };
    log.take();
    handler = std::make_unique<Handler>(*manager, *timer, "queue");
    address = static_cast<LumEventHandler<Value>*>(handler.get());
    EXPECT_EQ(log.take(),
              (Lines{logD("LumEventHandler ctor"), adding(-1, Handler::cb, address, nullptr, 1),
                     logE("Cannot add event handler. err:9"),
                     logD(format("LumEventHandler: ctor fd[-1] name[queue] addr[%p]", address))}));
    EXPECT_FALSE(handler->isRegistered());
    handler->post(1);
    EXPECT_TRUE(log.has(logE("Error in writing rv: -1, error: Bad file descriptor, for fd[-1]")));
    gSystemCalls.close = [](int closed) {
        ADD_FAILURE() << "closed " << closed;
        return 0;
    };
    handler.reset();
}

TEST_F(LumEventHandlerTest, DescriptorThatTheEventManagerRefusedIsClosed) {
    failEpollCtl(ENOSPC);
    makeHandler();
    EXPECT_FALSE(handler->isRegistered());
    handler->post(1);
    EXPECT_TRUE(isOpen(fd));
    handler.reset();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(LumEventHandlerTest, DetachTakesTheDescriptorOutOfTheEventManagerOnce) {
    makeHandler();
    EXPECT_EQ(logOf([this] {
                  handler->detach();
                  handler->detach();
              }),
              Lines{askedToRemove(fd)});
    EXPECT_FALSE(handler->isRegistered());
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
    pass();
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(logOf([this] { handler.reset(); }), Lines{logD("dtor")});
}

// A handler that outlives its event manager and timer, because somebody else still holds it.
TEST_F(LumEventHandlerTest, DetachedHandlerTouchesNeitherManagerNorDescriptor) {
    makeHandler();
    handler->postEvent(event);
    handler->detach();
    timer.reset();
    manager.reset();
    // Somebody else's descriptor with the same number.
    const int reused = fcntl(STDERR_FILENO, F_DUPFD, fd);
    ASSERT_EQ(reused, fd);
    gSystemCalls.write = [](int written, const void*, size_t size) {
        ADD_FAILURE() << "written to " << written;
        return static_cast<ssize_t>(size);
    };
    const Value late = std::make_shared<int>(2);
    EXPECT_EQ(logOf([&] { handler->postEvent(late); }), Lines{});
    EXPECT_EQ(late.use_count(), 1) << "dropped";
    EXPECT_TRUE(handler->handled.empty());
    handler.reset();
    EXPECT_EQ(event.use_count(), 1);
    EXPECT_TRUE(isOpen(reused));
    close(reused);
}

TEST_F(LumEventHandlerTest, PostOvertakenByDetachIsDropped) {
    makeHandler();
    gSystemCalls.write = [this](int written, const void* buffer, size_t size) {
        EXPECT_NE(written, fd);
        return SystemCalls::realWrite(written, buffer, size);
    };
    {
        const BeforeEachLock detaching([this] {
            if (log.has(postLines(event)[1])) handler->detach();
        });
        handler->postEvent(event);
    }
    EXPECT_FALSE(handler->isRegistered());
    EXPECT_EQ(event.use_count(), 1);
}

TEST_F(LumEventHandlerTest, RawPointersAreLoggedByWhatTheyPointToAndAnyTypeCanBeQueued) {
    KeepsLast<LumEventBase*> pointers(*manager, *timer, "pointers");
    KeepsLast<std::string> texts(*manager, *timer, "texts");
    LumEventBase base;
    pointers.postEvent(&base);
    texts.postEvent("text");
    pass();
    EXPECT_TRUE(pointers.last->isMultiThreadEvent());
    EXPECT_EQ(texts.last, "text");
    void* const self = static_cast<LumEventHandler<LumEventBase*>*>(&pointers);
    EXPECT_TRUE(log.has(logD(format("Wakelock evt start %p %p", self, static_cast<void*>(&base)))));
    EXPECT_TRUE(log.has(logD(format("Wakelock evt end %p %p", self, static_cast<void*>(&base)))));
}

// Without a LogCapture, whose records need memory.
TEST(LumEventHandlerMemoryTest, ConstructionThatRunsOutOfMemoryLeavesNothingOpen) {
    EventManager manager;
    LumTimer timer(nullptr);
    const size_t before = openDescriptors();
    std::optional<Handler> handler;
    EXPECT_GT(allocationsNeeded([&] { handler.emplace(manager, timer, "queue"); },
                                [&] {
                                    EXPECT_EQ(openDescriptors(), before);
                                    EXPECT_EQ(manager.getNumRegisteredFds(), 0);
                                }),
              2);
    const AllocationLimit none(0);
    handler.reset();
}

TEST(LumEventHandlerMemoryTest, PostThatRunsOutOfMemoryQueuesNothing) {
    EventManager manager;
    LumTimer timer(nullptr);
    Handler handler(manager, timer, "queue");
    const Value event = std::make_shared<int>(7);
    size_t posted = 0;
    const auto postUntilItThrows = [&] {
        const AllocationLimit none(0);
        for (;; ++posted) handler.postEvent(event);
    };
    EXPECT_THROW(postUntilItThrows(), std::bad_alloc);
    EXPECT_EQ(static_cast<size_t>(event.use_count()), posted + 1);
    handler.postEvent(event);
    manager.processEvents(nullptr);
    EXPECT_EQ(handler.handled.size(), posted + 1);
    manager.wake();
    manager.processEvents(nullptr);
    EXPECT_EQ(handler.handled.size(), posted + 1);
}

}  // namespace
