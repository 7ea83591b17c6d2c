// SPDX-License-Identifier: Apache-2.0
#include "tests/api/ScriptedRand.h"

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <utility>

namespace {

std::mutex gLock;
std::vector<int> gValues;
size_t gNext = 0;

}  // namespace

void scriptRand(std::vector<int> values) {
    const std::lock_guard<std::mutex> lock(gLock);
    gValues = std::move(values);
    gNext = 0;
}

size_t scriptedRandLeft() {
    const std::lock_guard<std::mutex> lock(gLock);
    return gValues.size() - gNext;
}

extern "C" int rand() noexcept {
    {
        const std::lock_guard<std::mutex> lock(gLock);
        if (gNext < gValues.size()) return gValues[gNext++];
    }
    static const auto real = reinterpret_cast<int (*)()>(dlsym(RTLD_NEXT, "rand"));
    return real();
}
