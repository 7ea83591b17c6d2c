// SPDX-License-Identifier: Apache-2.0
// The public header as C11, included first and twice.
#include "tests/api/HeaderTest.h"

#include <lum_sdf_sdk.h>

// As in C++, wherever the compiler has enumerations of a fixed type. gcc 12 has none in C.
#if defined(__clang__) || __STDC_VERSION__ >= 202311L
_Static_assert((enum SdfStatusV2) - 1 < 0 && (status_e)-1 < 0 && (SdfSlotID)-1 < 0 &&
                   (SdfLatencyLvl)-1 < 0 && (SdfOod)-1 < 0 && (SdfProtocol)-1 < 0 &&
                   (SdfFilterAppType)-1 < 0 && (SdfFilterStatus)-1 < 0,
               "enumerations are signed");
#endif

const char* textFromC(int which, int value) {
    return textOf(which, value);
}
