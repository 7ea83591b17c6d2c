// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "proto/SdfProto.pb.h"

// Returns what is wrong with the description of a filter, for the user; empty if nothing is. The
// first thing in the order of the fields that matter: addresses, ports, the others. Any thread.
std::string whatIsWrong(const SdfProto::AddFilter& description);
