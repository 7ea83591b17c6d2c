// SPDX-License-Identifier: Apache-2.0
#pragma once

// The enumerators of an enumeration that was made by the interface compiler.

#include <array>

namespace ndk {
namespace internal {

// All enumerators in the order of their declaration; filled for each enumeration beside it.
template <typename Enum>
inline constexpr std::array<Enum, 0> enum_values{};

}  // namespace internal

// Walks through the enumerators: for (auto value : ndk::enum_range<Enum>()) ...
template <typename Enum>
struct enum_range {
    static_assert(!internal::enum_values<Enum>.empty(), "an enumeration of an interface is needed");

    constexpr auto begin() const { return internal::enum_values<Enum>.begin(); }
    constexpr auto end() const { return internal::enum_values<Enum>.end(); }
};

}  // namespace ndk
