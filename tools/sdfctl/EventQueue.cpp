// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/EventQueue.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <utility>

EventQueue::EventQueue() : mFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mFd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void EventQueue::push(Event event) {
    const lum::utils::MutexLock guard(mLock);
    mEvents.push_back(std::move(event));
    (void)eventfd_write(mFd, 1);
}

std::vector<Event> EventQueue::take() {
    const lum::utils::MutexLock guard(mLock);
    eventfd_t ignored = 0;
    (void)eventfd_read(mFd, &ignored);
    return std::exchange(mEvents, {});
}
