// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "utils/Mutex.h"
#include "utils/NoDestroy.h"

namespace lum::utils {

// Read and replace shared pointers that several threads use, as the standard library's atomic
// functions of shared pointers do in twice the time.

// Of all of them: every request reads two at once.
inline NoDestroy<Mutex> gSharedPointerLock;

template <typename T>
std::shared_ptr<T> loadShared(const std::shared_ptr<T>& pointer) {
    const MutexLock lock(gSharedPointerLock.value);
    return pointer;
}

// Returns what was there.
template <typename T>
std::shared_ptr<T> exchangeShared(std::shared_ptr<T>& pointer, std::shared_ptr<T> value) {
    const MutexLock lock(gSharedPointerLock.value);
    pointer.swap(value);
    return value;
}

}  // namespace lum::utils
