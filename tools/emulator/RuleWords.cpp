// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/RuleWords.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <limits>
#include <sstream>

namespace {

constexpr int64_t kDay = 24LL * 60 * 60 * 1000;
constexpr int64_t kLast32 = std::numeric_limits<uint32_t>::max();
constexpr int64_t kLeastEnum = std::numeric_limits<int32_t>::min();
constexpr int64_t kMostEnum = std::numeric_limits<int32_t>::max();
constexpr int64_t kMostCopies = 100000;
constexpr int64_t kMostBytes = 65536;

constexpr ActionWord kActions[] = {
    {"refuse", Action::Kind::kRefuse, Argument::kNone, 0, 0, "refuse",
     "do not carry the request out; the client's call fails"},
    {"never", Action::Kind::kNever, Argument::kNone, 0, 0, "never",
     "send nothing of what is there so far"},
    {"late", Action::Kind::kLate, Argument::kNumber, 0, kDay, "late MS",
     "send it so many milliseconds later"},
    {"twice", Action::Kind::kCopies, Argument::kNone, 2, 2, "twice",
     "send each message twice; short for flood 2"},
    {"flood", Action::Kind::kCopies, Argument::kNumber, 1, kMostCopies, "flood N",
     "send each message N times"},
    {"wrong-id", Action::Kind::kWrongId, Argument::kOptionalNumber, 0, kLast32, "wrong-id [ID]",
     "put ID, or the right one plus 1, in place of each id"},
    {"mismatch", Action::Kind::kMismatch, Argument::kOptionalEvent, 0, 0, "mismatch [EVENT]",
     "keep the body but say it is of EVENT, or of the next one"},
    {"empty-body", Action::Kind::kEmptyBody, Argument::kNone, 0, 0, "empty-body",
     "leave all fields out of the body"},
    {"no-body", Action::Kind::kNoBody, Argument::kNone, 0, 0, "no-body", "leave the body out"},
    {"truncate", Action::Kind::kTruncate, Argument::kOptionalNumber, 0, kMostBytes, "truncate [N]",
     "send but the first N bytes, or all but the last one"},
    {"garbage", Action::Kind::kGarbage, Argument::kBytes, 1, kMostBytes,
     "garbage HEX | garbage random N [SEED]", "add a message of these bytes"},
    {"unknown-event", Action::Kind::kUnknownEvent, Argument::kOptionalNumber, 7, kMostEnum,
     "unknown-event [N]", "add a message of event N, 99 if none is given"},
    {"status", Action::Kind::kStatus, Argument::kStatus, kLeastEnum, kMostEnum,
     "status NAME|NUMBER", "add a status indication with that status"},
    {"die", Action::Kind::kDieBefore, Argument::kMoment, 0, 0, "die before|after",
     "end as by kill -9, before anything is done, or when all that is not late is sent"},
};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string join(const std::string& list, const std::string& word) {
    return list.empty() ? word : list + ", " + word;
}

// The names of the values from `least` to `most`.
template <typename Name>
std::string names(int least, int most, Name name) {
    std::string words;
    for (int value = least; value <= most; ++value) words = join(words, name(value));
    return words;
}

// A list for the help, indented, on as many lines as it takes.
std::string listed(const std::string& title, const std::string& words) {
    constexpr size_t kWidth = 100;
    std::string text = title + ":\n";
    std::string line = " ";
    std::istringstream each(words);
    for (std::string word; each >> word;) {
        if (line.size() + 1 + word.size() > kWidth) {
            text += line + "\n";
            line = " ";
        }
        line += " " + word;
    }
    return text + line;
}

}  // namespace

const ActionWord* findAction(const std::string& word) {
    const auto* const found =
        std::find_if(std::begin(kActions), std::end(kActions),
                     [&](const ActionWord& action) { return word == action.word; });
    return found == std::end(kActions) ? nullptr : found;
}

std::string actionWords() {
    std::string words;
    for (const ActionWord& action : kActions) words = join(words, action.word);
    return words;
}

bool isKind(const std::string& word) {
    if (word == "any" || word == "register" || word == "disable") return true;
    for (int event = SdfProto::ServiceEventId_MIN; event <= SdfProto::ServiceEventId_MAX; ++event) {
        if (word == lower(SdfProto::ServiceEventId_Name(event))) return true;
    }
    return false;
}

std::string kindWords() {
    return join("any, register, disable",
                names(SdfProto::ServiceEventId_MIN, SdfProto::ServiceEventId_MAX,
                      [](int event) { return lower(SdfProto::ServiceEventId_Name(event)); }));
}

std::string eventWords() {
    return names(SdfProto::ClientEventId_MIN, SdfProto::ClientEventId_MAX,
                 [](int event) { return SdfProto::ClientEventId_Name(event); });
}

std::string statusWords() {
    return names(SdfProto::Status_MIN, SdfProto::Status_MAX,
                 [](int status) { return SdfProto::Status_Name(status); });
}

std::string kindOf(const SdfProto::ServiceMsg& request) {
    if (request.event_id() == SdfProto::ENABLE && !request.data().enable_msg().enable()) {
        return "disable";
    }
    const std::string& name = SdfProto::ServiceEventId_Name(request.event_id());
    return name.empty() ? "event " + std::to_string(request.event_id()) : lower(name);
}

std::string ruleHelp() {
    std::string help = R"(Misbehaviour: each rule says when, and then what is done, in order:
  on KIND [nth N | every N | from N]: ACTION, ACTION, ...
KIND is a kind of requests, "any" for all of them, or "register" for the registration of a client's
callback object. A rule applies to all of its kind, or to the Nth, to every Nth, from the Nth on,
counted over all clients. First the request is carried out; then the actions of all rules that
apply change or add to the messages that answer it: those of scenarios first, then those of --rule.
Actions:
)";
    for (const ActionWord& action : kActions) {
        help += std::string("  ") + action.usage + "\n      " + action.meaning + "\n";
    }
    help += R"(Examples:
  --rule 'on set_latency_level nth 3: late 500, twice'
  --rule 'on add_filter: wrong-id'
  --rule 'on any every 10: refuse'
  --rule 'on get_filters: never, garbage 08 04 ff'
  --rule 'on register: refuse'
  --rule 'on enable from 2: status INTERNAL_ERROR'
A scenario file has one rule a line; what follows a # is a comment.
)";
    return help + listed("Kinds", kindWords()) + "\n" + listed("Events", eventWords()) + "\n" +
           listed("Statuses", statusWords());
}
