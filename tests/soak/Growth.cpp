// SPDX-License-Identifier: Apache-2.0
#include "tests/soak/Growth.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

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
    int64_t sinceQuarter;  // allowed between the medians
    int64_t perThread;     // and for each thread that has come: the allocator keeps some for it
};

// Threads of the pool are started when needed, up to 16, and stay.
constexpr Figure kFigures[] = {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep what was freed
    {"bytes of memory", [](const Member::Rest& rest) { return rest.figures.memory; }, 2048 * kKib,
     512 * kKib, 256 * kKib},
#endif
    {"blocks of heap", [](const Member::Rest& rest) { return rest.blocks; }, 64, 32, 8},
    {"descriptors", [](const Member::Rest& rest) { return rest.figures.descriptors; }, 0, 0, 0},
    {"threads", threads, 15, 1, 0},
};

// Some of the rests, one after the other.
class Some {
  public:
    Some(const Rests& rests, size_t begin, size_t end)
        : mRests(rests.begin() + static_cast<std::ptrdiff_t>(begin),
                 rests.begin() + static_cast<std::ptrdiff_t>(end)) {}

    int64_t median(Value value) const {
        std::vector<int64_t> values;
        std::transform(mRests.begin(), mRests.end(), std::back_inserter(values), value);
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

  private:
    Rests mRests;
};

}  // namespace

std::vector<std::string> growthOf(const Rests& rests) {
    std::vector<std::string> grown;
    const auto compare = [&grown](const Figure& figure, const Some& early, const Some& late,
                                  int64_t allowed, const char* when) {
        const int64_t before = early.median(figure.value);
        const int64_t after = late.median(figure.value);
        const int64_t added = std::max<int64_t>(0, late.median(threads) - early.median(threads));
        if (after <= before + allowed + added * figure.perThread) return;
        grown.push_back(std::string(figure.name) + " from " + std::to_string(before) + " to " +
                        std::to_string(after) + when);
    };
    const size_t size = rests.size();
    const size_t quarter = size / 4;
    for (const Figure& figure : kFigures) {
        if (size < 2) break;
        compare(figure, {rests, 0, 1}, {rests, size - 1, size}, figure.sinceFirst,
                " since the first time at rest");
        if (quarter < 2) continue;
        compare(figure, {rests, quarter, 2 * quarter}, {rests, size - quarter, size},
                figure.sinceQuarter, " from the second quarter to the last");
    }
    return grown;
}
