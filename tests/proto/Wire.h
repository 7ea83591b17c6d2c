// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <google/protobuf/message_lite.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/Hex.h"

inline std::string encode(const google::protobuf::MessageLite& message) {
    std::vector<uint8_t> bytes(message.ByteSizeLong());
    EXPECT_TRUE(message.SerializeToArray(bytes.data(), static_cast<int>(bytes.size())));
    return toHex(bytes);
}

inline bool decode(google::protobuf::MessageLite& message, const std::string& hex) {
    const std::vector<uint8_t> bytes = fromHex(hex);
    return message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
}

// `fill` sets fields; the message must then encode to `hex`, and decoding `hex` must give a message
// that satisfies `check`.
template <typename Message, typename Fill, typename Check>
void expectWire(const std::string& hex, const Fill& fill, const Check& check) {
    Message filled;
    fill(filled);
    EXPECT_EQ(encode(filled), hex);
    Message decoded;
    ASSERT_TRUE(decode(decoded, hex));
    check(decoded);
    EXPECT_EQ(encode(decoded), hex);
}
