// SPDX-License-Identifier: Apache-2.0
#pragma once

// Text for people from whatever an interface can carry, for logs. Generated code finds <sstream> by
// this header.

#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace android {
namespace internal {

template <typename T, typename = void>
struct HasToStringMethod : std::false_type {};
template <typename T>
struct HasToStringMethod<T, std::void_t<decltype(std::declval<const T&>().toString())>>
    : std::true_type {};

// Declared ahead, for arrays within structures.
template <typename T>
std::string ToString(const std::vector<T>& values);

// Numbers in decimal, bool as true or false, enumerators by their name (their number if they have
// none), structures as they write themselves.
template <typename T>
std::string ToString(const T& value) {
    if constexpr (std::is_same_v<bool, T>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_enum_v<T>) {
        return toString(value);  // found beside the enumeration
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else {
        static_assert(HasToStringMethod<T>::value, "no way to write a value of this type");
        return value.toString();
    }
}

// [first, second, ...]
template <typename T>
std::string ToString(const std::vector<T>& values) {
    std::string result = "[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        result += (i == 0 ? "" : ", ") + ToString(values[i]);
    }
    return result + "]";
}

}  // namespace internal
}  // namespace android
