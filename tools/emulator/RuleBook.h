// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/emulator/Rule.h"

// The rules by which the service misbehaves, and how often each could have applied. Belongs to one
// thread.
class RuleBook {
  public:
    explicit RuleBook(const std::vector<Rule>& rules);

    // Counts one event of a kind (a request's kindOf(), or "register") and returns the rules that
    // apply to it, in order.
    std::vector<const Rule*> apply(const std::string& kind);

  private:
    struct Entry {
        Rule rule;
        uint64_t seen = 0;  // events that the rule is about
    };

    std::vector<Entry> mEntries;
};
