// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Record.h"

#include <algorithm>
#include <stdexcept>

Field plain(std::string key, const std::string& text) {
    return {std::move(key), text, text};
}

Field worded(std::string key, int32_t value, const Words& words) {
    const std::string word = wordOf(words, value);
    const bool isNumber = word == std::to_string(value);
    return {std::move(key), value, word, isNumber ? "" : word};
}

Field switched(std::string key, bool value) {
    return {std::move(key), value, value ? "on" : "off"};
}

Field coded(std::string key, long long value, const std::string& text) {
    return {std::move(key), value, std::to_string(value) + " (" + text + ")", text};
}

std::string memberKey(const char* option) {
    std::string key = option + 2;
    std::replace(key.begin(), key.end(), '-', '_');
    return key;
}

Fields describeEntry(unsigned int key, uint64_t first, uint64_t second) {
    return {plain("key", key), plain("first_value", first), plain("second_value", second)};
}

Fields describeAutoFilter(unsigned int filter, const SdfAddFilterInfo& info) {
    return {plain("filter", filter), plain("src", addressText(info.src_addr)),
            plain("dest", addressText(info.dest_addr)),
            worded("protocol", info.protocol, protocolWords()),
            worded("app_type", info.app_type, appTypeWords())};
}

Fields describe(const SdfAddFilterInfo& info) {
    Fields fields{plain("src", addressText(info.src_addr)),
                  plain("dest", addressText(info.dest_addr))};
    forEachMember(info, [&](const char* option, auto member, const Words* words, const char*) {
        const std::string key = memberKey(option);
        const auto value = static_cast<int64_t>(member);
        fields.push_back(words == nullptr ? plain(key, value)
                                          : worded(key, static_cast<int32_t>(value), *words));
        fields.back().quiet = value == 0;
    });
    return fields;
}

std::string shown(const Fields& fields, const std::string& separator) {
    std::string text;
    for (const Field& field : fields) {
        if (field.quiet) continue;
        if (!text.empty()) text += separator;
        text += field.key + "=" + field.shown;
    }
    return text;
}

long long Event::number(const std::string& key) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.key == key; });
    if (found == fields.end()) throw std::logic_error(name + " has no " + key);
    if (const auto* const unsignedValue = std::get_if<uint64_t>(&found->value)) {
        return static_cast<long long>(*unsignedValue);
    }
    return std::get<long long>(found->value);
}

bool Event::has(const std::string& value) const {
    return std::any_of(fields.begin(), fields.end(), [&](const Field& field) {
        if (field.shown == value || field.name == value) return true;
        const auto* const number = std::get_if<long long>(&field.value);
        return number != nullptr && std::to_string(*number) == value;
    });
}
