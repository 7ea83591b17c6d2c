// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "utils/Mutex.h"
#include "utils/NoDestroy.h"

namespace lum::utils {

// Reads and replaces a shared pointer that several threads use: like the standard library's atomic
// functions of shared pointers, which take twice as long. Every request reads two.

template <typename T>
inline NoDestroy<Mutex> gSharedPointerLock;

template <typename T>
std::shared_ptr<T> loadShared(const std::shared_ptr<T>& pointer) {
    const MutexLock lock(gSharedPointerLock<T>.value);
    return pointer;
}

// Returns what was there.
template <typename T>
std::shared_ptr<T> exchangeShared(std::shared_ptr<T>& pointer, std::shared_ptr<T> value) {
    const MutexLock lock(gSharedPointerLock<T>.value);
    pointer.swap(value);
    return value;
}

}  // namespace lum::utils
