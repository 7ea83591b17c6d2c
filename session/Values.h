// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

// Which values the library takes. It says so only when the service is up; a session at once.
bool isValid(SdfSlotID slot);
bool isValid(SdfLatencyLvl level);
bool isValid(SdfOod ood);
bool isValid(const SdfAddFilterInfo& info);

// Durations of the interface, in milliseconds.
bool isDuration(unsigned int milliseconds);
