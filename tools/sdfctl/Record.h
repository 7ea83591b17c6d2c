// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "tools/sdfctl/Words.h"

// What is said of a call or an event: named values, for people and for programs.

struct Field;
using Fields = std::vector<Field>;
using Value = std::variant<std::nullptr_t, bool, long long, uint64_t, std::string,
                           std::vector<unsigned int>, Fields>;

// One named value.
struct Field {
    std::string key;
    Value value;          // for programs
    std::string shown{};  // for people
    std::string name{};   // for programs too, beside the value; empty: none
    bool quiet = false;   // says nothing to people
};

// A text.
Field plain(std::string key, const std::string& text);

// A number that is only a number.
template <typename Number>
Field plain(std::string key, Number number) {
    using Widest = std::conditional_t<std::is_signed_v<Number>, long long, uint64_t>;
    return {std::move(key), Widest{number}, std::to_string(number)};
}

// A number of a kind that has words: people see the word.
Field worded(std::string key, int32_t value, const Words& words);

// On or off.
Field switched(std::string key, bool value);

// A code: people see number and text.
Field coded(std::string key, long long value, const std::string& text);

// Calls visit(option, member, words, about) for each member of a filter's description but the
// addresses. words: null for a member that is only a number.
template <typename Info, typename Visit>
void forEachMember(Info& info, const Visit& visit) {
    visit("--src-range", info.src_port_range, nullptr, "Further source ports");
    visit("--dest-range", info.dest_port_range, nullptr, "Further destination ports");
    visit("--protocol", info.protocol, &protocolWords(), "Protocol (default: none)");
    visit("--app-type", info.app_type, &appTypeWords(), "Application type (default: unspecified)");
    visit("--first", info.first_level, &levelWords(), "First level (default: level-1)");
    visit("--second", info.second_level, &levelWords(), "Second level (default: level-1)");
    visit("--ood", info.ood, &oodWords(), "Out-of-order delivery (default: unspecified)");
    visit("--pdcp-timer", info.pdcp_timer, nullptr, "PDCP timer, in the service's unit");
    visit("--arg6", info.filter_arg6, nullptr, "filter_arg6, passed through");
    visit("--arg11", info.filter_arg11, nullptr, "filter_arg11, passed through");
    visit("--arg13", info.filter_arg13, nullptr, "filter_arg13, passed through");
    visit("--arg16", info.filter_arg16, nullptr, "filter_arg16, passed through");
    visit("--arg17", info.filter_arg17, nullptr, "filter_arg17, passed through");
    visit("--arg19", info.filter_arg19, nullptr, "filter_arg19, passed through");
    visit("--arg20", info.filter_arg20, nullptr, "filter_arg20, passed through");
}

// The key of a member that forEachMember() names.
std::string memberKey(const char* option);

// One entry of a priority-queue report.
Fields describeEntry(unsigned int key, uint64_t first, uint64_t second);
// A filter that the service made on its own.
Fields describeAutoFilter(unsigned int filter, const SdfAddFilterInfo& info);

// A filter's description, member by member. What is 0 is quiet.
Fields describe(const SdfAddFilterInfo& info);

// All fields for people: "key=shown key=shown", with `separator` between.
std::string shown(const Fields& fields, const std::string& separator);

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
