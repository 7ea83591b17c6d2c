// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// Options for an emulator that misbehaves, or dies. pick: returns a number below its argument.
// ends: it does so a few times and then no more; otherwise again and again.
std::vector<std::string> randomRules(const std::function<size_t(size_t)>& pick, bool ends);
