// SPDX-License-Identifier: Apache-2.0
// One rule of the emulator. It is understood, or refused with the column; what is understood is
// understood with other blanks, too, and applied to a request.
#include <string>

#include "fuzz/Check.h"
#include "fuzz/EqualRules.h"
#include "tools/emulator/Reaction.h"
#include "tools/emulator/RuleParser.h"

namespace {

// The same words, further apart.
std::string spaced(const std::string& text) {
    std::string spaced;
    for (const char c : text) {
        const bool isMark = c == ':' || c == ',';
        spaced += isMark ? std::string{'\t', c, ' '} : std::string{c};
    }
    return " " + spaced + "\n";
}

void apply(const Rule& rule) {
    SdfProto::ClientMsg answer;
    answer.set_event_id(SdfProto::EFFECTIVE_LEVELS_CB);
    answer.mutable_data()->mutable_effective_levels_cb()->set_first_level(SdfProto::L2);
    RuleBook book({rule});
    for (int seen = 0; seen < 3; ++seen) {
        const Reaction reaction(book.apply(rule.kind));
        if (reaction.refuses() || reaction.diesBefore()) continue;
        for (const Outgoing& message : reaction.messages({answer}, 7)) (void)message.bytes();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(bytes, bytes + size);
    try {
        const Rule rule = parseRule(text, "here");
        check(areEqual(parseRule(spaced(text), "again"), rule), "other blanks change a rule");
        apply(rule);
    } catch (const RuleError& error) {
        const std::string what = error.what();
        check(what.rfind("here:", 0) == 0 && what.find(": ", 5) != std::string::npos,
              "an error without its place");
    }
    return 0;
}
