// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "tools/emulator/Rule.h"

// Whether two rules say the same, in whatever words.
inline bool areEqual(const Rule& one, const Rule& other) {
    const auto equal = [](const Action& left, const Action& right) {
        return left.kind == right.kind && left.number == right.number && left.bytes == right.bytes;
    };
    return one.kind == other.kind && one.when == other.when && one.number == other.number &&
           std::equal(one.actions.begin(), one.actions.end(), other.actions.begin(),
                      other.actions.end(), equal);
}
