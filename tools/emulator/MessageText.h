// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>

#include <cstdint>
#include <string>
#include <vector>

// What an encoded message looks like to a reader.
struct ReadableMessage {
    bool parsed = false;  // false: the bytes are no such message, and the rest is empty
    std::string event;  // the name of its event, such as "SET_LATENCY_LEVEL"; "event 99" if unknown
    std::string text;   // all fields, in protobuf's text form on one line
};

// Turns encoded messages into text. The message classes have no reflection, so this works from the
// schema's descriptors. Any thread.
class MessageText {
  public:
    MessageText();

    // bytes: one encoded message; typeName: "SdfProto.ServiceMsg" or "SdfProto.ClientMsg".
    ReadableMessage read(const char* typeName, const std::vector<uint8_t>& bytes) const;

  private:
    google::protobuf::DescriptorPool mPool;
    mutable google::protobuf::DynamicMessageFactory mFactory;  // locks for itself
};
