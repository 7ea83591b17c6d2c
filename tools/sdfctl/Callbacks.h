// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <string>
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

// The callbacks that are given to the library: each puts an event into events(). The names of the
// events are those of the functions that ask for them, as the manual page lists them.
namespace callbacks {

// The queue; made at the first call, which the main thread makes before there is a client, and
// never destroyed, since callbacks may still come while the process ends.
EventQueue& events();

// The names of the events, in the order of the callbacks below.
const std::vector<std::string>& names();

void onStatus(int status);
void onLegacyStatus(status_e status);
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);
void onFilterAdded(unsigned int filter, SdfFilterStatus status);
void onFilterListed(unsigned int filter, SdfFilterStatus status, SdfLatencyLvl first,
                    SdfLatencyLvl second, SdfOod ood, unsigned int pdcpTimer);
void onFilterStatus(unsigned int filter, SdfFilterStatus status);
void onAutoFilter(unsigned int filter, SdfAddFilterInfo info);
void onQueueReport(unsigned int key, uint64_t first, uint64_t second);
void onQueueAnswer(unsigned int key, uint64_t first, uint64_t second);

}  // namespace callbacks
