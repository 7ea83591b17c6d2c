// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

// How many descriptors this process has open. Any thread.
size_t openDescriptors();

// How many threads this process has. Any thread.
size_t runningThreads();
