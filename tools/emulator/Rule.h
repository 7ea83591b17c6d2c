// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One thing that a rule has the service do.
struct Action {
    enum class Kind {
        kRefuse,
        kNever,
        kLate,
        kCopies,
        kWrongId,
        kMismatch,
        kEmptyBody,
        kNoBody,
        kTruncate,
        kGarbage,
        kUnknownEvent,
        kStatus,
        kDieBefore,
        kDieAfter,
    };

    Kind kind;
    std::optional<int64_t> number;  // as written, or what stands for it; none if none was given
    std::vector<uint8_t> bytes;     // of garbage
};

// How the service misbehaves, and when.
struct Rule {
    enum class When { kNth, kEvery, kFrom };

    std::string kind;  // of requests, as kindOf() names them; "any" for all, or "register"
    When when = When::kFrom;
    uint64_t number = 1;
    std::vector<Action> actions;  // in the order to be done
    std::string text;             // as the user wrote it
};

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
