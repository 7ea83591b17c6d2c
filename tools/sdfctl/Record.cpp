// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Record.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tools/sdfctl/AddressText.h"

namespace {

nlohmann::json jsonOf(const Value& value) {
    return std::visit([](const auto& held) { return nlohmann::json(held); }, value);
}

}  // namespace

Field plain(std::string key, const std::string& text) {
    return {std::move(key), text, text, "", false};
}

Field worded(std::string key, int32_t value, const Words& words) {
    const std::string word = wordOf(words, value);
    const bool isNumber = word == std::to_string(value);
    return {std::move(key), value, word, isNumber ? "" : word, false};
}

Field switched(std::string key, bool value) {
    return {std::move(key), value, value ? "on" : "off", "", false};
}

Field coded(std::string key, long long value, const std::string& text) {
    return {std::move(key), value, std::to_string(value) + " (" + text + ")", text, false};
}

Fields describe(const SdfAddFilterInfo& info) {
    Fields fields{plain("src", addressText(info.src_addr)),
                  plain("dest", addressText(info.dest_addr))};
    const auto number = [&](const char* key, uint32_t value) {
        fields.push_back(plain(key, value));
        fields.back().quiet = value == 0;
    };
    const auto word = [&](const char* key, int32_t value, const Words& words) {
        fields.push_back(worded(key, value, words));
        fields.back().quiet = value == 0;
    };
    number("src_range", info.src_port_range);
    number("dest_range", info.dest_port_range);
    word("protocol", info.protocol, protocolWords());
    word("app_type", info.app_type, appTypeWords());
    word("first", info.first_level, levelWords());
    word("second", info.second_level, levelWords());
    word("ood", info.ood, oodWords());
    number("pdcp_timer", info.pdcp_timer);
    number("arg6", info.filter_arg6);
    number("arg11", info.filter_arg11);
    number("arg13", info.filter_arg13);
    number("arg16", info.filter_arg16);
    number("arg17", info.filter_arg17);
    number("arg19", info.filter_arg19);
    number("arg20", info.filter_arg20);
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

void addTo(nlohmann::ordered_json& object, const Fields& fields) {
    for (const Field& field : fields) {
        object[field.key] = jsonOf(field.value);
        if (!field.name.empty()) object[field.key + "_name"] = field.name;
    }
}

long long Event::number(const std::string& key) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.key == key; });
    if (found == fields.end()) throw std::logic_error(name + " has no " + key);
    return jsonOf(found->value).get<long long>();
}

bool Event::has(const std::string& value) const {
    return std::any_of(fields.begin(), fields.end(), [&](const Field& field) {
        return field.shown == value || field.name == value || jsonOf(field.value).dump() == value;
    });
}
