// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// Returns how many blocks of memory operator new, in any form, has handed out in this process and
// operator delete has not had back, on all threads: exact, and the same for a process at rest
// however often it has worked. Blocks that the C library hands out otherwise are not counted. Any
// thread.
//
// The object library lum_heap_count brings this function together with its own operator new and
// delete, which take the place of the C++ library's in the whole process.
int64_t heapBlocks();
