// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

// ScriptedRand.cpp takes the place of the C library's rand(): the next calls return these values,
// in order; once they are used up, the C library's own.
void scriptRand(std::vector<int> values);

// How many scripted values have not been drawn.
size_t scriptedRandLeft();
