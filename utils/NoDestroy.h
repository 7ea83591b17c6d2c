// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

// Storage for an object of static lifetime that is made at load time (without code, when T's
// default constructor is constexpr) and never destroyed. Threads of the library may outlive main(),
// so what they look at must outlive it too.
template <typename T>
union NoDestroy {
    constexpr NoDestroy() noexcept(std::is_nothrow_default_constructible<T>::value) : value() {}
    ~NoDestroy() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted

    T value;
};
