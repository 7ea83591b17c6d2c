// SPDX-License-Identifier: Apache-2.0
#include "api/SdfRequest.h"

#include <cstdint>
#include <vector>

SdfProto::ServiceMsg sdf::makeMessage(SdfProto::ServiceEventId event) {
    SdfProto::ServiceMsg message;
    message.set_event_id(event);
    return message;
}

std::shared_ptr<SdkClientEvent> sdf::makeEvent(const SdfProto::ServiceMsg& message, bool release) {
    std::vector<uint8_t> bytes(message.ByteSizeLong());
    message.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    return std::make_shared<SdkClientEvent>(LUM_SDK_CLIENT_SDF, bytes, release);
}
