// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Printer.h"

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

namespace {

nlohmann::ordered_json jsonOf(const Fields& fields);

nlohmann::ordered_json jsonOf(const Value& value) {
    return std::visit(
        [](const auto& held) -> nlohmann::ordered_json {
            if constexpr (std::is_same_v<decltype(held), const Fields&>) {
                return jsonOf(held);
            } else {
                return held;
            }
        },
        value);
}

nlohmann::ordered_json jsonOf(const Fields& fields) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const Field& field : fields) {
        object[field.key] = jsonOf(field.value);
        if (!field.name.empty()) object[field.key + "_name"] = field.name;
    }
    return object;
}

// How many bytes the control character has that stands there in UTF-8; 0 when none does.
size_t controlLength(const std::string& text, size_t at) {
    const auto byteAt = [&text](size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
    };
    const int byte = byteAt(at);
    if (byte < ' ' || byte == 0x7F) return 1;
    const int next = byteAt(at + 1);
    return byte == 0xC2 && next >= 0x80 && next <= 0x9F ? 2 : 0;
}

// Whether the byte is in the middle of a character in UTF-8.
bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
}

std::string withoutMiddle(const std::string& text) {
    constexpr size_t kMost = 1000;
    // At each end: what is wrong stands there, and what would be right.
    constexpr size_t kKept = 400;
    if (text.size() <= kMost) return text;
    size_t begin = kKept;
    size_t end = text.size() - kKept;
    while (begin < end && isContinuation(text[begin])) ++begin;
    while (end > begin && isContinuation(text[end])) --end;
    return text.substr(0, begin) + " [... " + std::to_string(end - begin) + " bytes ...] " +
           text.substr(end);
}

}  // namespace

std::string printable(const std::string& whole) {
    const std::string text = withoutMiddle(whole);
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t length = controlLength(text, at);
        for (const size_t end = at + length; at < end; ++at) {
            char escaped[5];
            snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(text[at]));
            shown += escaped;
        }
        if (length == 0) shown += text[at++];
    }
    return shown;
}

void Printer::print(const Call& call) const {
    print(call.function + "(" + shown(call.arguments, ", ") + ") = " + std::to_string(call.result) +
              " (" + call.text + ")",
          {{"call", call.function},
           {"arguments", call.arguments},
           coded("result", call.result, call.text)});
}

void Printer::print(const Event& event) const {
    Fields object{{"event", event.name}};
    object.insert(object.end(), event.fields.begin(), event.fields.end());
    print("event " + event.name + ": " + shown(event.fields, " "), object);
}

void Printer::print(const std::string& text, const Fields& object) const {
    write(mJson ? jsonOf(object).dump() : text);
}

void Printer::help(std::string text) const {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    if (mJson) {
        fprintf(stderr, "%s\n", text.c_str());
    } else {
        write(text);
    }
}

void Printer::copy(const std::string& text) const {
    if (mBeforeLine) mBeforeLine();
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
}
