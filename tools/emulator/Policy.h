// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <set>

// What the user may set of the service's ways.
struct Policy {
    std::set<uid_t> deniedUids;                      // whose filters are rejected
    size_t filterLimit = 64;                         // for each feature of each client
    std::chrono::milliseconds activationDelay{0};    // 0: filters are active at once
    std::chrono::milliseconds inactivityTimeout{0};  // 0: filters stay
};
