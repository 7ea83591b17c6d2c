// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/StateText.h"

#include <nlohmann/json.hpp>
#include <string>

namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kLineLength = 100;

std::string valueText(const Json& value) {
    if (value.is_null()) return "none";
    if (value.is_boolean()) return value ? "on" : "off";
    if (value.is_string()) return value;
    return value.dump();
}

std::string objectText(const Json& object, const std::string& begin, const std::string& indent);

std::string listText(const std::string& name, const Json& list, const std::string& indent) {
    std::string text = indent + name + ": " + std::to_string(list.size()) + "\n";
    for (const Json& element : list) {
        text += element.is_object() ? objectText(element, indent + "- ", indent + "  ")
                                    : indent + "- " + valueText(element) + "\n";
    }
    return text;
}

// begin: of its first line; indent: of the others.
std::string objectText(const Json& object, const std::string& begin, const std::string& indent) {
    std::string text;
    std::string line = begin;
    std::string lists;
    for (const auto& [name, value] : object.items()) {
        if (value.is_array()) {
            lists += listText(name, value, indent);
            continue;
        }
        const std::string member = name + "=" + valueText(value);
        if (line.size() + 1 + member.size() > kLineLength) {
            text += line + "\n";
            line = indent;
        }
        if (line.size() > indent.size()) line += " ";
        line += member;
    }
    return text + line + "\n" + lists;
}

}  // namespace

std::string asText(const Json& object) {
    std::string text = objectText(object, "", "");
    text.pop_back();  // whoever writes it ends the line
    return text;
}
