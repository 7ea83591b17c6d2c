// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The kernel's driver that this process uses, from the environment variable LUM_BINDER; empty:
// none, but sockets.
const std::string& binderDevice();

// The word in a call that says which partition its caller is built for. All callers at one driver's
// device have the same: the vendor's where its name ends with vndbinder, as containers prefix it,
// and without one, otherwise the system's.
uint32_t partitionAt(std::string_view device);
// That of this process's calls. Needs no memory.
uint32_t binderPartition();
