// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/emulator/Rule.h"

// What is wrong with a rule, with the place, for the user.
class RuleError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Understands one rule, such as "on add_filter nth 3: late 500, twice". where: of the rule, such as
// "scenario.txt:7", goes before the column in what is thrown. Throws RuleError:
//
//     scenario.txt:7:4: "add_filtre": expected a kind of requests (any, register, ...)
Rule parseRule(const std::string& text, const std::string& where);

// Understands a scenario: one rule a line of 65536 bytes at most, comments from # to the end of the
// line, empty lines, at the beginning perhaps a UTF-8 byte order mark. name: the file's, for
// errors. Throws RuleError.
std::vector<Rule> parseScenario(std::istream& lines, const std::string& name);
