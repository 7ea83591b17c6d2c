// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <new>
#include <type_traits>

#include "utils/Log.h"

// Calls code of the application, from which no exception may reach a C caller or the start of a
// thread.
// what: the function's name for the log; call: what to run; onThrow: returned when it threw.
template <typename Call>
std::invoke_result_t<Call&> callOut(const char* what, Call&& call,
                                    std::invoke_result_t<Call&> onThrow) noexcept {
    try {
        return call();
    } catch (const std::exception& e) {
        LUM_LOGE("binder: %s threw: %s", what, e.what());
    } catch (...) {
        LUM_LOGE("binder: %s threw", what);
    }
    return onThrow;
}

// Runs what may find no memory inside a C function.
// Returns what `body` returns, or onNoMemory.
template <typename Body>
std::invoke_result_t<Body&> withoutThrowing(Body&& body,
                                            std::invoke_result_t<Body&> onNoMemory) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        LUM_LOGE("binder: no memory");
    }
    return onNoMemory;
}
