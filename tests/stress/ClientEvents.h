// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <functional>
#include <optional>
#include <vector>

// What the library's callbacks have told this process so far. The callbacks are plain functions, so
// there is one record per process.

struct ClientEvent {
    enum class Kind { kStatus, kLegacyStatus, kLevels };

    Kind kind;
    int status;    // V2 code or status_e
    long long id;  // of kLevels, as the next two
    SdfLatencyLvl first;
    SdfLatencyLvl second;
};

// The callbacks to pass to the library.
void onStatus(int status);
void onLegacyStatus(status_e status);
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);

// Runs inside each callback, after the event has been recorded. Set while no callback can come.
void setEventHook(std::function<void(const ClientEvent&)> hook);

std::vector<ClientEvent> clientEvents();
void forgetClientEvents();
// The codes that onStatus() was called with, in order.
std::vector<int> statuses();

// Waits until onStatus() has had the code `times` times in all; false when 30 seconds passed first.
bool waitForStatus(int status, size_t times = 1);
// Waits for the levels that answer request `id`; empty when 30 seconds passed first.
std::optional<ClientEvent> waitForLevels(long long id);
