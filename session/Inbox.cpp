// SPDX-License-Identifier: Apache-2.0
#include "session/Inbox.h"

#include <sys/eventfd.h>

#include <new>
#include <utility>

namespace {

bool isReport(const Event& event) {
    return std::holds_alternative<ReportEvent>(event) ||
           std::holds_alternative<AutoFilterEvent>(event);
}

}  // namespace

Inbox& Inbox::instance() {
    static Inbox& inbox = *new Inbox;
    return inbox;
}

void Inbox::attach(int eventFd) {
    const std::lock_guard<std::mutex> guard(mLock);
    mEventFd = eventFd;
}

void Inbox::detach() {
    accept(kNoLane);
    const std::lock_guard<std::mutex> guard(mLock);
    mEventFd = -1;
}

void Inbox::accept(int lane) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mEventFd < 0) return;
    mLane = lane;
    mEvents = std::vector<Event>();
    mComplete = true;
}

void Inbox::push(int lane, Event&& event) noexcept {
    const std::lock_guard<std::mutex> guard(mLock);
    if (lane != mLane || mEventFd < 0) return;
    const bool wasEmpty = mEvents.empty() && mComplete;
    if (mEvents.size() >= kMostReports && isReport(event)) return;
    try {
        if (mEvents.size() >= kMostEvents) throw std::bad_alloc();
        mEvents.push_back(std::move(event));
    } catch (const std::bad_alloc&) {
        mComplete = false;
    }
    if (wasEmpty) (void)eventfd_write(mEventFd, 1);
}

bool Inbox::take(std::vector<Event>& events) {
    const std::lock_guard<std::mutex> guard(mLock);
    eventfd_t ignored = 0;
    (void)eventfd_read(mEventFd, &ignored);
    mEvents.swap(events);
    return std::exchange(mComplete, true);
}
