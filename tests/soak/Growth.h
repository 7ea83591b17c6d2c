// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tests/soak/Member.h"

// Returns what has grown in a process that was at rest so often, a line each; empty when nothing
// has. The last rest is compared with the first. With eight or more, so are the minima of the last
// quarter with those of the second, which have the smaller allowance: both are long after the
// beginning. The more rests, the smaller it is: a minimum of many is hardly ever by chance.
std::vector<std::string> growthOf(const std::vector<Member::Rest>& rests);
