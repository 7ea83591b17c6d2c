// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

// Whether one of several holders of something that is scarce may come to hold `held` of it, so that
// `free` of it would be left: as much has to stay free as it holds itself. One that takes what it
// can get ends with half, a second one with half of the rest, and so on; there is always some left
// for the next. However little that is, each may hold up to `least`.
constexpr bool isFairShare(size_t held, size_t free, size_t least) {
    return held <= free || held <= least;
}
