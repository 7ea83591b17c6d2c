// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <new>
#include <type_traits>

#include "utils/Log.h"

// Calls code of the application, from which no exception may reach a C caller or the start of a
// thread.
// what: the function's name for the log; call: what to run.
// Returns false if it threw.
template <typename Call>
bool callOut(const char* what, Call&& call) noexcept {
    try {
        call();
        return true;
    } catch (const std::exception& e) {
        LUM_LOGE("binder: %s threw: %s", what, e.what());
    } catch (...) {
        LUM_LOGE("binder: %s threw", what);
    }
    return false;
}

// The same for a call with a result: returns that, or onThrow if it threw.
template <typename Call>
std::invoke_result_t<Call&> callOut(const char* what, Call&& call,
                                    std::invoke_result_t<Call&> onThrow) noexcept {
    auto result = onThrow;
    callOut(what, [&] { result = call(); });
    return result;
}

// Runs what may find no memory inside a C function.
// Returns false if there was none.
template <typename Body>
bool withoutThrowing(Body&& body) noexcept {
    try {
        body();
        return true;
    } catch (const std::bad_alloc&) {
        LUM_LOGE("binder: no memory");
        return false;
    }
}

// The same for a body with a result: returns that, or onNoMemory.
template <typename Body>
std::invoke_result_t<Body&> withoutThrowing(Body&& body,
                                            std::invoke_result_t<Body&> onNoMemory) noexcept {
    auto result = onNoMemory;
    withoutThrowing([&] { result = body(); });
    return result;
}
