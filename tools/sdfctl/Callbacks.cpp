// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Callbacks.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
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

namespace callbacks {

namespace {

// Callbacks must not throw. Without memory there is no event, but a line says so.
template <typename MakeFields>
void push(const char* name, const MakeFields& makeFields) noexcept {
    try {
        events().push({name, makeFields()});
    } catch (const std::exception& error) {
        fprintf(stderr, "sdfctl: lost a call of the callback for %s: %s\n", name, error.what());
    }
}

Fields filterFields(unsigned int filter, SdfFilterStatus status) {
    return {plain("filter", filter), worded("status", status, filterStatusWords())};
}

}  // namespace

EventQueue& events() {
    static auto* const queue = new EventQueue;
    return *queue;
}

const std::vector<std::string>& names() {
    static const std::vector<std::string> all{"status",       "legacy-status", "levels",
                                              "filter-added", "filter-listed", "filter-status",
                                              "auto-filter",  "queue-report",  "queue-answer"};
    return all;
}

void onStatus(int status) {
    push("status", [&] { return Fields{coded("status", status, sdfStatusV2Text(status))}; });
}

void onLegacyStatus(status_e status) {
    push("legacy-status", [&] { return Fields{coded("status", status, sdfStatusText(status))}; });
}

void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    push("levels", [&] {
        return Fields{plain("id", id), worded("first", first, levelWords()),
                      worded("second", second, levelWords())};
    });
}

void onFilterAdded(unsigned int filter, SdfFilterStatus status) {
    push("filter-added", [&] { return filterFields(filter, status); });
}

void onFilterStatus(unsigned int filter, SdfFilterStatus status) {
    push("filter-status", [&] { return filterFields(filter, status); });
}

void onFilterListed(unsigned int filter, SdfFilterStatus status, SdfLatencyLvl first,
                    SdfLatencyLvl second, SdfOod ood, unsigned int pdcpTimer) {
    push("filter-listed", [&] {
        Fields fields = filterFields(filter, status);
        fields.push_back(worded("first", first, levelWords()));
        fields.push_back(worded("second", second, levelWords()));
        fields.push_back(worded("ood", ood, oodWords()));
        fields.push_back(plain("pdcp_timer", pdcpTimer));
        return fields;
    });
}

void onQueueReport(unsigned int key, uint64_t first, uint64_t second) {
    push("queue-report", [&] { return describeEntry(key, first, second); });
}

void onQueueAnswer(unsigned int key, uint64_t first, uint64_t second) {
    push("queue-answer", [&] { return describeEntry(key, first, second); });
}

void onAutoFilter(unsigned int filter, SdfAddFilterInfo info) {
    push("auto-filter", [&] { return describeAutoFilter(filter, info); });
}

}  // namespace callbacks
