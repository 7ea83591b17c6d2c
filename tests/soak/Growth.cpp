// SPDX-License-Identifier: Apache-2.0
#include "tests/soak/Growth.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "tests/support/Driver.h"

namespace {

using Rests = std::vector<Member::Rest>;
using Value = int64_t (*)(const Member::Rest& rest);

constexpr int64_t kKib = 1024;

int64_t threads(const Member::Rest& rest) {
    return rest.figures.threads;
}

struct Figure {
    const char* name;
    Value value;
    int64_t sinceFirst;    // allowed: the first time, not everything has been used
    int64_t sinceQuarter;  // allowed between the minima of quarters
    int64_t ofOneRest;     // and for quarters of one rest, less for those of more
    int64_t perThread;     // and for each thread that has come: the allocator keeps some for it
};

// Threads of the pool are started when needed, up to 16. Over the driver they stay, and it may take
// hours: it asks for one when all happen to be busy.
const Figure kFigures[] = {
#ifndef __SANITIZE_THREAD__  // it keeps what was freed
    {"bytes of memory", [](const Member::Rest& rest) { return rest.figures.memory; }, 2048 * kKib,
     512 * kKib, 0, 512 * kKib},
#endif
    {"blocks of heap", [](const Member::Rest& rest) { return rest.blocks; }, 64, 6, 32, 8},
    {"bytes of heap", [](const Member::Rest& rest) { return rest.bytes; }, 64 * kKib, 8 * kKib,
     32 * kKib, 8 * kKib},
    {"descriptors", [](const Member::Rest& rest) { return rest.figures.descriptors; }, 0, 0, 0, 0},
    {"threads", threads, 15, overDriver() ? 15 : 1, 0, 0},
};

// What is still under way only adds to what a process holds.
int64_t least(const Rests& rests, size_t begin, size_t count, Value value) {
    int64_t least = std::numeric_limits<int64_t>::max();
    for (size_t i = begin; i < begin + count; ++i) least = std::min(least, value(rests[i]));
    return least;
}

}  // namespace

std::vector<std::string> growthOf(const Rests& rests) {
    std::vector<std::string> grown;
    // Of `count` rests from `early` on, and of the last ones.
    const auto compare = [&](const Figure& figure, size_t early, size_t count, int64_t allowed,
                             const char* when) {
        const size_t late = rests.size() - count;
        const int64_t before = least(rests, early, count, figure.value);
        const int64_t after = least(rests, late, count, figure.value);
        const int64_t added = std::max<int64_t>(
            0, least(rests, late, count, threads) - least(rests, early, count, threads));
        if (after <= before + allowed + added * figure.perThread) return;
        grown.push_back(std::string(figure.name) + " from " + std::to_string(before) + " to " +
                        std::to_string(after) + when);
    };
    if (rests.size() < 2) return grown;
    const size_t quarter = rests.size() / 4;
    for (const Figure& figure : kFigures) {
        compare(figure, 0, 1, figure.sinceFirst, " since the first time at rest");
        if (quarter < 2) continue;
        compare(figure, quarter, quarter,
                figure.sinceQuarter + figure.ofOneRest / static_cast<int64_t>(quarter),
                " from the second quarter to the last");
    }
    return grown;
}
