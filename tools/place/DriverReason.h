// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>

// Why a service manager's name cannot be had over the kernel's driver.
const char* driverReasonOf(binder_exception_t refused);
