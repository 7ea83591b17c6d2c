// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>

// Why AServiceManager_addService refuses over the kernel's driver.
const char* driverReasonOf(binder_exception_t refused);
