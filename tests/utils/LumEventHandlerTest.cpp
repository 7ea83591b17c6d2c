// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/AllocationLimit.h"
#include "tests/support/LogCapture.h"
#include "tests/utils/EventLoopFixture.h"
#include "tests/utils/SystemCalls.h"
#include "tools/emulator/ProcessStats.h"
#include "utils/LumEventBase.h"
#include "utils/LumEventHandler.h"

using lum::utils::EventManager;
using lum::utils::LumEventHandler;

namespace {

using Lines = std::vector<LogLine>;
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

    // As logged.
    void* address() { return static_cast<LumEventHandler<Value>*>(this); }
    LumTimer& timer() { return mTimer; }
    EventManager& manager() { return mEventManager; }

    std::vector<int> handled;
    std::function<void(const Value&)> onHandle;
};

class LumEventHandlerTest : public EventLoopTest {
  protected:
    LumEventHandlerTest() { make(); }

    // Its descriptor's number is in handlerFd.
    void makeHandler(const std::string& name = "queue") {
        gSystemCalls.eventFd = [this](unsigned int count, int flags) {
            return handlerFd = SystemCalls::realEventFd(count, flags);
        };
        handler = std::make_unique<Handler>(*manager, *timer, name);
        gSystemCalls.eventFd = nullptr;
    }

    static Value value(int number) { return std::make_shared<int>(number); }

    // What a pass logs before and after the queue's own lines.
    Lines inPass(const Lines& own) const {
        Lines lines{logD("there are 1 file descriptor(s) with events pending"),
                    logD(format("processing event number: 0, handling 1 for %d", handlerFd)),
                    logD(format("file descriptor '%d' is processing events [callback:%p, data:%p]",
                                handlerFd, pointer(Handler::cb), handler->address()))};
        lines.insert(lines.end(), own.begin(), own.end());
        return lines;
    }

    std::unique_ptr<LumTimer> timer = std::make_unique<LumTimer>(nullptr);
    std::unique_ptr<Handler> handler;
    int handlerFd = -1;
};

TEST_F(LumEventHandlerTest, Construction) {
    std::vector<std::pair<unsigned int, int>> eventFds;
    std::vector<std::pair<uint32_t, int>> watched;
    gSystemCalls.eventFd = [&](unsigned int count, int flags) {
        eventFds.emplace_back(count, flags);
        return handlerFd = SystemCalls::realEventFd(count, flags);
    };
    gSystemCalls.epollCtl = [&](int epoll, int op, int fd, epoll_event* event) {
        watched.emplace_back(uint32_t{event->events}, fd);
        return SystemCalls::realEpollCtl(epoll, op, fd, event);
    };
    log.take();
    handler = std::make_unique<Handler>(*manager, *timer, "SomeName");
    EXPECT_EQ(
        log.take(),
        (Lines{
            logD("LumEventHandler ctor"),
            logD(format(
                "addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback (nil), events 1) EX",
                handlerFd, pointer(Handler::cb), handler->address())),
            logD(format("Added event handler %d", handlerFd)),
            logD(format("LumEventHandler: ctor fd[%d] name[SomeName] addr[%p]", handlerFd,
                        handler->address()))}));
    EXPECT_EQ(eventFds,
              (std::vector<std::pair<unsigned int, int>>{{0, EFD_SEMAPHORE | EFD_NONBLOCK}}));
    EXPECT_EQ(watched, (std::vector<std::pair<uint32_t, int>>{{EPOLLIN, handlerFd}}));
    EXPECT_TRUE(handler->isRegistered());
    EXPECT_EQ(&handler->timer(), timer.get());
    EXPECT_EQ(&handler->manager(), manager.get());
}

TEST_F(LumEventHandlerTest, PostLogsAndRaisesTheCounter) {
    makeHandler();
    const Value event = value(1);
    std::vector<std::pair<int, uint64_t>> writes;
    gSystemCalls.write = [&](int fd, const void* buffer, size_t size) {
        EXPECT_EQ(size, 8U);
        writes.emplace_back(fd, *static_cast<const uint64_t*>(buffer));
        return SystemCalls::realWrite(fd, buffer, size);
    };
    log.take();
    handler->postEvent(event);
    EXPECT_EQ(log.take(),
              (Lines{logD(format("LumEventHandler postEvent start for fd[%d]", handlerFd)),
                     logD(format("Wakelock evt start %p %p", handler->address(),
                                 static_cast<void*>(event.get())))}));
    EXPECT_EQ(writes, (std::vector<std::pair<int, uint64_t>>{{handlerFd, 1}}));
}

TEST_F(LumEventHandlerTest, ThreeValuesAreHandledInOrderInOneWakeUp) {
    makeHandler();
    const std::vector<Value> events{value(1), value(2), value(3)};
    for (const Value& event : events) handler->postEvent(event);
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(handler->handled, (std::vector{1, 2, 3}));
    const auto ended = [&](const Value& event) {
        return logD(
            format("Wakelock evt end %p %p", handler->address(), static_cast<void*>(event.get())));
    };
    EXPECT_EQ(log.take(),
              inPass({logD("LumEventHandler cb start"), ended(events[0]), ended(events[1]),
                      ended(events[2]), logD("LumEventHandler cb end")}));
    pass();
    EXPECT_TRUE(log.take().empty()) << "the counter must be back at 0";
}

TEST_F(LumEventHandlerTest, ValuePostedByTheHandlerIsHandledInTheSameDrain) {
    makeHandler();
    handler->onHandle = [this](const Value& event) {
        if (*event < 4) handler->postEvent(value(*event + 1));
    };
    handler->postEvent(value(1));
    handler->postEvent(value(10));
    manager->processEvents(nullptr);
    EXPECT_EQ(handler->handled, (std::vector{1, 10, 2, 3, 4}));
    EXPECT_EQ(log.count(logD("LumEventHandler cb start")), 1U);
}

TEST_F(LumEventHandlerTest, HandlerRunsWithTheQueueUnlocked) {
    makeHandler();
    std::optional<RunUntilBlocked> other;
    handler->onHandle = [&](const Value& event) {
        if (*event == 1) other.emplace([this] { handler->postEvent(value(2)); });
    };
    handler->postEvent(value(1));
    manager->processEvents(nullptr);
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->blocked());
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
}

TEST_F(LumEventHandlerTest, ValueMayPostWhenItIsDestroyed) {
    makeHandler();
    handler->postEvent(Value(new int(1), [this](const int* number) {
        delete number;
        handler->postEvent(value(2));
    }));
    manager->processEvents(nullptr);
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
}

TEST_F(LumEventHandlerTest, ValueIsReleasedOnceHandled) {
    makeHandler();
    const Value event = value(1);
    handler->postEvent(event);
    EXPECT_EQ(event.use_count(), 2);
    manager->processEvents(nullptr);
    EXPECT_EQ(event.use_count(), 1);
}

TEST_F(LumEventHandlerTest, WakeUpWithNothingQueuedEndsSilently) {
    makeHandler();
    log.take();
    Handler::cb(handlerFd, handler->address());
    EXPECT_EQ(log.take(),
              (Lines{logD("LumEventHandler cb start"), logD("LumEventHandler cb end")}));
    EXPECT_TRUE(handler->handled.empty());
}

TEST_F(LumEventHandlerTest, CounterAheadOfTheQueueIsLogged) {
    makeHandler();
    const uint64_t two = 2;
    ASSERT_EQ(SystemCalls::realWrite(handlerFd, &two, sizeof two), 8);
    log.take();
    manager->processEvents(nullptr);
    EXPECT_EQ(log.take(),
              inPass({logD("LumEventHandler cb start"),
                      logE(format("More fd reads than queue events. SHOULD NEVER HAPPEN. fd=%d",
                                  handlerFd)),
                      logD("LumEventHandler cb end")}));
    EXPECT_TRUE(handler->handled.empty());
}

TEST_F(LumEventHandlerTest, FailedReadIsLoggedWithTheErrorFirst) {
    makeHandler();
    const Value event = value(1);
    handler->postEvent(event);
    gSystemCalls.read = [](int /*fd*/, void* /*buffer*/, size_t size) -> ssize_t {
        EXPECT_EQ(size, 8U);
        errno = EIO;
        return -1;
    };
    log.take();
    Handler::cb(handlerFd, handler->address());
    EXPECT_EQ(
        log.take(),
        (Lines{logD("LumEventHandler cb start"),
               logE(format("CB thread woken, but fd read failed. SHOULD NEVER HAPPEN. fd=5 err=%d",
                           handlerFd)),
               logD("LumEventHandler cb end")}));
    EXPECT_FALSE(RunUntilBlocked([&] { handler->postEvent(event); }).blocked());
}

TEST_F(LumEventHandlerTest, FailedCounterWriteIsLoggedAndTheValueStaysQueued) {
    makeHandler();
    const Value first = value(1);
    failWrites(-1, EBADF);
    log.take();
    handler->postEvent(first);
    EXPECT_EQ(log.take(),
              (Lines{logD(format("LumEventHandler postEvent start for fd[%d]", handlerFd)),
                     logD(format("Wakelock evt start %p %p", handler->address(),
                                 static_cast<void*>(first.get()))),
                     logE(format("Error in writing rv: -1, error: Bad file descriptor, for fd[%d]",
                                 handlerFd))}));
    gSystemCalls.write = nullptr;
    pass();
    EXPECT_TRUE(handler->handled.empty());
    handler->postEvent(value(2));
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1})) << "the counter allows one, the oldest";
    handler->postEvent(value(3));
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
}

TEST_F(LumEventHandlerTest, ShortCounterWriteIsLogged) {
    makeHandler();
    failWrites(4, EIO);
    handler->postEvent(value(1));
    EXPECT_TRUE(log.has(
        logE(format("Error in writing rv: 4, error: Input/output error, for fd[%d]", handlerFd))));
}

TEST_F(LumEventHandlerTest, ExceptionOfTheHandlerPassesThroughAndTheRestIsHandledNext) {
    makeHandler();
    handler->onHandle = [](const Value& event) {
        if (*event == 2) throw std::runtime_error("refused");
    };
    for (const int number : {1, 2, 3}) handler->postEvent(value(number));
    EXPECT_THROW(manager->processEvents(nullptr), std::runtime_error);
    EXPECT_EQ(handler->handled, (std::vector{1, 2}));
    pass();
    EXPECT_EQ(handler->handled, (std::vector{1, 2, 3}));
}

TEST_F(LumEventHandlerTest, DestructorDiscardsWhatIsQueued) {
    makeHandler();
    const Value event = value(1);
    bool handled = false;
    handler->onHandle = [&](const Value&) { handled = true; };
    handler->postEvent(event);
    handler->postEvent(event);
    EXPECT_EQ(event.use_count(), 3);
    log.take();
    handler.reset();
    EXPECT_EQ(log.take(),
              (Lines{logD("dtor"), logD(format("removeEventHandler(int fd: %d) EX", handlerFd))}));
    EXPECT_EQ(event.use_count(), 1);
    EXPECT_TRUE(isOpen(handlerFd)) << "the event manager closes it";
    pass();
    pass();
    EXPECT_FALSE(handled);
    EXPECT_FALSE(isOpen(handlerFd));
}

TEST_F(LumEventHandlerTest, WithoutADescriptor) {
    gSystemCalls.eventFd = [](unsigned int /*count*/, int /*flags*/) {
        errno = EMFILE;
        return -1;
    };
    log.take();
    handler = std::make_unique<Handler>(*manager, *timer, "queue");
    EXPECT_EQ(
        log.take(),
        (Lines{
            logD("LumEventHandler ctor"),
            logD(format(
                "addEventHandler(int -1, EventCallback %p, void* %p, CloseCallback (nil), events 1) EX",
                pointer(Handler::cb), handler->address())),
            logE("Cannot add event handler. err:9"),
            logD(
                format("LumEventHandler: ctor fd[-1] name[queue] addr[%p]", handler->address()))}));
    EXPECT_FALSE(handler->isRegistered());
    handler->postEvent(value(1));
    EXPECT_TRUE(log.has(logE("Error in writing rv: -1, error: Bad file descriptor, for fd[-1]")));
    std::vector<int> closed;
    gSystemCalls.close = [&](int fd) {
        closed.push_back(fd);
        return 0;
    };
    handler.reset();
    EXPECT_TRUE(closed.empty());
}

TEST_F(LumEventHandlerTest, DescriptorThatTheEventManagerRefusedIsClosed) {
    const size_t before = openDescriptors();
    gSystemCalls.epollCtl = [](int /*epoll*/, int /*op*/, int /*fd*/, epoll_event* /*event*/) {
        errno = ENOSPC;
        return -1;
    };
    makeHandler();
    EXPECT_FALSE(handler->isRegistered());
    EXPECT_EQ(openDescriptors(), before + 1);
    handler->postEvent(value(1));
    handler.reset();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LumEventHandlerTest, DetachTakesTheDescriptorOutOfTheEventManagerOnce) {
    makeHandler();
    log.take();
    handler->detach();
    EXPECT_FALSE(handler->isRegistered());
    handler->detach();
    EXPECT_EQ(log.take(), (Lines{logD(format("removeEventHandler(int fd: %d) EX", handlerFd))}));
    EXPECT_EQ(manager->getNumRegisteredFds(), 0);
    pass();
    EXPECT_FALSE(isOpen(handlerFd));
    log.take();
    handler.reset();
    EXPECT_EQ(log.take(), (Lines{logD("dtor")}));
}

// A handler that outlives its event manager and timer, because somebody else still holds it.
TEST_F(LumEventHandlerTest, DetachedHandlerTouchesNeitherManagerNorDescriptor) {
    makeHandler();
    const Value event = value(1);
    handler->postEvent(event);
    handler->detach();
    timer.reset();
    manager.reset();
    EXPECT_FALSE(isOpen(handlerFd));
    // Somebody else's descriptor with the same number.
    const int reused = fcntl(STDERR_FILENO, F_DUPFD, handlerFd);
    ASSERT_EQ(reused, handlerFd);
    gSystemCalls.write = [](int fd, const void* /*buffer*/, size_t size) {
        ADD_FAILURE() << "written to " << fd;
        return static_cast<ssize_t>(size);
    };
    const Value late = value(2);
    log.take();
    handler->postEvent(late);
    EXPECT_TRUE(log.take().empty());
    EXPECT_EQ(late.use_count(), 1) << "dropped";
    EXPECT_TRUE(handler->handled.empty());
    handler.reset();
    EXPECT_EQ(event.use_count(), 1);
    EXPECT_TRUE(isOpen(reused));
    SystemCalls::realClose(reused);
}

TEST_F(LumEventHandlerTest, PostOvertakenByDetachIsDropped) {
    makeHandler();
    const Value event = value(1);
    gSystemCalls.write = [this](int fd, const void* buffer, size_t size) {
        EXPECT_NE(fd, handlerFd);
        return SystemCalls::realWrite(fd, buffer, size);
    };
    const LogLine started = logD(
        format("Wakelock evt start %p %p", handler->address(), static_cast<void*>(event.get())));
    {
        const BeforeEachLock detaching([&] {
            if (log.has(started)) handler->detach();
        });
        handler->postEvent(event);
    }
    EXPECT_FALSE(handler->isRegistered());
    EXPECT_EQ(event.use_count(), 1);
}

TEST_F(LumEventHandlerTest, RawPointersAreLoggedByWhatTheyPointTo) {
    class PointerHandler : public LumEventHandler<LumEventBase*> {
      public:
        using LumEventHandler<LumEventBase*>::LumEventHandler;
        void handleEvent(LumEventBase* event) override { handled = event; }
        LumEventBase* handled = nullptr;
    };
    PointerHandler pointers(*manager, *timer, "pointers");
    LumEventBase event;
    EXPECT_TRUE(event.isMultiThreadEvent());
    pointers.postEvent(&event);
    manager->processEvents(nullptr);
    EXPECT_EQ(pointers.handled, &event);
    void* const self = static_cast<LumEventHandler<LumEventBase*>*>(&pointers);
    EXPECT_TRUE(
        log.has(logD(format("Wakelock evt start %p %p", self, static_cast<void*>(&event)))));
    EXPECT_TRUE(log.has(logD(format("Wakelock evt end %p %p", self, static_cast<void*>(&event)))));
}

TEST_F(LumEventHandlerTest, AnyTypeThatCanBeCopiedCanBeQueued) {
    class TextHandler : public LumEventHandler<std::string> {
      public:
        using LumEventHandler<std::string>::LumEventHandler;
        void handleEvent(std::string text) override { handled += text; }
        std::string handled;
    };
    TextHandler texts(*manager, *timer, "texts");
    texts.postEvent("one ");
    texts.postEvent("two");
    manager->processEvents(nullptr);
    EXPECT_EQ(texts.handled, "one two");
}

// Without a LogCapture, whose records need memory.
TEST(LumEventHandlerMemoryTest, ConstructionThatRunsOutOfMemoryLeavesNothingOpen) {
    EventManager manager;
    LumTimer timer(nullptr);
    const size_t before = openDescriptors();
    std::unique_ptr<Handler> handler;
    long allocations = 0;
    while (handler == nullptr) {
        try {
            const AllocationLimit limit(allocations);
            handler = std::make_unique<Handler>(manager, timer, "queue");
        } catch (const std::bad_alloc&) {
            ++allocations;
            EXPECT_EQ(openDescriptors(), before);
            EXPECT_EQ(manager.getNumRegisteredFds(), 0);
        }
    }
    EXPECT_GT(allocations, 2);
}

TEST(LumEventHandlerMemoryTest, PostThatRunsOutOfMemoryQueuesNothing) {
    EventManager manager;
    LumTimer timer(nullptr);
    Handler handler(manager, timer, "queue");
    const Value event = std::make_shared<int>(7);
    size_t posted = 0;
    const auto postUntilItThrows = [&] {
        const AllocationLimit none(0);
        while (true) {
            handler.postEvent(event);
            ++posted;
        }
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

TEST(LumEventHandlerMemoryTest, DestructionNeedsNoMemory) {
    const size_t before = openDescriptors();
    {
        EventManager manager;
        LumTimer timer(nullptr);
        std::optional<Handler> handler;
        handler.emplace(manager, timer, "queue");
        const AllocationLimit none(0);
        handler.reset();
    }
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
