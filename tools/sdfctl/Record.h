// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "tools/sdfctl/Words.h"

// What is told of a call or an event: named values, for people and for programs.

using Value = std::variant<bool, long long, uint64_t, std::string>;

// One named value.
struct Field {
    std::string key;
    Value value;         // for programs
    std::string shown;   // for people
    std::string name;    // for programs too, beside the value; empty: none
    bool quiet = false;  // says nothing to people
};

using Fields = std::vector<Field>;

// A text.
Field plain(std::string key, const std::string& text);

// A number that is only a number.
template <typename Number>
Field plain(std::string key, Number number) {
    using Widest = std::conditional_t<std::is_signed_v<Number>, long long, uint64_t>;
    return {std::move(key), Widest{number}, std::to_string(number), "", false};
}

// A number of a kind that has words: people see the word.
Field worded(std::string key, int32_t value, const Words& words);

// On or off.
Field switched(std::string key, bool value);

// A code: people see number and text.
Field coded(std::string key, long long value, const std::string& text);

// A filter's description, member by member. What is 0 is quiet.
Fields describe(const SdfAddFilterInfo& info);

// All fields for people: "key=shown key=shown", with `separator` between.
std::string shown(const Fields& fields, const std::string& separator);

// Adds the fields to an object, each name as "<key>_name".
void addTo(nlohmann::ordered_json& object, const Fields& fields);

// A call of a function.
struct Call {
    std::string function;
    Fields arguments;
    long long result;
    std::string text;  // the result's
};

// A call of a callback.
struct Event {
    std::string name;
    Fields fields;

    // The field's value; the field must be there, and hold a number.
    long long number(const std::string& key) const;
    // Whether one of the fields has that value, as people or programs read it.
    bool has(const std::string& value) const;
};
