// SPDX-License-Identifier: Apache-2.0
#include "utils/LumTimer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <limits>
#include <new>

#include "utils/Log.h"

namespace {

constexpr long kNsPerSecond = 1000000000;
constexpr long kNsPerMs = 1000000;
constexpr int kMsPerSecond = 1000;
constexpr int kCallbackEnds = -1;

// Two's complement sums and differences: times that do not fit wrap around instead of being
// undefined.
template <typename Number>
Number wrappingAdd(Number a, Number b) {
    Number sum;
    static_cast<void>(__builtin_add_overflow(a, b, &sum));
    return sum;
}

template <typename Number>
Number wrappingSub(Number a, Number b) {
    Number difference;
    static_cast<void>(__builtin_sub_overflow(a, b, &difference));
    return difference;
}

int runCallback(const TimedEvent& event) {
    try {
        return event.mCallback(event.mData);
    } catch (...) {
        LUM_LOGE("timed callback %d dropped; it threw an exception", event.mId);
        return kCallbackEnds;
    }
}

}  // namespace

bool TimedEventCmp::operator()(const TimedEvent& a, const TimedEvent& b) const {
    return LumTimer::cmpTimeSpec(a.mDeadline, b.mDeadline) > 0;
}

// Reserves space for count callbacks, at least doubling so that single additions stay cheap.
void LumTimer::Queue::reserve(size_t count) {
    if (count > c.capacity()) c.reserve(std::max(count, 2 * c.capacity()));
}

void LumTimer::Queue::remove(int id) {
    const auto found =
        std::find_if(c.begin(), c.end(), [id](const TimedEvent& event) { return event.mId == id; });
    if (found == c.end()) return;
    // As the earliest of all it moves to the top along its own branch, and from there out.
    found->mDeadline = {std::numeric_limits<time_t>::min(), 0};
    std::push_heap(c.begin(), found + 1, comp);
    pop();
}

LumTimer::LumTimer(ILumTimerMonitor* monitor) : mMonitor(monitor) {}

LumTimer::~LumTimer() = default;

int LumTimer::addTimedCallback(long long delay, int (*callback)(void*), void* data) {
    if (callback == nullptr) {
        LUM_LOGW("addTimedCallback failed; cannot have NULL callback function");
        return -1;
    }
    timespec deadline{};
    if (clock_gettime(CLOCK_BOOTTIME, &deadline) != 0) {
        LUM_LOGE("addTimedCallback failed; clock_gettime(): %s", strerror(errno));
        return -1;
    }
    addDelayToTimeval(delay, deadline);
    try {
        mEvents.reserve(mEvents.size() + mRunning + 1);
    } catch (const std::bad_alloc&) {
        LUM_LOGE("addTimedCallback failed; out of memory");
        return -1;
    }
    const int id = getNextTimerId();
    mEvents.push({id, deadline, callback, data, delay});
    return id;
}

void LumTimer::removeTimedCallback(int id) {
    mEvents.remove(id);
}

int LumTimer::timeUntilNextEvent() const {
    if (mEvents.empty()) return -1;
    timespec now{};
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0) {
        LUM_LOGE("timeUntilNextCallback failed; clock_gettime(): %s", strerror(errno));
        return -1;
    }
    timespec left{};
    subTimeSpec(mEvents.top().mDeadline, now, left);
    if (left.tv_sec < 0 || (left.tv_sec == 0 && left.tv_nsec <= 0)) return 0;
    // Never more than an int holds: no delay is longer than its low 32 bits say.
    return static_cast<int>(int64_t{left.tv_sec} * kMsPerSecond +
                            (left.tv_nsec + kNsPerMs - 1) / kNsPerMs);
}

void LumTimer::processEvents() {
    while (timeUntilNextEvent() == 0) {
        TimedEvent event = mEvents.top();
        mEvents.pop();
        ++mRunning;
        const int result = runCallback(event);
        --mRunning;
        if (result == kCallbackEnds) continue;
        if (clock_gettime(CLOCK_BOOTTIME, &event.mDeadline) != 0) {
            LUM_LOGE("timeUntilNextCallback failed; clock_gettime(): %s", strerror(errno));
            return;
        }
        if (result > 0) event.mDelay = result;
        if (result < 0) {
            LUM_LOGW("Invalid delay (%lld), using %lld instead", static_cast<long long>(result),
                     event.mDelay);
        }
        addDelayToTimeval(event.mDelay, event.mDeadline);
        mEvents.push(event);
    }
}

void LumTimer::log() const {
    LUM_LOGD("LumTimer *******************************************");
    LUM_LOGD("    items queued: %zu", mEvents.size());
    LUM_LOGD("    next item in: %dms", timeUntilNextEvent());
}

int LumTimer::getNextTimerId() {
    ++mLastTimerId;
    if (mLastTimerId == INT_MAX) mLastTimerId = 1;
    return mLastTimerId;
}

void LumTimer::addDelayToTimeval(long long delay, timespec& time) {
    const auto ms = static_cast<int32_t>(static_cast<uint32_t>(delay));
    timespec step{};
    step.tv_sec = ms / kMsPerSecond;
    step.tv_nsec = ms % kMsPerSecond * kNsPerMs;
    addTimeSpec(time, step, time);
}

void LumTimer::addTimeSpec(const timespec& a, const timespec& b, timespec& sum) {
    sum.tv_sec = wrappingAdd(a.tv_sec, b.tv_sec);
    sum.tv_nsec = wrappingAdd(a.tv_nsec, b.tv_nsec);
    if (sum.tv_nsec >= kNsPerSecond) {
        sum.tv_sec = wrappingAdd<time_t>(sum.tv_sec, 1);
        sum.tv_nsec -= kNsPerSecond;
    }
}

void LumTimer::subTimeSpec(const timespec& a, const timespec& b, timespec& difference) {
    difference.tv_sec = wrappingSub(a.tv_sec, b.tv_sec);
    difference.tv_nsec = wrappingSub(a.tv_nsec, b.tv_nsec);
    if (difference.tv_nsec < 0) {
        difference.tv_sec = wrappingSub<time_t>(difference.tv_sec, 1);
        difference.tv_nsec += kNsPerSecond;
    }
}

int LumTimer::cmpTimeSpec(const timespec& a, const timespec& b) {
    if (a.tv_sec != b.tv_sec) return a.tv_sec < b.tv_sec ? -1 : 1;
    if (a.tv_nsec != b.tv_nsec) return a.tv_nsec < b.tv_nsec ? -1 : 1;
    return 0;
}

int64_t LumTimer::getUtcClockTimeNs() {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        LUM_LOGE("getUtcClockTimeNs failed; clock_gettime(): %s", strerror(errno));
        return -1;
    }
    return static_cast<int64_t>(now.tv_sec) * kMsPerSecond + now.tv_nsec / kNsPerMs;
}

uint64_t LumTimer::getArchTimerCount() {
    // Without a barrier (isb) an ARM processor may read the counter before it has carried out what
    // stands in front, another read included.
#if defined(__aarch64__)
    uint64_t count;
    __asm__ volatile("isb\n\tmrs %0, cntvct_el0" : "=r"(count) : : "memory");
    return count;
#elif defined(__arm__)
    uint64_t count;
    __asm__ volatile("isb\n\tmrrc p15, 1, %Q0, %R0, c14" : "=r"(count) : : "memory");
    return count;
#else
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::nanoseconds(now).count());
#endif
}
