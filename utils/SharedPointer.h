// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "utils/Mutex.h"
#include "utils/NoDestroy.h"

namespace lum::utils {

// Read and replace shared pointers that several threads use, as the standard library's atomic
// functions of shared pointers do in twice the time. Those have locks of their own: not to be used
// for the same pointer.

// One for all such pointers, since every request reads two at once. Nothing else is locked, and no
// object ends, while it is held.
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

// Empties it if it points to this object.
template <typename T>
void clearShared(std::shared_ptr<T>& pointer, const T* object) {
    std::shared_ptr<T> cleared;  // ends after the lock
    const MutexLock lock(gSharedPointerLock.value);
    if (pointer.get() == object) pointer.swap(cleared);
}

}  // namespace lum::utils
