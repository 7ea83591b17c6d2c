// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/Rule.h"

namespace {

bool isAbout(const Rule& rule, const std::string& kind) {
    return rule.kind == kind || (rule.kind == "any" && kind != "register");
}

bool isTime(const Rule& rule, uint64_t seen) {
    switch (rule.when) {
        case Rule::When::kNth: return seen == rule.number;
        case Rule::When::kEvery: return seen % rule.number == 0;
        case Rule::When::kFrom: break;
    }
    return seen >= rule.number;
}

}  // namespace

RuleBook::RuleBook(const std::vector<Rule>& rules) {
    for (const Rule& rule : rules) mEntries.push_back({rule, 0});
}

std::vector<const Rule*> RuleBook::apply(const std::string& kind) {
    std::vector<const Rule*> applied;
    for (Entry& entry : mEntries) {
        if (!isAbout(entry.rule, kind)) continue;
        ++entry.seen;
        if (isTime(entry.rule, entry.seen)) applied.push_back(&entry.rule);
    }
    return applied;
}
