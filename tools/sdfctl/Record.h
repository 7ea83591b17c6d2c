// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tools/sdfctl/Words.h"

// What is told of a call or an event: named values, for people and for programs.

// One named value.
struct Field {
    std::string key;
    nlohmann::json value;  // for programs
    std::string shown;     // for people
    std::string name;      // for programs too, beside the value; empty: none
    bool quiet = false;    // says nothing to people
};

using Fields = std::vector<Field>;

// A number that is only a number, or a text.
template <typename Value>
Field plain(std::string key, const Value& value) {
    const nlohmann::json json = value;
    return {std::move(key), json, json.is_string() ? json.get<std::string>() : json.dump(), "",
            false};
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

    // The field's value; the field must be there.
    long long number(const std::string& key) const;
};
