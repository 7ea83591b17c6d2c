// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

// The descriptors of the SdfProto messages: one encoded google.protobuf.FileDescriptorSet, made
// from the schema at build time.
extern const unsigned char kSchemaDescriptors[];
extern const size_t kSchemaDescriptorsSize;
