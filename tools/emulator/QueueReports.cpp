// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/QueueReports.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint32_t kBestEffort = 32;
constexpr uint64_t kPacketsBefore = uint64_t{1} << 32U;
constexpr uint64_t kPacketsEach = 1000;
constexpr uint64_t kBytesEach = 1200;

// The messages' numbers are one more than the classes.
uint32_t classOf(const Filter& filter) {
    const int number = filter.description.app_type();
    return number == SdfProto::APP_TYPE_NONE ? 0 : static_cast<uint32_t>(number - 1);
}

// How many sources each queue has.
std::map<uint32_t, uint64_t> queuesOf(const Filters& filters) {
    std::map<uint32_t, uint64_t> queues{{kBestEffort, 1}};
    for (const Filter& filter : filters.all()) {
        if (filter.status == SdfProto::FILTER_ACTIVE) ++queues[classOf(filter)];
    }
    return queues;
}

}  // namespace

QueueReports::QueueReports(const Filters& filters, Timeline& timeline,
                           std::function<void(const SdfProto::ClientMsg&)> send)
    : mFilters(filters), mTimeline(timeline), mSend(std::move(send)) {}

SdfProto::ClientMsg QueueReports::make() {
    SdfProto::ClientMsg message;
    message.set_event_id(SdfProto::PRIORITY_QUEUE_REPORT_CB);
    auto* const report = message.mutable_data()->mutable_priority_queue_report_cb();
    for (const auto& [key, sources] : queuesOf(mFilters)) {
        uint64_t& packets = mPackets.try_emplace(key, kPacketsBefore).first->second;
        packets += kPacketsEach * sources;
        SdfProto::Entry* const entry = report->add_entries();
        entry->set_entry_key(key);
        entry->set_first_value(packets);
        entry->set_second_value(packets * kBytesEach);
    }
    return message;
}

void QueueReports::start(uint32_t milliseconds) {
    stop();
    const std::chrono::milliseconds wanted(milliseconds);
    mRegistration = {milliseconds,
                     milliseconds == 0 ? kUsualInterval : std::max(wanted, kShortestInterval)};
    plan();
}

void QueueReports::stop() {
    mTimeline.cancel(mNext);
    mRegistration.reset();
}

void QueueReports::plan() {
    mNext = mTimeline.after(mRegistration->interval, [this] {
        plan();
        mSend(make());
    });
}
