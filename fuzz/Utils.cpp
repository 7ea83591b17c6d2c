// SPDX-License-Identifier: Apache-2.0
// A program for an event manager, its timer and queues, on a system that the input controls. A
// model says which callbacks may come: those of descriptors that are registered and ready, of
// timers that are due, of values in the order in which they were posted. Each removal is carried
// out once, and what was not given up is not closed.
#include <algorithm>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/FakeKernel.h"
#include "fuzz/Input.h"
#include "utils/EventManager.h"
#include "utils/LumEventHandler.h"
#include "utils/LumTimer.h"

using lum::utils::EventManager;
using lum::utils::LumEventHandler;

namespace {

constexpr unsigned int kMostDepth = 3;
constexpr size_t kMostDescriptors = 24;
constexpr uint32_t kHangUp = EPOLLERR | EPOLLHUP | EPOLLRDHUP;

struct Thrown {};

class Program;

// What the callbacks of one registration of a descriptor, of one removal and of one timer are
// given.
struct Registration {
    Program& program;
    int fd;
    bool hasCallback;
    bool hasCloseCallback;
};
struct Ending {
    Program& program;
    int fd;
};
struct Timed {
    Program& program;
    int id;
    timespec deadline;
    long long delay;
    bool queued;
};

class Queue : public LumEventHandler<int> {
  public:
    Queue(Program& program, EventManager& manager, LumTimer& timer)
        : LumEventHandler(manager, timer, "queue"), mProgram(program) {}
    void handleEvent(int value) override;

    int fd = -1;
    std::deque<int> posted;
    int handling = 0;  // calls of handleEvent() under way

  private:
    Program& mProgram;
};

class Program : private FakeKernel::Watcher {
  public:
    explicit Program(Input& input);
    void run();

    void onEvent(int fd, Registration* registration);
    void onCloseCallback(int fd, Registration* registration);
    void onDone(Ending* ending);
    void onQueued(Queue& queue, int value);
    int onTimer(Timed& timed);

  private:
    struct Removal {
        int fd;
        bool closes;
        Ending* ending;   // called in the place of closing
        bool disowned;    // the number is another descriptor's by now
        bool carriedOut;  // as far as epoll is concerned
    };
    // Of one processEvents(): what epoll reported, how far it has been handled.
    struct Pass {
        std::vector<epoll_event> events{};
        int registered = 0;  // how many had been by then
        size_t next = 0;
        bool removes = false;
        Queue* draining = nullptr;
    };

    void nested();
    void step();
    int newFd();
    int anyFd();
    bool isQueue(int fd) const;
    void add(int fd);
    void nowRegistered(int fd, Registration* registration);
    void remove(int fd);
    void removeAtOnce(int fd);
    void nowHungUp(int fd);
    void disturb(int fd);
    void closeOwn(int fd);
    void approve(int fd);
    void refuse();
    void addQueue();
    void useQueue();
    void giveUp(const Queue& queue);
    void destroyQueue(size_t index);
    void addTimer();
    void useTimers();
    void pass();
    void end();

    void onReady(const std::vector<epoll_event>& events) override;
    void onUnwatch(int fd) override;
    void onClose(int fd) override;
    // The manager handles the events of the pass up to one of this descriptor, or all that are
    // left.
    void advanceTo(int fd);
    static constexpr int kEnd = -1;
    // The manager is done with an event of this queue's descriptor.
    void expectDrained(int fd);

    // Null when none is queued.
    const Timed* firstTimed() const;
    int timeUntilNextEvent() const;
    timespec deadlineAfter(long long delay) const;

    Input& mInput;
    FakeKernel mKernel;
    LumTimer mTimer{nullptr};
    std::unique_ptr<EventManager> mManager;
    int mWakeFd = -1;
    int mRemoveFd = -1;
    unsigned int mDepth = 0;
    bool mEnding = false;

    std::list<Registration> mRegistrations;
    std::list<Ending> mEndings;
    std::map<int, Registration*> mRegistered;  // null for the manager's own and queues
    std::map<int, int> mSerials;               // how many were registered before, by number
    int mRegistrationCount = 0;
    std::set<int> mApproved;
    std::set<int> mOwned;  // by the program, which may close them
    std::list<Removal> mPending;
    Registration* mAwaitedClose = nullptr;
    std::vector<Pass*> mPasses;  // the outermost first
    std::vector<std::unique_ptr<Queue>> mQueues;
    int mUnwatched = -1;  // of a queue that the manager refused: its destructor closes it
    int mPosted = 0;
    std::list<Timed> mTimed;
    int mLastTimer = 0;
};

void Queue::handleEvent(int value) {
    mProgram.onQueued(*this, value);
}

Program::Program(Input& input) : mInput(input), mKernel(input) {
    mManager = std::make_unique<EventManager>();
    // Its epoll instance has the lowest number, then comes what wakes it, then what removes.
    const auto own = mKernel.descriptors().begin();
    mWakeFd = std::next(own, 1)->first;
    mRemoveFd = std::next(own, 2)->first;
    mApproved = {mWakeFd, mRemoveFd};
    for (const int fd : mApproved) mRegistered[fd] = nullptr;
    mKernel.watcher = this;
}

void Program::run() {
    while (!mInput.empty()) step();
    end();
}

void Program::nested() {
    if (mDepth == kMostDepth) return;
    ++mDepth;
    for (unsigned int left = mInput.pick(4); left > 0 && !mInput.empty(); --left) step();
    --mDepth;
}

void Program::step() {
    switch (mInput.pick(20)) {
        case 0:
        case 1: add(newFd()); break;
        case 2: add(anyFd()); break;
        case 3:
        case 4: remove(anyFd()); break;
        case 5: removeAtOnce(anyFd()); break;
        case 6:
        case 7: disturb(anyFd()); break;
        case 8: closeOwn(anyFd()); break;
        case 9:
        case 10:
        case 11: pass(); break;
        case 12: approve(anyFd()); break;
        case 13: addQueue(); break;
        case 14:
        case 15: useQueue(); break;
        case 16: addTimer(); break;
        case 17: useTimers(); break;
        case 18: mManager->wake(); break;
        default: refuse(); break;
    }
    checkEqual("the number of descriptors", mManager->getNumRegisteredFds(),
               static_cast<int>(mApproved.size()) - 2);
    checkEqual("the time until the next timer", mTimer.timeUntilNextEvent(), timeUntilNextEvent());
}

int Program::newFd() {
    if (mKernel.descriptors().size() >= kMostDescriptors) return anyFd();
    const int fd = mKernel.open(mInput.flag());
    if (fd != -1) mOwned.insert(fd);
    return fd;
}

// One that is open and no queue's, rarely one that is not open.
int Program::anyFd() {
    std::vector<int> all;
    for (const auto& open : mKernel.descriptors()) {
        if (open.first > mRemoveFd && !isQueue(open.first)) all.push_back(open.first);
    }
    if (!all.empty() && !mInput.rarely(16)) return all[mInput.byte() % all.size()];
    return mRemoveFd + static_cast<int>(kMostDescriptors + mInput.pick(4));
}

bool Program::isQueue(int fd) const {
    return std::any_of(mQueues.begin(), mQueues.end(),
                       [fd](const auto& queue) { return queue->fd == fd; });
}

void Program::add(int fd) {
    mRegistrations.push_back({*this, fd, !mInput.rarely(8), mInput.flag()});
    Registration& registration = mRegistrations.back();
    constexpr int kEvents[] = {EPOLLIN | EPOLLHUP, EPOLLIN, EPOLLIN | EPOLLOUT, EPOLLOUT};
    const bool expected = mRegistered.count(fd) == 0 && !mKernel.nextCtlFails &&
                          mKernel.isOpen(fd) && !mKernel.isWatched(fd);
    const auto onReadable = [](int of, void* data) {
        auto* const given = static_cast<Registration*>(data);
        given->program.onEvent(of, given);
    };
    const auto onRefused = [](int of, void* data) {
        auto* const given = static_cast<Registration*>(data);
        given->program.onCloseCallback(of, given);
    };
    const bool added = mManager->addEventHandler(
        fd, registration.hasCallback ? +onReadable : nullptr, &registration,
        registration.hasCloseCallback ? +onRefused : nullptr, kEvents[mInput.pick(4)]);
    checkEqual("what addEventHandler() returns", added, expected);
    if (added) nowRegistered(fd, &registration);
}

void Program::nowRegistered(int fd, Registration* registration) {
    mRegistered[fd] = registration;
    mSerials[fd] = mRegistrationCount++;
    mApproved.insert(fd);
    for (Removal& removal : mPending) {
        if (removal.fd == fd && !removal.carriedOut) removal.disowned = true;
    }
}

void Program::remove(int fd) {
    const bool closes = mInput.flag();
    Ending* ending = nullptr;
    if (mInput.flag()) {
        mEndings.push_back({*this, fd});
        ending = &mEndings.back();
    }
    const auto found = mRegistered.find(fd);
    if (found != mRegistered.end()) {
        Registration* const registration = found->second;
        mRegistered.erase(found);
        mApproved.erase(fd);
        mPending.push_back({fd, closes, closes ? ending : nullptr, false, false});
        if (mKernel.nextWriteFails && registration->hasCloseCallback) mAwaitedClose = registration;
    }
    const auto onEnd = [](void* data) {
        auto* const given = static_cast<Ending*>(data);
        given->program.onDone(given);
    };
    mManager->removeEventHandler(fd, closes, ending == nullptr ? nullptr : +onEnd, ending);
    check(mAwaitedClose == nullptr, "did not call the close callback");
}

void Program::onCloseCallback(int fd, Registration* registration) {
    check(registration == mAwaitedClose && fd == registration->fd, "called a close callback");
    mAwaitedClose = nullptr;
}

void Program::removeAtOnce(int fd) {
    if (mRegistered.count(fd) == 0) return;
    nowHungUp(fd);
    mManager->immediatelyRemoveEventHandler(fd);
}

void Program::nowHungUp(int fd) {
    mApproved.erase(fd);
    mRegistered.erase(fd);
    const bool concerned =
        std::any_of(mPending.begin(), mPending.end(), [fd](const Removal& removal) {
            return removal.fd == fd && !removal.disowned && !removal.carriedOut;
        });
    if (!concerned) mPending.push_back({fd, true, nullptr, false, false});
}

void Program::disturb(int fd) {
    if (!mKernel.isOpen(fd)) return;
    FakeKernel::Descriptor& descriptor = mKernel.at(fd);
    switch (mInput.pick(8)) {
        case 5: descriptor.count = 0; break;
        case 6: descriptor.hungUp = true; break;
        case 7: descriptor.odd = mInput.flag() ? EPOLLPRI : EPOLLERR; break;
        default: ++descriptor.count; break;
    }
}

void Program::closeOwn(int fd) {
    const bool given = std::any_of(mPending.begin(), mPending.end(), [fd](const Removal& removal) {
        return removal.fd == fd && removal.closes && removal.ending == nullptr && !removal.disowned;
    });
    if (mRegistered.count(fd) != 0 || given || mOwned.erase(fd) == 0) return;
    mKernel.close(fd);
}

void Program::approve(int fd) {
    // To approve of one that is about to be closed would have the next one of its number closed.
    const bool removed =
        std::any_of(mPending.begin(), mPending.end(),
                    [fd](const Removal& removal) { return removal.fd == fd && !removal.disowned; });
    if (mInput.flag()) {
        if (removed) return;
        mManager->addApprovedFd(fd);
        mApproved.insert(fd);
    } else {
        mManager->remApprovedFd(fd);
        mApproved.erase(fd);
    }
    checkEqual("what isApprovedFd() returns", mManager->isApprovedFd(fd), mApproved.count(fd) != 0);
}

void Program::refuse() {
    switch (mInput.pick(6)) {
        case 0: mKernel.nextWriteFails = true; break;
        case 1: mKernel.nextReadFails = true; break;
        case 2: mKernel.nextCtlFails = true; break;
        case 3: mKernel.nextOpenFails = true; break;
        default: mKernel.setClockFails(!mKernel.clockFails()); break;
    }
}

void Program::addQueue() {
    if (mKernel.descriptors().size() >= kMostDescriptors) return;
    const bool accepts = !mKernel.nextCtlFails;
    auto queue = std::make_unique<Queue>(*this, *mManager, mTimer);
    queue->fd = mKernel.lastOpened();
    const bool registered = accepts && queue->fd != -1;
    checkEqual("what isRegistered() returns", queue->isRegistered(), registered);
    if (registered) nowRegistered(queue->fd, nullptr);
    mQueues.push_back(std::move(queue));
}

void Program::useQueue() {
    if (mQueues.empty()) return;
    const size_t index = mInput.byte() % mQueues.size();
    Queue& queue = *mQueues[index];
    if (mInput.rarely(8)) {
        if (queue.handling == 0) destroyQueue(index);
    } else if (mInput.rarely(16)) {
        if (!mPasses.empty()) return;
        giveUp(queue);
        queue.detach();
        queue.posted.clear();
        queue.fd = -1;
    } else if (queue.isRegistered()) {
        // A value whose signal is refused waits for the next one's.
        queue.posted.push_back(++mPosted);
        queue.postEvent(mPosted);
    } else if (queue.fd == -1) {
        queue.postEvent(++mPosted);
    }
}

void Program::giveUp(const Queue& queue) {
    if (!queue.isRegistered()) {
        mUnwatched = queue.fd;
        return;
    }
    mRegistered.erase(queue.fd);
    mApproved.erase(queue.fd);
    mPending.push_back({queue.fd, true, nullptr, false, false});
}

void Program::destroyQueue(size_t index) {
    const Queue& queue = *mQueues[index];
    for (Pass* const pass : mPasses) {
        if (pass->draining == &queue) pass->draining = nullptr;
    }
    giveUp(queue);
    mQueues.erase(mQueues.begin() + static_cast<std::ptrdiff_t>(index));
}

void Program::onQueued(Queue& queue, int value) {
    check(!mPasses.empty(), "handled a value outside a pass");
    if (mPasses.back()->draining != &queue) advanceTo(queue.fd);
    mPasses.back()->draining = &queue;
    check(!queue.posted.empty() && queue.posted.front() == value, "handled another value");
    queue.posted.pop_front();
    ++queue.handling;
    nested();
    --queue.handling;
    if (mInput.rarely(16)) throw Thrown();
}

void Program::onEvent(int fd, Registration* registration) {
    advanceTo(fd);
    check(mRegistered.at(fd) == registration, "called with the data of another registration");
    nested();
    if (mInput.rarely(16)) throw Thrown();
}

void Program::onDone(Ending* ending) {
    if (!mPasses.empty()) advanceTo(kEnd);
    const auto found = std::find_if(mPending.begin(), mPending.end(), [&](const Removal& removal) {
        return removal.ending == ending;
    });
    check(found != mPending.end(), "ended a removal that is not pending");
    check(found->disowned || found->carriedOut, "ended a removal that epoll does not know of");
    mPending.erase(found);
    if (mInput.flag()) closeOwn(ending->fd);
    nested();
    if (mInput.rarely(16)) throw Thrown();
}

void Program::pass() {
    Pass pass;
    mPasses.push_back(&pass);
    bool thrown = false;
    try {
        mManager->processEvents(mInput.rarely(4) ? nullptr : &mTimer);
    } catch (const Thrown&) {
        thrown = true;
    }
    if (!thrown) {
        advanceTo(kEnd);
        if (pass.removes) {
            const bool left =
                std::any_of(mPending.begin(), mPending.end(), [](const Removal& removal) {
                    return !removal.disowned || removal.ending != nullptr;
                });
            check(!left, "left a removal");
            mPending.clear();
        }
    }
    mPasses.pop_back();
}

void Program::onReady(const std::vector<epoll_event>& events) {
    mPasses.back()->events = events;
    mPasses.back()->registered = mRegistrationCount;
}

void Program::advanceTo(int fd) {
    check(!mPasses.empty(), "called outside a pass");
    Pass& pass = *mPasses.back();
    if (pass.draining != nullptr) expectDrained(pass.draining->fd);
    pass.draining = nullptr;
    while (pass.next < pass.events.size()) {
        const epoll_event event = pass.events[pass.next++];
        const int ready = event.data.fd;
        if (ready == mRemoveFd) pass.removes = true;
        if (ready <= mRemoveFd || mApproved.count(ready) == 0) continue;
        const auto found = mRegistered.find(ready);
        // The event is of an earlier one with this number.
        if (found != mRegistered.end() && mSerials[ready] >= pass.registered) continue;
        if ((event.events & kHangUp) != 0) {
            nowHungUp(ready);
        } else if ((event.events & EPOLLIN) != 0 && found != mRegistered.end()) {
            if (ready == fd) return;
            // A queue may find that another pass has emptied it.
            if (found->second == nullptr) {
                expectDrained(ready);
            } else {
                check(!found->second->hasCallback, "did not call for a descriptor that is ready");
            }
        }
    }
    check(fd == kEnd, "called for a descriptor that is not ready");
}

void Program::expectDrained(int fd) {
    check(mKernel.at(fd).count == 0 || mKernel.couldNotRead(fd), "left values in a queue");
}

void Program::onUnwatch(int fd) {
    if (!mPasses.empty()) advanceTo(kEnd);
    const auto found = std::find_if(mPending.begin(), mPending.end(), [fd](const Removal& removal) {
        return removal.fd == fd && !removal.disowned && !removal.carriedOut;
    });
    check(found != mPending.end(), "took a descriptor out of epoll that nobody removed");
    found->carriedOut = true;
    if (!found->closes) mPending.erase(found);
}

void Program::onClose(int fd) {
    if (mEnding) return;
    if (fd == std::exchange(mUnwatched, -1)) return;
    const auto found = std::find_if(mPending.begin(), mPending.end(), [fd](const Removal& removal) {
        return removal.fd == fd && removal.carriedOut && removal.ending == nullptr;
    });
    check(found != mPending.end(), "closed a descriptor that was not given up");
    mPending.erase(found);
    mOwned.erase(fd);
}

void Program::addTimer() {
    const auto delay = mInput.number<long long>();
    const timespec deadline = deadlineAfter(delay);
    const int expected = mKernel.clockFails() ? -1 : ++mLastTimer;
    mTimed.push_back({*this, expected, deadline, delay, expected != -1});
    const auto onTime = [](void* data) {
        auto& timed = *static_cast<Timed*>(data);
        return timed.program.onTimer(timed);
    };
    checkEqual("a timer's id", mTimer.addTimedCallback(delay, onTime, &mTimed.back()), expected);
}

void Program::useTimers() {
    switch (mInput.pick(4)) {
        case 0: {
            const auto timed = std::next(
                mTimed.begin(), static_cast<std::ptrdiff_t>(mInput.byte() % (mTimed.size() + 1)));
            if (timed != mTimed.end()) timed->queued = false;
            mTimer.removeTimedCallback(timed == mTimed.end() ? mInput.number<int>() | 1 << 20
                                                             : timed->id);
            break;
        }
        case 1: mTimer.log(); break;
        case 2:
            mTimer.processEvents();
            check(mKernel.clockFails() || timeUntilNextEvent() != 0, "left a timer that is due");
            break;
        default: mKernel.advance(mInput.number<uint16_t>()); break;
    }
}

int Program::onTimer(Timed& timed) {
    check(timed.queued, "ran a timer that is not queued");
    check(timeUntilNextEvent() == 0 &&
              LumTimer::cmpTimeSpec(firstTimed()->deadline, timed.deadline) == 0,
          "ran a timer before its time");
    timed.queued = false;
    nested();
    if (mInput.empty() || mInput.rarely(4)) return -1;
    if (mInput.rarely(16)) throw Thrown();
    const int result = std::max(mInput.number<int>(), -5);
    if (result == -1 || mKernel.clockFails()) return result;
    if (result > 0) timed.delay = result;
    timed.deadline = deadlineAfter(timed.delay);
    timed.queued = true;
    return result;
}

const Timed* Program::firstTimed() const {
    const Timed* first = nullptr;
    for (const Timed& timed : mTimed) {
        if (!timed.queued) continue;
        if (first == nullptr || LumTimer::cmpTimeSpec(timed.deadline, first->deadline) < 0) {
            first = &timed;
        }
    }
    return first;
}

int Program::timeUntilNextEvent() const {
    const Timed* const first = firstTimed();
    if (first == nullptr || mKernel.clockFails()) return -1;
    constexpr int64_t kNsPerMs = 1000000;
    const timespec now = mKernel.now();
    const int64_t left = (first->deadline.tv_sec - now.tv_sec) * 1000 * kNsPerMs +
                         (first->deadline.tv_nsec - now.tv_nsec);
    return left <= 0 ? 0 : static_cast<int>((left + kNsPerMs - 1) / kNsPerMs);
}

timespec Program::deadlineAfter(long long delay) const {
    const auto low = static_cast<int32_t>(static_cast<uint32_t>(delay));
    timespec deadline = mKernel.now();
    deadline.tv_sec += low / 1000;
    deadline.tv_nsec += low % 1000 * 1000000L;
    if (deadline.tv_nsec >= 1000000000) {
        deadline.tv_nsec -= 1000000000;
        ++deadline.tv_sec;
    }
    return deadline;
}

void Program::end() {
    while (!mQueues.empty()) destroyQueue(mQueues.size() - 1);
    std::set<int> given;
    for (const Removal& removal : mPending) {
        if (removal.closes && removal.ending == nullptr && !removal.disowned)
            given.insert(removal.fd);
    }
    mEnding = true;
    mManager.reset();
    for (const Removal& removal : mPending) check(removal.ending == nullptr, "left a removal");
    for (const int fd : given) mOwned.erase(fd);
    std::set<int> open;
    for (const auto& descriptor : mKernel.descriptors()) open.insert(descriptor.first);
    check(open == mOwned, "closed or left descriptors");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr size_t kMostBytes = 1024;
    if (size > kMostBytes) return 0;
    Input input(bytes, size);
    Program(input).run();
    return 0;
}
