// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "proto/SdfProto.pb.h"
#include "tools/emulator/Rule.h"

// The words of the rule language, and what they mean.

// What may follow the word of an action.
enum class Argument {
    kNone,
    kNumber,
    kOptionalNumber,
    kBytes,
    kOptionalEvent,
    kStatus,
    kMoment,
};

struct ActionWord {
    const char* word;
    Action::Kind kind;
    Argument argument;
    int64_t least;  // of a number
    int64_t most;
    const char* usage;    // how it is written
    const char* meaning;  // for the help
};

// Returns what a word means as an action; null if nothing.
const ActionWord* findAction(const std::string& word);

// All words for actions, for the user to choose from: "refuse, never, late, ...".
std::string actionWords();

// Returns whether rules can be about requests of that kind: a kind's name, "any" or "register".
bool isKind(const std::string& word);

// All kinds, for the user to choose from: "any, register, enable, disable, ...".
std::string kindWords();

// All events of the service, for the user to choose from: "STATUS_IND, ...".
std::string eventWords();

// All names of statuses, for the user to choose from: "INVALID, SUCCESS, ...".
std::string statusWords();

// The kind of a request: the name of its event in small letters, and "disable" for an enable
// request that switches off. "event 99" for an event without a name.
std::string kindOf(const SdfProto::ServiceMsg& request);

// The language explained, for --help.
std::string ruleHelp();
