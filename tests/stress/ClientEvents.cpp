// SPDX-License-Identifier: Apache-2.0
#include "tests/stress/ClientEvents.h"

#include <arpa/inet.h>
#include <netinet/in.h>

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

void recordStatus(ClientEvent::Kind kind, int status, const std::string& what) {
    record({kind, status, 0, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, what + std::to_string(status)});
}

void recordFilter(ClientEvent::Kind kind, unsigned int id, SdfFilterStatus status,
                  const std::string& what) {
    record({kind, status, id, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1,
            what + std::to_string(id) + ": " + std::to_string(status)});
}

std::string endpoint(const sockaddr_storage& address) {
    char text[INET6_ADDRSTRLEN] = "none";
    uint16_t port = 0;
    if (address.ss_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        inet_ntop(AF_INET, &four.sin_addr, text, sizeof text);
        port = ntohs(four.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
        inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text);
        port = ntohs(six.sin6_port);
    }
    return std::string(text) + "#" + std::to_string(port);
}

std::string describe(const SdfAddFilterInfo& info) {
    std::string text = endpoint(info.src_addr) + " > " + endpoint(info.dest_addr);
    for (const int value : {static_cast<int>(info.first_level), static_cast<int>(info.second_level),
                            static_cast<int>(info.ood), static_cast<int>(info.app_type),
                            static_cast<int>(info.protocol)}) {
        text += " " + std::to_string(value);
    }
    return text;
}

bool waitUntil(const std::function<bool(const std::vector<ClientEvent>&)>& reached) {
    Record& record = gRecord.value;
    std::unique_lock<std::mutex> guard(record.lock);
    return record.grown.wait_for(guard, kGenerous, [&] { return reached(record.events); });
}

}  // namespace

void onStatus(int status) {
    recordStatus(ClientEvent::Kind::kStatus, status, "status ");
}

void onLegacyStatus(status_e status) {
    recordStatus(ClientEvent::Kind::kLegacyStatus, status, "legacy status ");
}

void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    record({ClientEvent::Kind::kLevels, 0, id, first, second,
            "levels " + std::to_string(id) + ": " + std::to_string(first) + " " +
                std::to_string(second)});
}

void onAdded(unsigned int id, SdfFilterStatus status) {
    recordFilter(ClientEvent::Kind::kAdded, id, status, "added ");
}

void onFilterStatus(unsigned int id, SdfFilterStatus status) {
    recordFilter(ClientEvent::Kind::kFilterStatus, id, status, "filter ");
}

void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int timer) {
    record({ClientEvent::Kind::kListed, status, id, first, second,
            "listed " + std::to_string(id) + ": " + std::to_string(status) + ", levels " +
                std::to_string(first) + " " + std::to_string(second) + ", ood " +
                std::to_string(ood) + ", timer " + std::to_string(timer)});
}

void onReport(unsigned int key, uint64_t first, uint64_t second) {
    record({ClientEvent::Kind::kReport,
            0,
            key,
            {},
            {},
            "report " + std::to_string(key) + ": " + std::to_string(first) + " " +
                std::to_string(second)});
}

void onAutoFilter(unsigned int id, SdfAddFilterInfo info) {
    record({ClientEvent::Kind::kAutoFilter, 0, id, info.first_level, info.second_level,
            "auto filter " + std::to_string(id) + ": " + describe(info)});
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

std::vector<std::string> clientTexts() {
    std::vector<std::string> texts;
    for (const ClientEvent& event : clientEvents()) texts.push_back(event.text);
    return texts;
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

bool waitForText(const std::string& text, size_t times) {
    return waitUntil([&](const std::vector<ClientEvent>& events) {
        const auto count = std::count_if(events.begin(), events.end(),
                                         [&](const ClientEvent& e) { return e.text == text; });
        return static_cast<size_t>(count) >= times;
    });
}
