// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/AllocationLimit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Survives.h"
#include "tests/utils/SystemCalls.h"
#include "utils/LumTimer.h"

class LumTimerPeer {
  public:
    static void setLastTimerId(LumTimer& timer, int id) { timer.mLastTimerId = id; }
};

namespace {

// The ends of the clock's seconds: 68 years from 0 where they have 32 bits.
constexpr time_t kMost = std::numeric_limits<time_t>::max();
constexpr time_t kLeast = std::numeric_limits<time_t>::min();

static_assert(std::is_same_v<LumTimer, lum::utils::LumTimer>);
static_assert(std::is_same_v<TimedEvent, lum::utils::TimedEvent>);
static_assert(std::is_same_v<TimedEventCmp, lum::utils::TimedEventCmp>);
static_assert(std::is_same_v<ILumTimerMonitor, lum::utils::ILumTimerMonitor>);

using Lines = std::vector<LogLine>;

// Each time with what it should be.
void expectTimes(const std::vector<std::pair<timespec, timespec>>& times) {
    for (const auto& [time, expected] : times) {
        EXPECT_EQ(time.tv_sec, expected.tv_sec) << "for " << expected.tv_nsec << " ns";
        EXPECT_EQ(time.tv_nsec, expected.tv_nsec) << "for " << expected.tv_sec << " s";
    }
}

timespec plusDelay(timespec time, long long delay) {
    LumTimer::addDelayToTimeval(delay, time);
    return time;
}

timespec sum(const timespec& a, const timespec& b) {
    timespec result{};
    LumTimer::addTimeSpec(a, b, result);
    return result;
}

timespec difference(const timespec& a, const timespec& b) {
    timespec result{};
    LumTimer::subTimeSpec(a, b, result);
    return result;
}

// A timed callback that does what a test says and counts its calls.
struct Call {
    std::function<int()> action = [] { return -1; };
    int calls = 0;

    static int run(void* data) {
        Call* const call = static_cast<Call*>(data);
        ++call->calls;
        return call->action();
    }
};

// A timer on a clock that stands still unless a test moves it.
class LumTimerTest : public testing::Test {
  protected:
    LumTimerTest() {
        gSystemCalls.clockGettime = [this](clockid_t clock, timespec* now) {
            EXPECT_EQ(clock, CLOCK_BOOTTIME);
            ++clockReads;
            if (clockReads == failingRead) {
                errno = EINVAL;
                return -1;
            }
            *now = clockNow;
            return 0;
        };
    }

    void advance(long long milliseconds) { LumTimer::addDelayToTimeval(milliseconds, clockNow); }
    int add(long long delay, Call& call) { return timer.addTimedCallback(delay, Call::run, &call); }

    RestoreSystemCalls restore;
    LogCapture log;
    timespec clockNow{100, 0};
    int clockReads = 0;
    int failingRead = -1;  // counted from 1
    LumTimer timer{nullptr};
};

TEST_F(LumTimerTest, IdsRunFromOneToTheLastAndWrapToOne) {
    Call call;
    EXPECT_EQ(add(0, call), 1);
    EXPECT_EQ(timer.getNextTimerId(), 2);
    EXPECT_EQ(add(0, call), 3);
    LumTimerPeer::setLastTimerId(timer, 2147483645);
    EXPECT_EQ(timer.getNextTimerId(), 2147483646);
    EXPECT_EQ(timer.getNextTimerId(), 1);
    LumTimerPeer::setLastTimerId(timer, 2147483645);
    EXPECT_EQ(add(0, call), 2147483646);
    EXPECT_EQ(add(0, call), 1);  // like the first one, which is still queued
    timer.removeTimedCallback(1);
    timer.processEvents();
    EXPECT_EQ(call.calls, 3) << "the removal must have taken one of the four";
}

TEST_F(LumTimerTest, AddFailsWithoutACallbackOrWithTheClock) {
    EXPECT_EQ(timer.addTimedCallback(5, nullptr, this), -1);
    EXPECT_EQ(clockReads, 0);
    Call call;
    failingRead = 1;
    EXPECT_EQ(add(5, call), -1);
    EXPECT_EQ(log.take(),
              (Lines{logW("addTimedCallback failed; cannot have NULL callback function"),
                     logE("addTimedCallback failed; clock_gettime(): Invalid argument")}));
    EXPECT_EQ(timer.timeUntilNextEvent(), -1);
    EXPECT_EQ(add(5, call), 1) << "a failure must not use up an id";
}

TEST_F(LumTimerTest, OnlyTheLow32BitsOfADelayCountButAllAreKept) {
    Call call;
    add(4294967396LL, call);  // 2^32 + 100
    EXPECT_EQ(timer.timeUntilNextEvent(), 100);
    advance(100);
    call.action = [] { return -5; };
    timer.processEvents();
    EXPECT_EQ(log.take(), Lines{logW("Invalid delay (-5), using 4294967396 instead")});
    EXPECT_EQ(timer.timeUntilNextEvent(), 100);
}

TEST_F(LumTimerTest, TimeUntilNextRoundsUpToMilliseconds) {
    EXPECT_EQ(timer.timeUntilNextEvent(), -1);  // nothing queued
    EXPECT_EQ(clockReads, 0);
    Call call;
    clockNow = {100, 999999999};
    add(1, call);  // due at 101.000999999
    const auto left = [this](time_t seconds, long nanoseconds) {
        clockNow = {seconds, nanoseconds};
        return timer.timeUntilNextEvent();
    };
    EXPECT_EQ(left(101, 999998), 1);     // 1 ns left
    EXPECT_EQ(left(101, 999999), 0);     // due
    EXPECT_EQ(left(101, 1000000), 0);    // overdue by 1 ns
    EXPECT_EQ(left(100, 999999999), 1);  // 1,000,000 ns
    EXPECT_EQ(left(100, 999999998), 2);  // 1,000,001 ns
    EXPECT_EQ(left(100, 0), 1001);       // 1 s and 999,999 ns
    EXPECT_EQ(left(99, 500000000), 1501);
    EXPECT_EQ(left(102, 0), 0);
}

TEST_F(LumTimerTest, TimeUntilTheEndOfTheLongestDelayFits) {
    Call call;
    add(2147483647LL, call);
    EXPECT_EQ(timer.timeUntilNextEvent(), 2147483647);
    clockNow = {100, 1000000};
    EXPECT_EQ(timer.timeUntilNextEvent(), 2147483646);
}

TEST_F(LumTimerTest, DeadlineBehindTheEndOfTheClockIsReached) {
    Call call;
    clockNow = {kMost, 999000000};
    add(2, call);
    EXPECT_EQ(timer.timeUntilNextEvent(), 2);
    timer.processEvents();
    EXPECT_EQ(call.calls, 0);
    clockNow = {kLeast, 1000000};
    timer.processEvents();
    EXPECT_EQ(call.calls, 1);
}

TEST_F(LumTimerTest, ResultOfACallbackSaysWhetherAndWhenItRunsAgain) {
    const struct {
        int result;
        int again;  // after so many ms, and so often if it then returns 0
        Lines logged;
    } cases[] = {
        {-1, -1, {}},
        {0, 40, {}},
        {250, 250, {}},
        {-5, 40, {logW("Invalid delay (-5), using 40 instead")}},
        {INT_MIN, 40, {logW("Invalid delay (-2147483648), using 40 instead")}},
    };
    for (const auto& expected : cases) {
        Call call;
        call.action = [this, &expected] {
            advance(7);  // counted from the callback's end
            return expected.result;
        };
        const int id = add(40, call);
        advance(39);
        timer.processEvents();
        EXPECT_EQ(call.calls, 0);
        advance(1);
        timer.processEvents();
        EXPECT_EQ(call.calls, 1);
        EXPECT_EQ(log.take(), expected.logged);
        EXPECT_EQ(timer.timeUntilNextEvent(), expected.again);
        call.action = [] { return 0; };
        advance(250);
        timer.processEvents();
        EXPECT_EQ(call.calls, expected.result == -1 ? 1 : 2);
        EXPECT_EQ(timer.timeUntilNextEvent(), expected.again);
        timer.removeTimedCallback(id);
        EXPECT_EQ(timer.timeUntilNextEvent(), -1) << "not under its id";
    }
}

TEST_F(LumTimerTest, RepeatingWithoutDelayRunsAgainInTheSameCall) {
    Call call;
    call.action = [&call] { return call.calls < 5 ? 0 : -1; };
    add(0, call);
    timer.processEvents();
    EXPECT_EQ(call.calls, 5);
}

TEST_F(LumTimerTest, ClockFailureAfterACallbackLosesItAndEndsTheCall) {
    const Lines failed{logE("timeUntilNextCallback failed; clock_gettime(): Invalid argument")};
    Call first;
    Call second;
    first.action = [] { return 0; };
    add(0, first);
    advance(1);
    add(0, second);
    failingRead = clockReads + 1;  // the one for "is it due"
    timer.processEvents();
    EXPECT_EQ(first.calls, 0);
    EXPECT_EQ(log.take(), failed);
    failingRead = clockReads + 2;  // the one after the callback
    timer.processEvents();
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(log.take(), failed);
    timer.processEvents();
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 1);
    EXPECT_EQ(timer.timeUntilNextEvent(), -1);
}

TEST_F(LumTimerTest, EqualDeadlinesRunInTheSameCall) {
    Call first;
    Call second;
    add(30, first);
    add(30, second);
    advance(30);
    timer.processEvents();
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(LumTimerTest, ManyRunInTheOrderOfTheirDeadlinesWhateverIsRemoved) {
    constexpr int kCount = 40;
    std::vector<Call> calls(kCount);
    std::vector<int> ids;
    std::set<int> queued;  // by their delays
    std::vector<int> order;
    const auto delayOf = [](int i) { return i * 17 % kCount + 1; };  // 1 to 40, mixed
    for (int i = 0; i < kCount; ++i) {
        calls[static_cast<size_t>(i)].action = [&order, delay = delayOf(i)] {
            order.push_back(delay);
            return -1;
        };
        ids.push_back(add(delayOf(i), calls[static_cast<size_t>(i)]));
        queued.insert(delayOf(i));
        EXPECT_EQ(timer.timeUntilNextEvent(), *queued.begin());
    }
    for (int i = 0; i < kCount; i += 3) {
        timer.removeTimedCallback(ids[static_cast<size_t>(i)]);
        queued.erase(delayOf(i));
        EXPECT_EQ(timer.timeUntilNextEvent(), *queued.begin());
    }
    for (int half = 0; half < 2; ++half) {
        advance(kCount / 2);
        timer.processEvents();
    }
    EXPECT_EQ(order, std::vector<int>(queued.begin(), queued.end()));
}

TEST_F(LumTimerTest, CallbackRemovingItselfGoesByItsReturnValue) {
    Call call;
    int id = 0;
    call.action = [&] {
        timer.removeTimedCallback(id);
        return 0;
    };
    id = add(10, call);
    advance(10);
    timer.processEvents();
    EXPECT_EQ(timer.timeUntilNextEvent(), 10);
}

TEST_F(LumTimerTest, CallbackMayRunTheDueOnesItself) {
    Call inner;
    Call outer;
    outer.action = [this] {
        timer.processEvents();
        return 0;
    };
    add(10, outer);
    add(11, inner);
    advance(11);
    timer.processEvents();
    EXPECT_EQ(outer.calls, 1);
    EXPECT_EQ(inner.calls, 1);
    EXPECT_EQ(timer.timeUntilNextEvent(), 10);
}

TEST_F(LumTimerTest, CallbackThatThrowsIsDroppedAndTheOthersRun) {
    Call throwing;
    Call other;
    throwing.action = []() -> int { throw std::runtime_error("refused"); };
    add(10, throwing);
    add(20, other);
    advance(20);
    EXPECT_NO_THROW(timer.processEvents());
    EXPECT_EQ(throwing.calls, 1);
    EXPECT_EQ(other.calls, 1);
    EXPECT_EQ(log.take(), Lines{logE("timed callback 1 dropped; it threw an exception")});
    EXPECT_EQ(timer.timeUntilNextEvent(), -1);
}

TEST_F(LumTimerTest, RemovingAnUnknownIdChangesNothing) {
    Call call;
    Call removed;
    timer.removeTimedCallback(1);
    const int id = add(10, call);
    for (const int unknown : {id + 1, 0, -1}) timer.removeTimedCallback(unknown);
    timer.removeTimedCallback(add(10, removed));
    EXPECT_EQ(timer.timeUntilNextEvent(), 10);
    advance(10);
    timer.processEvents();
    EXPECT_EQ(call.calls, 1);
    EXPECT_EQ(removed.calls, 0);
}

TEST_F(LumTimerTest, LogCountsWhatIsQueued) {
    const LogLine title = logD("LumTimer *******************************************");
    timer.log();
    EXPECT_EQ(log.take(),
              (Lines{title, logD("    items queued: 0"), logD("    next item in: -1ms")}));
    Call call;
    add(300, call);
    add(200, call);
    timer.log();
    EXPECT_EQ(log.take(),
              (Lines{title, logD("    items queued: 2"), logD("    next item in: 200ms")}));
}

TEST(LumTimerMemoryTest, AddWithoutMemoryReturnsMinusOne) {
    class Monitor : public ILumTimerMonitor {
    } monitor;  // kept, and not called
    LumTimer timer(&monitor);
    Call call;
    {
        const AllocationLimit none(0);
        EXPECT_EQ(timer.addTimedCallback(5, Call::run, &call), -1);
    }
    EXPECT_EQ(timer.timeUntilNextEvent(), -1);
    EXPECT_EQ(timer.addTimedCallback(5, Call::run, &call), 1);
}

TEST(LumTimerMemoryTest, RunningAgainNeedsNoMemory) {
    // The callback has its own place in the queue taken before it returns, at every state of the
    // queue's growth.
    for (int others = 0; others < 20; ++others) {
        LumTimer timer(nullptr);
        Call other;
        Call call;
        std::optional<AllocationLimit> none;
        call.action = [&] {
            timer.addTimedCallback(60000, Call::run, &other);
            none.emplace(0);
            return 60000;
        };
        for (int i = 0; i < others; ++i) timer.addTimedCallback(60000, Call::run, &other);
        timer.addTimedCallback(0, Call::run, &call);
        EXPECT_NO_THROW(timer.processEvents());
        none.reset();
        const LogCapture log;
        timer.log();
        EXPECT_TRUE(log.has(logD(format("    items queued: %d", others + 2))));
    }
}

TEST(LumTimerTimesTest, AddDelay) {
    expectTimes({
        {plusDelay({5, 0}, 0), {5, 0}},
        {plusDelay({5, 0}, 1), {5, 1000000}},
        {plusDelay({5, 999000000}, 1), {6, 0}},
        {plusDelay({5, 999999999}, 3600999), {3606, 998999999}},
        {plusDelay({5, 1}, 2147483647), {2147488, 647000001}},
        // Negative ones are truncated and do not borrow.
        {plusDelay({5, 200}, -1), {5, -999800}},
        {plusDelay({5, 500000000}, -1), {5, 499000000}},
        {plusDelay({5, 7}, -1000), {4, 7}},
        {plusDelay({5, 0}, -1500), {4, -500000000}},
        {plusDelay({5, 0}, -2147483648LL), {5 - 2147483, -648000000}},
        // Of all the low 32 bits, signed.
        {plusDelay({5, 0}, 0x100000001LL), {5, 1000000}},
        {plusDelay({5, 0}, 0x7FFFFFFF00000000LL), {5, 0}},
        {plusDelay({5, 0}, 0x80000000LL), {5 - 2147483, -648000000}},
        {plusDelay({5, 0}, 0xFFFFFFFFLL), {5, -1000000}},
        {plusDelay({5, 0}, std::numeric_limits<long long>::min()), {5, 0}},
    });
}

TEST(LumTimerTimesTest, SumsCarryOnceAndDifferencesBorrowOnce) {
    expectTimes({
        {sum({1, 2}, {3, 4}), {4, 6}},
        {sum({1, 500000000}, {3, 499999999}), {4, 999999999}},
        {sum({1, 500000000}, {3, 500000000}), {5, 0}},
        {sum({1, 999999999}, {3, 999999999}), {5, 999999998}},
        {sum({-1, 999999999}, {0, 1}), {0, 0}},
        {difference({4, 6}, {3, 4}), {1, 2}},
        {difference({4, 0}, {3, 1}), {0, 999999999}},
        {difference({4, 0}, {4, 0}), {0, 0}},
        {difference({4, 0}, {4, 1}), {-1, 999999999}},
        {difference({4, 1}, {6, 999999999}), {-3, 2}},
    });
}

TEST(LumTimerTimesTest, ResultMayBeAnOperand) {
    timespec time{1, 600000000};
    LumTimer::addTimeSpec(time, time, time);
    expectTimes({{time, {3, 200000000}}});
    LumTimer::subTimeSpec({5, 100000000}, time, time);
    expectTimes({{time, {1, 900000000}}});
    LumTimer::subTimeSpec(time, {1, 300000000}, time);
    expectTimes({{time, {0, 600000000}}});
}

TEST(LumTimerTimesTest, ResultsThatDoNotFitWrapAround) {
    constexpr long kMostNs = std::numeric_limits<long>::max();
    constexpr long kLeastNs = std::numeric_limits<long>::min();
    expectTimes({
        {sum({kMost, 0}, {1, 0}), {kLeast, 0}},
        {sum({kMost, 999999999}, {0, 1}), {kLeast, 0}},
        {sum({0, kMostNs}, {0, 1}), {0, kLeastNs}},
        {difference({kLeast, 0}, {1, 0}), {kMost, 0}},
        {difference({kLeast, 0}, {0, 1}), {kMost, 999999999}},
        {difference({0, kLeastNs}, {0, 1}), {0, kMostNs}},
        {plusDelay({kMost, 0}, 1000), {kLeast, 0}},
        {plusDelay({kMost, 999999999}, 1), {kLeast, 999999}},
        {plusDelay({kLeast, 0}, -2147483648LL), {kMost - 2147482, -648000000}},
    });
}

TEST(LumTimerTimesTest, CmpOrdersBySecondsThenNanoseconds) {
    EXPECT_EQ(LumTimer::cmpTimeSpec({1, 5}, {1, 5}), 0);
    EXPECT_EQ(LumTimer::cmpTimeSpec({1, 999999999}, {2, 0}), -1);
    EXPECT_EQ(LumTimer::cmpTimeSpec({2, 0}, {1, 999999999}), 1);
    EXPECT_EQ(LumTimer::cmpTimeSpec({1, 4}, {1, 5}), -1);
    EXPECT_EQ(LumTimer::cmpTimeSpec({1, 5}, {1, 4}), 1);
    EXPECT_EQ(LumTimer::cmpTimeSpec({-2, 5}, {-1, 4}), -1);
    EXPECT_EQ(LumTimer::cmpTimeSpec({kLeast, 0}, {kMost, 0}), -1);
    EXPECT_EQ(LumTimer::cmpTimeSpec({kMost, 0}, {kLeast, 999999999}), 1);
}

TEST(LumTimerTimesTest, HeapOrderIsStrictlyLaterAndNothingElse) {
    const auto due = [](long nanoseconds, int id) {
        return TimedEvent{id, {1, nanoseconds}, nullptr, nullptr, 0};
    };
    const TimedEventCmp later;
    EXPECT_TRUE(later(due(2, 1), due(1, 1)));
    EXPECT_FALSE(later(due(1, 1), due(2, 1)));
    EXPECT_FALSE(later(due(1, 1), due(1, 2)));
    EXPECT_FALSE(later(due(1, 2), due(1, 1)));
}

TEST(LumTimerTimesTest, UtcClockTimeIsInMilliseconds) {
    const RestoreSystemCalls restore;
    timespec time{};
    gSystemCalls.clockGettime = [&time](clockid_t clock, timespec* now) {
        EXPECT_EQ(clock, CLOCK_REALTIME);
        *now = time;
        return 0;
    };
    // The last two: the ends of 32-bit seconds, whose milliseconds need 42 bits.
    const std::pair<timespec, int64_t> cases[] = {{{1234567890, 987999999}, 1234567890987},
                                                  {{2147483647, 999999999}, 2147483647999},
                                                  {{-2147483647 - 1, 0}, -2147483648000}};
    for (const auto& [now, milliseconds] : cases) {
        time = now;
        EXPECT_EQ(LumTimer::getUtcClockTimeNs(), milliseconds);
    }
}

TEST(LumTimerTimesTest, UtcClockTimeWithoutAClockIsMinusOne) {
    const RestoreSystemCalls restore;
    const LogCapture log;
    gSystemCalls.clockGettime = [](clockid_t /*clock*/, timespec* /*now*/) {
        errno = EINVAL;
        return -1;
    };
    EXPECT_EQ(LumTimer::getUtcClockTimeNs(), -1);
    EXPECT_EQ(log.lines(),
              Lines{logE("getUtcClockTimeNs failed; clock_gettime(): Invalid argument")});
}

// What the function is to give, read here, in the order of the program: a processor may read its
// counter ahead of what is written before.
uint64_t countHere() {
#if defined(__aarch64__)
    uint64_t count;
    __asm__ volatile("isb\n\tmrs %0, cntvct_el0\n\tisb" : "=r"(count)::"memory");
    return count;
#elif defined(__arm__)
    uint64_t count;
    __asm__ volatile("isb\n\tmrrc p15, 1, %Q0, %R0, c14\n\tisb" : "=r"(count)::"memory");
    return count;
#else
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::nanoseconds(now).count());
#endif
}

TEST(LumTimerTimesTest, ArchTimerCountGrows) {
    if (!survives(LumTimer::getArchTimerCount)) {
        GTEST_SKIP()
            << "an illegal instruction: this processor, or its emulator, has no CNTVCT, or "
               "the system does not let programs read it";
    }
    const uint64_t first = countHere();
    uint64_t last = first;
    while (last == first) {
        const uint64_t next = LumTimer::getArchTimerCount();
        ASSERT_GE(next, last);
        ASSERT_LE(next, countHere());
        last = next;
    }
}

}  // namespace
