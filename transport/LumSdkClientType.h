// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// The feature client on whose behalf a blob travels. The transport knows 0 to 13; most have no name
// here and are passed through as numbers.
enum LumSdkClientType : int32_t {
    LUM_SDK_CLIENT_NONE = 0,  // no particular client
    LUM_SDK_CLIENT_SDF = 5,   // service data flows
};
