// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Printer.h"

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

using nlohmann::ordered_json;

std::string printable(const std::string& text) {
    constexpr char kDelete = 0x7F;
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || c == kDelete) {
            char escaped[5];
            snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            shown += escaped;
        } else {
            shown += c;
        }
    }
    return shown;
}

void Printer::print(const Call& call) const {
    ordered_json arguments = ordered_json::object();
    addTo(arguments, call.arguments);
    print(call.function + "(" + shown(call.arguments, ", ") + ") = " + std::to_string(call.result) +
              " (" + call.text + ")",
          {{"call", call.function},
           {"arguments", arguments},
           {"result", call.result},
           {"result_name", call.text}});
}

void Printer::print(const Event& event) const {
    ordered_json object = {{"event", event.name}};
    addTo(object, event.fields);
    print("event " + event.name + ": " + shown(event.fields, " "), object);
}

void Printer::print(const std::string& text, const ordered_json& object) const {
    write(mJson ? object.dump() : text);
}

void Printer::write(const std::string& line) const {
    if (mMakeRoom) mMakeRoom();
    const std::string whole = line + "\n";
    if (fwrite(whole.data(), 1, whole.size(), stdout) != whole.size() || fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
}
