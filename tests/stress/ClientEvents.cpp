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
    std::vector<std::string> texts;
    std::function<void(const ClientEvent&)> hook;
};

// Never destroyed: a callback may come while the process exits.
NoDestroy<Record> gRecord;

void record(const ClientEvent& event) {
    Record& record = gRecord.value;
    std::function<void(const ClientEvent&)> hook;
    {
        const std::lock_guard<std::mutex> guard(record.lock);
        record.texts.push_back(event.text);
        record.grown.notify_all();
        hook = record.hook;
    }
    if (hook) hook(event);
}

// The numbers, with blanks between them.
template <typename First, typename... Rest>
std::string join(First first, Rest... rest) {
    return (std::to_string(first) + ... + (" " + std::to_string(rest)));
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

}  // namespace

void onStatus(int status) {
    record({ClientEvent::Kind::kStatus, status, 0, "status " + join(status)});
}

void onLegacyStatus(status_e status) {
    record({ClientEvent::Kind::kOther, status, 0, "legacy status " + join(status)});
}

void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    record({ClientEvent::Kind::kLevels, 0, id, "levels " + join(id) + ": " + join(first, second)});
}

void onAdded(unsigned int id, SdfFilterStatus status) {
    record({ClientEvent::Kind::kAdded, status, id, "added " + join(id) + ": " + join(status)});
}

void onFilterStatus(unsigned int id, SdfFilterStatus status) {
    record(
        {ClientEvent::Kind::kFilterStatus, status, id, "filter " + join(id) + ": " + join(status)});
}

void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int timer) {
    record({ClientEvent::Kind::kOther, status, id,
            "listed " + join(id) + ": " + join(status) + ", levels " + join(first, second) +
                ", ood " + join(ood) + ", timer " + join(timer)});
}

void onReport(unsigned int key, uint64_t first, uint64_t second) {
    record({ClientEvent::Kind::kOther, 0, key, "report " + join(key) + ": " + join(first, second)});
}

void onAutoFilter(unsigned int id, SdfAddFilterInfo info) {
    record({ClientEvent::Kind::kOther, 0, id,
            "auto filter " + join(id) + ": " + endpoint(info.src_addr) + " > " +
                endpoint(info.dest_addr) + " " +
                join(info.first_level, info.second_level, info.ood, info.app_type, info.protocol)});
}

void setEventHook(std::function<void(const ClientEvent&)> hook) {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    gRecord.value.hook = std::move(hook);
}

std::vector<std::string> clientTexts() {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    return gRecord.value.texts;
}

void forgetClientEvents() {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    // With its memory, so that heap blocks can be counted.
    std::vector<std::string>().swap(gRecord.value.texts);
}

bool waitForText(const std::string& text, size_t times) {
    Record& record = gRecord.value;
    std::unique_lock<std::mutex> guard(record.lock);
    return record.grown.wait_for(guard, kGenerous, [&] {
        const auto count = std::count(record.texts.begin(), record.texts.end(), text);
        return static_cast<size_t>(count) >= times;
    });
}

bool waitForStatus(int status, size_t times) {
    return waitForText("status " + join(status), times);
}

bool waitForLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    return waitForText("levels " + join(id) + ": " + join(first, second));
}
