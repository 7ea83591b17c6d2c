// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The library's callbacks in this process so far. The callbacks are plain functions, so
// there is one record per process.

struct ClientEvent {
    enum class Kind { kStatus, kLevels, kAdded, kFilterStatus, kOther };

    Kind kind;
    int status;        // V2 code, status_e or SdfFilterStatus
    long long id;      // of the request or the filter, as far as there is one
    std::string text;  // the whole of it, as the comments of the callbacks have it
};

// The callbacks to pass to the library.
void onStatus(int status);                                               // "status -7"
void onLegacyStatus(status_e status);                                    // "legacy status 5"
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);  // "levels 7: 2 4"
void onAdded(unsigned int id, SdfFilterStatus status);                   // "added 7: 1"
void onFilterStatus(unsigned int id, SdfFilterStatus status);            // "filter 7: 3"
// "listed 7: 1, levels 2 4, ood 1, timer 50"
void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int timer);
void onReport(unsigned int key, uint64_t first, uint64_t second);  // "report 32: 1000 9"
// "auto filter 7: 10.0.0.1#80 > 10.0.0.2#90 2 4 1 0 3": levels, ood, application type, protocol;
// "auto filter 7: none#0 > none#0 0 0 0 0 0" if all is 0
void onAutoFilter(unsigned int id, SdfAddFilterInfo info);

// Runs inside each callback, after the event has been recorded. Set while no callback can come.
void setEventHook(std::function<void(const ClientEvent&)> hook);

// All callbacks so far, in order, each as its text.
std::vector<std::string> clientTexts();
void forgetClientEvents();

// Waits until there have been `times` callbacks with that text in all; false when 30 seconds passed
// first.
bool waitForText(const std::string& text, size_t times = 1);
// The same for a call of onStatus().
bool waitForStatus(int status, size_t times = 1);
// The same for the levels that answer request `id`.
bool waitForLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);
