// SPDX-License-Identifier: Apache-2.0
#include "transport/SdkBase.h"

#include <utility>

#include "transport/SdkClient.h"

SdkBase::~SdkBase() = default;

void SdkBase::createSdkInstance(LumSdkClientType type, SdkClientBase::Listener listener,
                                std::shared_ptr<SdkClientEvent> event) {
    if (obtainTransport(type, std::move(listener), std::move(event))) return;
    reportNoTransport(mBaseStatusCbV2, mLegacyStatusCb);
}

bool SdkBase::obtainTransport(LumSdkClientType type, SdkClientBase::Listener listener,
                              std::shared_ptr<SdkClientEvent> event) {
    if (const std::shared_ptr<SdkClientBase> present = transport()) {
        if (event) present->postEvent(std::move(event));
        return true;
    }
    // The pointer is set before the SDK thread can handle the event: a callback that comes while
    // this call is still under way finds the transport there, and may even have destroyed it again.
    return SdkClient::getInstance(type, std::move(listener), std::move(event), &mSdkClient) !=
           nullptr;
}

void SdkBase::reportNoTransport(void (*baseStatusCbV2)(int), void (*legacyStatusCb)(status_e)) {
    if (baseStatusCbV2 != nullptr) {
        baseStatusCbV2(SDF_V2_INTERNAL_ERROR);
    } else if (legacyStatusCb != nullptr) {
        legacyStatusCb(SDF_STATUS_INTERNAL_ERROR);
    }
}

void SdkBase::destroySdkInstance(LumSdkClientType type) {
    if (lum::utils::exchangeShared(mSdkClient, {})) {
        SdkClient::destroyInstance(type);
    }
}
