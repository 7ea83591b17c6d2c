// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "tools/sdfctl/Record.h"
#include "utils/Mutex.h"

// Brings the calls of callbacks, which come on the library's threads, to the main thread, in the
// order in which they came.
class EventQueue {
  public:
    // Throws std::system_error when no descriptor is left.
    EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    // Any thread.
    void push(Event event);

    // What has come since the last call. Any thread.
    std::vector<Event> take();

    // Readable while there is something to take.
    int fd() const { return mFd; }

  private:
    const int mFd;
    lum::utils::Mutex mLock;
    std::vector<Event> mEvents LUM_GUARDED_BY(mLock);
};
