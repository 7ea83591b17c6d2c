// SPDX-License-Identifier: Apache-2.0
#include "tests/support/CommonHeaders.h"
