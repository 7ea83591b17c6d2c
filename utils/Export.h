// SPDX-License-Identifier: Apache-2.0
#pragma once

// Classes that other components may use are visible outside the library; all else is hidden.
#define LUM_EXPORT __attribute__((visibility("default")))
