// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/platform/PeerInterface.h"

// Local binder objects that say when they end.

inline AIBinder_Class* countedClass() {
    static AIBinder_Class* const clazz =
        plainClass("test.Counted", [](void* userData) { ++*static_cast<int*>(userData); });
    return clazz;
}

// ended: counted up when the object ends.
inline ndk::SpAIBinder makeCounted(int* ended) {
    return ndk::SpAIBinder(AIBinder_new(countedClass(), ended));
}
