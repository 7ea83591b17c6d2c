// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>

#include "proto/SdfProto.pb.h"
#include "tools/emulator/Filters.h"
#include "tools/emulator/Timeline.h"

// The priority-queue reports of one feature of one client. Belongs to the thread of its timeline.
//
// There is a queue for each priority class (SdfFilterAppType, 0 to 32) that an active filter has
// asked for, and always one for best effort (32). A report has an entry for each, in that order:
// the class, the packets, and the bytes that have passed. There is no traffic to count, so every
// report finds 1000 packets more for each filter of a class, and for best effort itself, with 1200
// bytes each. The figures begin at 2^32 packets, as on a device that has been up for long, so that
// a reader who keeps but 32 bits of them shows.
class QueueReports {
  public:
    static constexpr std::chrono::milliseconds kShortestInterval{10};
    static constexpr std::chrono::milliseconds kUsualInterval{1000};

    // filters, timeline: used as long as this object lives. send: sends a periodic report.
    QueueReports(const Filters& filters, Timeline& timeline,
                 std::function<void(const SdfProto::ClientMsg&)> send);
    ~QueueReports() { stop(); }
    QueueReports(const QueueReports&) = delete;
    QueueReports& operator=(const QueueReports&) = delete;

    // Makes a report.
    SdfProto::ClientMsg make();

    // Reports every `milliseconds` from now on, the first after that time; in place of the interval
    // before. 0 stands for the usual interval, and what is too short for the shortest.
    void start(uint32_t milliseconds);
    void stop();

    // What was asked for, and what became of it; none while stopped.
    struct Registration {
        uint32_t milliseconds;
        std::chrono::milliseconds interval;
    };
    const std::optional<Registration>& registration() const { return mRegistration; }

  private:
    void plan();

    const Filters& mFilters;
    Timeline& mTimeline;
    const std::function<void(const SdfProto::ClientMsg&)> mSend;
    std::map<uint32_t, uint64_t> mPackets;  // by class, also of those that are empty now
    std::optional<Registration> mRegistration;
    Timeline::Ticket mNext;
};
