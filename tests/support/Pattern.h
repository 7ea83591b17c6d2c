// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex.h>

#include <stdexcept>
#include <string>

// Text with parts that differ from run to run. The patterns are POSIX extended regular expressions.
// (The C++ library's own draw false warnings from g++ in sanitizer builds.)

// Returns the text with each part that the pattern matches replaced by `with`, taken as it is.
inline std::string replaceAll(const std::string& text, const std::string& pattern,
                              const std::string& with) {
    regex_t compiled;
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED) != 0) {
        throw std::invalid_argument("not a pattern: " + pattern);
    }
    std::string result;
    size_t from = 0;
    regmatch_t found;
    while (from < text.size() &&
           regexec(&compiled, text.c_str() + from, 1, &found, from == 0 ? 0 : REG_NOTBOL) == 0 &&
           found.rm_eo > 0) {
        result.append(text, from, static_cast<size_t>(found.rm_so));
        result += with;
        from += static_cast<size_t>(found.rm_eo);
    }
    regfree(&compiled);
    return result + text.substr(from);
}
