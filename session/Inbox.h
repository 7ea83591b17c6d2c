// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <variant>
#include <vector>

// What the library's callbacks bring, on its threads, until the session dispatches it.

struct StatusEvent {
    int status;
};
struct AddedEvent {  // the answer to a filter's add
    unsigned int id;
    SdfFilterStatus status;
};
struct FilterEvent {  // a filter's state, unasked
    unsigned int id;
    SdfFilterStatus status;
};
struct LevelsEvent {
    long long id;
    SdfLatencyLvl first;
    SdfLatencyLvl second;
};
struct ReportEntry {
    unsigned int key;
    uint64_t first;
    uint64_t second;
};
struct ReportEvent {
    ReportEntry entry;
};
struct AutoFilterEvent {
    unsigned int id;
    std::unique_ptr<const SdfAddFilterInfo> info;
};
struct ListEntry {
    unsigned int id;
    SdfFilterStatus status;
    SdfLatencyLvl first;
    SdfLatencyLvl second;
    SdfOod ood;
    unsigned int pdcpTimer;
};
// An entry of the answer to one question; `turn` tells two questions apart that follow each other.
template <typename Entry>
struct AnswerEvent {
    unsigned int turn;
    Entry entry;
};
struct ClientMadeEvent {
    long long result;  // of createSdfClient(), or SDF_V2_INTERNAL_ERROR
};

using Event =
    std::variant<StatusEvent, AddedEvent, FilterEvent, LevelsEvent, ReportEvent, AutoFilterEvent,
                 AnswerEvent<ListEntry>, AnswerEvent<ReportEntry>, ClientMadeEvent>;

// The one inbox of the process: the library's callbacks carry no user data. Never destroyed, as
// they may come late. All functions: any thread.
class Inbox {
  public:
    static constexpr int kNoLane = -1;

    static Inbox& instance();

    // From now on this eventfd is readable while there are events. It must stay open until detach()
    // has returned. Accepts no lane yet.
    void attach(int eventFd);
    // Drops everything, until the next attach().
    void detach();

    // Drops what is there; from now on takes only what comes by this lane.
    void accept(int lane);

    void push(int lane, Event&& event) noexcept;

    // Hands over all events; `events` must be empty. False when some could not be kept, for want of
    // memory or of a session that dispatches: what is known of the service is incomplete then.
    bool take(std::vector<Event>& events);

  private:
    // Reports beyond the first are dropped; too many of the other events are an error.
    static constexpr size_t kMostReports = 4096;
    static constexpr size_t kMostEvents = 65536;

    std::mutex mLock;
    std::vector<Event> mEvents;
    int mEventFd = -1;
    int mLane = kNoLane;
    bool mComplete = true;
};
