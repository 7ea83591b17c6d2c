// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "transport/LumSdkClientType.h"
#include "utils/LumEventBase.h"

// One unit of work for the SDK thread. Always held by std::shared_ptr.
class SdkClientEvent : public LumEventBase {
  public:
    // The values of mKind.
    static constexpr int32_t kRequest = 0;  // send mBlob to the service
    static constexpr int32_t kDeliver = 1;  // hand mBlob to the client type's own listener

    // A request for the service. Copies the bytes.
    SdkClientEvent(LumSdkClientType type, std::vector<uint8_t>& blob)
        : SdkClientEvent(type, blob, false) {}

    // The same; `release` marks the last event of this use of the client type: once it has been
    // handled, the type no longer keeps the SDK thread running.
    SdkClientEvent(LumSdkClientType type, std::vector<uint8_t>& blob, bool release)
        : mRelease(release), mType(type), mBlob(blob) {}

    int32_t mReserved = 0;
    bool mRelease;
    LumSdkClientType mType;
    std::vector<uint8_t> mBlob;
    int32_t mKind = kRequest;
};
