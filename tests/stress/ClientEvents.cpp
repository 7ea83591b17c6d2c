// SPDX-License-Identifier: Apache-2.0
#include "tests/stress/ClientEvents.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "utils/NoDestroy.h"

namespace {

constexpr std::chrono::seconds kGenerous(30);

struct Record {
    std::mutex lock;
    std::condition_variable grown;
    std::vector<ClientEvent> events;
    std::function<void(const ClientEvent&)> hook;
};

// Never destroyed: a callback may come while the process exits.
NoDestroy<Record> gRecord;

void record(const ClientEvent& event) {
    Record& record = gRecord.value;
    std::function<void(const ClientEvent&)> hook;
    {
        const std::lock_guard<std::mutex> guard(record.lock);
        record.events.push_back(event);
        record.grown.notify_all();
        hook = record.hook;
    }
    if (hook) hook(event);
}

bool waitUntil(const std::function<bool(const std::vector<ClientEvent>&)>& reached) {
    Record& record = gRecord.value;
    std::unique_lock<std::mutex> guard(record.lock);
    return record.grown.wait_for(guard, kGenerous, [&] { return reached(record.events); });
}

}  // namespace

void onStatus(int status) {
    record({ClientEvent::Kind::kStatus, status, 0, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1});
}

void onLegacyStatus(status_e status) {
    record({ClientEvent::Kind::kLegacyStatus, status, 0, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1});
}

void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    record({ClientEvent::Kind::kLevels, 0, id, first, second});
}

void setEventHook(std::function<void(const ClientEvent&)> hook) {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    gRecord.value.hook = std::move(hook);
}

std::vector<ClientEvent> clientEvents() {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    return gRecord.value.events;
}

void forgetClientEvents() {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    // With its memory, so that heap blocks can be counted.
    std::vector<ClientEvent>().swap(gRecord.value.events);
}

std::vector<int> statuses() {
    std::vector<int> codes;
    for (const ClientEvent& event : clientEvents()) {
        if (event.kind == ClientEvent::Kind::kStatus) codes.push_back(event.status);
    }
    return codes;
}

bool waitForStatus(int status, size_t times) {
    return waitUntil([&](const std::vector<ClientEvent>& events) {
        const auto count = std::count_if(events.begin(), events.end(), [&](const ClientEvent& e) {
            return e.kind == ClientEvent::Kind::kStatus && e.status == status;
        });
        return static_cast<size_t>(count) >= times;
    });
}

std::optional<ClientEvent> waitForLevels(long long id) {
    std::optional<ClientEvent> found;
    waitUntil([&](const std::vector<ClientEvent>& events) {
        for (const ClientEvent& event : events) {
            if (event.kind == ClientEvent::Kind::kLevels && event.id == id) found = event;
        }
        return found.has_value();
    });
    return found;
}
