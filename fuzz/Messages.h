// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "fuzz/Input.h"
#include "proto/SdfProto.pb.h"

// A message of the service as the input says: one that the schema knows, field by field, or one of
// which some bytes are changed or cut off, or just bytes.
// id: draws a transaction's or a filter's number.
std::vector<uint8_t> makeMessage(Input& input, const std::function<unsigned int()>& id);

// The message as the service sends it.
std::vector<uint8_t> encode(const SdfProto::ClientMsg& message);
