// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "transport/LumSdkClientType.h"
#include "transport/SdkClientBase.h"
#include "transport/SdkClientEvent.h"
#include "utils/SharedPointer.h"

// What every feature client of the transport has: its status callbacks and its hold on the
// transport.
class SdkBase {
  public:
    virtual ~SdkBase();

    // Receives all that the transport reports; see SdkClientBase::SdkStatus for the threads.
    virtual void blobListener(SdkClientBase::SdkStatus status,
                              const std::vector<uint8_t>& bytes) = 0;

    // Obtains the transport for `type` and hands it `event`, its first one. With a transport
    // already there, only queues `event` (if there is one) and leaves the listener as it is. When
    // there is no transport, mBaseStatusCbV2 is called with -3, or else mLegacyStatusCb with 2.
    // Throws std::bad_alloc; may be called again then. For other feature clients: this library's
    // own uses the two halves.
    void createSdkInstance(LumSdkClientType type, SdkClientBase::Listener listener,
                           std::shared_ptr<SdkClientEvent> event);

    // The two halves of createSdkInstance(), for those who do not want to report at once: false
    // when there is no transport, and the report of that, with the callbacks to choose from.
    bool obtainTransport(LumSdkClientType type, SdkClientBase::Listener listener,
                         std::shared_ptr<SdkClientEvent> event);
    static void reportNoTransport(void (*baseStatusCbV2)(int), void (*legacyStatusCb)(status_e));

    // Releases the transport for `type`. The type's release event has to be posted before. Waits
    // for the SDK thread if this was the last type, unless called on that thread. Does nothing when
    // there is no transport.
    void destroySdkInstance(LumSdkClientType type);

    // The transport; empty while there is none. mSdkClient is written by the thread that creates or
    // destroys and read by others, so it is only touched under gSharedPointerLock.
    std::shared_ptr<SdkClientBase> transport() const { return lum::utils::loadShared(mSdkClient); }

    void (*mLegacyStatusCb)(status_e) = nullptr;
    void (*mBaseStatusCbV2)(int) = nullptr;
    std::shared_ptr<SdkClientBase> mSdkClient;
    std::map<unsigned long long, void*> mTxnContext;
    std::mutex mLock;
};
