// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

// What can be typed next.
struct Completion {
    std::string typed;                    // of the word that is being typed; may be empty
    std::vector<std::string> candidates;  // whole words that begin with it
};

// Completes the last word of the text in front of the cursor: a command, an option, or one of the
// words that an argument takes.
Completion complete(const std::string& text);

// The same for a command line of the program, from its name on, where options may stand first. Only
// the candidates.
std::vector<std::string> completeLine(const std::string& line);

// What all candidates begin with.
std::string commonStart(const std::vector<std::string>& candidates);
