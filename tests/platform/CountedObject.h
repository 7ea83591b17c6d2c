// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

// Local binder objects that say when they end.

inline AIBinder_Class* countedClass() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        "test.Counted", [](void* args) { return args; },
        [](void* userData) { ++*static_cast<int*>(userData); },
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_TRANSACTION;
        });
    return clazz;
}

// ended: counted up when the object ends.
inline ndk::SpAIBinder makeCounted(int* ended) {
    return ndk::SpAIBinder(AIBinder_new(countedClass(), ended));
}
