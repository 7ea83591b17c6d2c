// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <queue>
#include <vector>

#include "utils/Export.h"

// Whoever creates a LumTimer may hand it a monitor. The timer keeps the pointer and calls nothing
// on it.
class ILumTimerMonitor {
  public:
    virtual ~ILumTimerMonitor() = default;
};

// One timed callback that waits in a LumTimer.
struct TimedEvent {
    int mId;                  // what addTimedCallback returned
    timespec mDeadline;       // CLOCK_BOOTTIME
    int (*mCallback)(void*);  // never null
    void* mData;              // given to the callback
    long long mDelay;         // milliseconds until it is due again after it ran
};

// Heap order of timed callbacks: true when a is due strictly later than b. Equal deadlines come out
// in whatever order the heap yields.
struct TimedEventCmp {
    bool operator()(const TimedEvent& a, const TimedEvent& b) const;
};

// Timed callbacks, ordered by their deadline on the boot-time clock.
//
// Takes no lock: an object belongs to one thread, the one that runs the event loop, and its
// callbacks run there. A callback may add and remove timed callbacks. Lets no exception out.
class LUM_EXPORT LumTimer {
  public:
    // monitor: may be null; not owned, never called.
    explicit LumTimer(ILumTimerMonitor* monitor);
    // Drops what is still queued without calling it.
    ~LumTimer();
    LumTimer(const LumTimer&) = delete;
    LumTimer& operator=(const LumTimer&) = delete;

    // Queues a callback.
    // delay: milliseconds from now. Only the low 32 bits, as a signed number, make the first
    // deadline; zero and negative delays are due at once. The whole value is kept for running it
    // again.
    // callback: not null. It returns -1 to end, a positive number to run again after that many
    // milliseconds, which become its delay, and 0 to run again after the delay it has. With a delay
    // of 0 that is at once, without end. Other negative values count as 0 and are logged. One that
    // throws is dropped.
    // data: passed to the callback; not owned; may be null.
    // Returns its id, 1 to 2147483646, or -1 (null callback, no clock, no memory).
    int addTimedCallback(long long delay, int (*callback)(void*), void* data);

    // Takes the callback with this id out of the queue, if it is there, without calling it. One
    // that is just running is not in the queue: it ends by returning -1.
    void removeTimedCallback(int id);

    // Milliseconds, rounded up, until the earliest callback is due: 0 when it is due already, -1
    // when nothing is queued or the clock fails.
    int timeUntilNextEvent() const;

    // Runs all callbacks that are due, also those that become due meanwhile.
    void processEvents();

    // Logs how many callbacks are queued and when the next is due.
    void log() const;

    // Draws the next id: 1 to 2147483646, then 1 again, whether or not that one is still queued.
    int getNextTimerId();

    // Adds delay milliseconds to time: low 32 bits of the delay, signed, with one carry of a whole
    // second out of the nanoseconds. A negative delay can leave negative nanoseconds.
    static void addDelayToTimeval(long long delay, timespec& time);
    // sum = a + b, with one carry. sum may be a or b.
    static void addTimeSpec(const timespec& a, const timespec& b, timespec& sum);
    // difference = a - b, with one borrow. difference may be a or b.
    static void subTimeSpec(const timespec& a, const timespec& b, timespec& difference);
    // -1, 0 or 1 when a is earlier than, equal to or later than b.
    static int cmpTimeSpec(const timespec& a, const timespec& b);
    // Milliseconds (the name notwithstanding) since the epoch on the real-time clock; -1 when it
    // fails.
    static int64_t getUtcClockTimeNs();
    // The processor's architectural virtual timer count (CNTVCT) on ARM. Processors without that
    // counter give nanoseconds of the system's steady clock, which like the counter never go back.
    // On an ARM system that does not let programs read it, the call ends in an illegal instruction.
    static uint64_t getArchTimerCount();

  private:
    friend class LumTimerPeer;  // tests: the last id, and where members lie

    class Queue : public std::priority_queue<TimedEvent, std::vector<TimedEvent>, TimedEventCmp> {
      public:
        void reserve(size_t count);
        void remove(int id);
    };

    Queue mEvents;
    ILumTimerMonitor* mMonitor;
    int mLastTimerId = 0;
    // Callbacks taken out of the queue and not yet back. The queue keeps space for them, so that
    // running one again needs no memory.
    size_t mRunning = 0;
};

namespace lum::utils {
using ::ILumTimerMonitor;
using ::LumTimer;
using ::TimedEvent;
using ::TimedEventCmp;
}  // namespace lum::utils
