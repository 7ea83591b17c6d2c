// SPDX-License-Identifier: Apache-2.0
// A scenario file of the emulator: understood, or refused with line and column. The text of each
// rule, by itself, is that rule.
#include <sstream>
#include <string>

#include "fuzz/Check.h"
#include "fuzz/EqualRules.h"
#include "tools/emulator/RuleParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::istringstream lines(std::string(bytes, bytes + size));
    try {
        for (const Rule& rule : parseScenario(lines, "scenario")) {
            check(areEqual(parseRule(rule.text, "again"), rule), "a rule with another text");
        }
    } catch (const RuleError& error) {
        check(std::string(error.what()).rfind("scenario:", 0) == 0, "an error without its place");
    }
    return 0;
}
