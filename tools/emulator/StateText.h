// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// Returns what ServiceLogic::describe() says as text for people: an object as lines of name=value,
// wrapped, and behind them each of its arrays as a name and a count, with the elements under it.
std::string asText(const nlohmann::ordered_json& object);
