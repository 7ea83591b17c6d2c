// SPDX-License-Identifier: Apache-2.0
#include "tests/session/RandomRules.h"

#include <iterator>
#include <sstream>

#include "tools/emulator/RuleWords.h"

namespace {

constexpr const char* kActions[] = {"refuse",
                                    "never",
                                    "late 20",
                                    "twice",
                                    "flood 20",
                                    "wrong-id",
                                    "mismatch",
                                    "empty-body",
                                    "no-body",
                                    "truncate",
                                    "garbage ff 00 80",
                                    "garbage random 100",
                                    "unknown-event",
                                    "status SERVICE_DOWN",
                                    "status INTERNAL_ERROR",
                                    "status SERVICE_UP",
                                    "status 77",
                                    "die before",
                                    "die after"};

std::vector<std::string> kinds() {
    std::vector<std::string> all;
    std::istringstream words(kindWords());
    for (std::string word; std::getline(words >> std::ws, word, ',');) all.push_back(word);
    return all;
}

}  // namespace

std::vector<std::string> randomRules(const std::function<size_t(size_t)>& pick, bool ends) {
    static const std::vector<std::string> sKinds = kinds();
    std::vector<std::string> options;
    for (size_t count = 1 + pick(6); count > 0; --count) {
        const char* const when = ends ? "nth" : pick(4) == 0 ? "from" : "every";
        std::string rule = "on " + sKinds[pick(sKinds.size())] + " " + when + " " +
                           std::to_string(1 + pick(8)) + ": " + kActions[pick(std::size(kActions))];
        if (pick(4) == 0) rule += std::string(", ") + kActions[pick(std::size(kActions))];
        options.insert(options.end(), {"--rule", rule});
    }
    return options;
}
