// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include "proto/SdfProto.pb.h"
#include "tools/emulator/Timeline.h"

// What the user may set of the service's ways.
struct Policy {
    std::set<uid_t> deniedUids;                      // whose filters are rejected
    size_t filterLimit = 64;                         // for each feature of each client
    std::chrono::milliseconds activationDelay{0};    // 0: filters are active at once
    std::chrono::milliseconds inactivityTimeout{0};  // 0: filters stay
};

// A filter that the service keeps: pending or active.
struct Filter {
    uint32_t id;
    SdfProto::AddFilter description;  // with what updates have changed since
    std::string asked;                // the description that it was added with, encoded
    SdfProto::FilterStatus status;
    std::optional<uint32_t> targetDscp;  // none until an update sets it
    Timeline::Ticket activation;
    Timeline::Ticket timeout;
};

// Returns what messages say of a filter. text: goes with the status.
SdfProto::FilterData filterData(uint32_t id, SdfProto::FilterStatus status,
                                const std::string& text);

// The filters of one feature of one client. Belongs to the thread of its timeline.
class Filters {
  public:
    // Called with what happens to a filter in the course of time, after it has happened.
    using Changed = std::function<void(const SdfProto::FilterData& data)>;

    // uid: the client's, for its permission. policy, timeline: used as long as this object lives.
    Filters(uid_t uid, const Policy& policy, Timeline& timeline, Changed changed);
    ~Filters();
    Filters(const Filters&) = delete;
    Filters& operator=(const Filters&) = delete;

    // Adds a filter, unless something speaks against it. Returns its state then, or why there is
    // none: an error status. id: of the request, and of the filter from then on.
    SdfProto::FilterData add(uint64_t id, const SdfProto::AddFilter& description);

    // The filter of that id, null if there is none. It has been named by a request: its time of
    // inactivity begins anew.
    Filter* touch(uint32_t id);

    // Takes a filter out. Returns false if there is none of that id.
    bool remove(uint32_t id);

    // In order of addition.
    const std::list<Filter>& all() const { return mFilters; }

  private:
    SdfProto::FilterData rejection(uint64_t id, const SdfProto::AddFilter& description,
                                   const std::string& asked) const;
    // The filter of that id, null if there is none.
    Filter* find(uint32_t id);
    void startTimeout(Filter& filter);
    void activate(uint32_t id);
    void expire(uint32_t id);
    void forget(const Filter& filter);

    const uid_t mUid;
    const Policy& mPolicy;
    Timeline& mTimeline;
    const Changed mChanged;
    std::list<Filter> mFilters;
    std::unordered_map<uint32_t, std::list<Filter>::iterator> mById;
    std::unordered_map<std::string_view, uint32_t> mByDescription;  // ids, by Filter::asked
};
