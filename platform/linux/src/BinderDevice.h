// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

// The kernel's driver that this process uses, from the environment variable LUM_BINDER; empty:
// none, but sockets.
const std::string& binderDevice();

// The word in a call that says which partition its caller is built for. All callers at one driver's
// device have the same: the vendor's where that is named vndbinder, and without one, otherwise the
// system's.
uint32_t partitionAt(const std::string& device);
// That of this process's calls.
uint32_t binderPartition();
