// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

// Whether this process and its children reach each other over the kernel's binder driver, not over
// sockets.
inline bool overDriver() {
    const char* const device = getenv("LUM_BINDER");
    return device != nullptr && device[0] != '\0';
}
