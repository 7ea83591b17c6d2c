// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>

// Returns a status as it is if its code is one of those in binder_status.h; others come from
// implementations and peers that make up their own, and become STATUS_UNKNOWN_ERROR.
binder_status_t knownStatus(binder_status_t status) noexcept;
