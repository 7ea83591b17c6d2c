// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

// Whether a service may have this name: of 1 to 127 letters, digits, and characters of "._-/". The
// platform's service manager has the same rule.
inline bool isServiceName(const std::string& name) {
    constexpr size_t kLongest = 127;
    return !name.empty() && name.size() <= kLongest &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '.' || c == '_' || c == '-' || c == '/';
           });
}
