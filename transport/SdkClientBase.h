// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "transport/LumSdkClientType.h"
#include "transport/SdkClientEvent.h"
#include "utils/EventManager.h"
#include "utils/LumEventHandler.h"
#include "utils/LumTimer.h"

// The half of the transport that does not depend on how the service is reached: the SDK thread, the
// queue of events for it, one listener per client type, and which client types are in use.
//
// Threads: postEvent() may be called from anywhere. handleEvent() and the virtual operations run on
// the SDK thread, except notifyServiceDown(). Listeners are called with no lock held.
class SdkClientBase : public lum::utils::LumEventHandler<std::shared_ptr<SdkClientEvent>> {
  public:
    // What a listener is told.
    enum SdkStatus : int32_t {
        SDK_BLOB_RECEIVED = 0,  // bytes from the service; on the thread that delivered them
        SDK_SEND_FAILED = 1,    // a queued request could not be handed over; on the SDK thread
        SDK_SERVICE_DOWN = 2,   // the service died; on a binder thread
        SDK_SERVICE_UP = 3,     // the link stands; on the SDK thread, or inside getInstance()
    };

    // The vector is valid only during the call; it is empty for all but SDK_BLOB_RECEIVED.
    using Listener = std::function<void(SdkStatus, const std::vector<uint8_t>&)>;

    static constexpr size_t kClientTypes = 14;

    // Both are used until the SDK thread has ended; the caller owns them.
    SdkClientBase(LumTimer* timer, lum::utils::EventManager* eventManager);
    ~SdkClientBase() override;
    SdkClientBase(const SdkClientBase&) = delete;
    SdkClientBase& operator=(const SdkClientBase&) = delete;

    void handleEvent(std::shared_ptr<SdkClientEvent> event) override;

    // Establishes the link if it does not stand yet. May sleep.
    virtual void connectLumSdkClient(LumSdkClientType type) = 0;
    virtual bool isConnected(LumSdkClientType type) = 0;
    // Hands one request over; true on success.
    virtual bool sendBlobToService(LumSdkClientType type, std::vector<uint8_t> blob) = 0;
    // Tells every listener that the service is gone, in ascending order of client type.
    virtual void notifyServiceDown(LumSdkClientType type) = 0;
    // Called when a release event of the type has been handled.
    virtual void cleanup(LumSdkClientType type);

    // Starts the SDK thread, detached, with all signals blocked. When it returns, the loop runs and
    // its thread owns the gate, so that a teardown that follows at once waits for it. `self` owns
    // this object and is kept until the thread has released the gate. Throws std::system_error when
    // no thread can be had; nothing has changed then.
    void start(LumSdkClientType type, std::shared_ptr<SdkClientEvent> event,
               std::shared_ptr<SdkClientBase> self);

    void setClientListener(LumSdkClientType type, Listener listener);
    void notifyReceivedBlob(LumSdkClientType type, const std::vector<uint8_t>& blob);
    void notifyServiceUp(LumSdkClientType type);

  protected:
    // What the SDK thread does last, after its loop and with the gate released, when the last client
    // left on the SDK thread itself and nobody else can wait for the loop's end.
    virtual void teardownOnThread();

  private:
    LumTimer* mTimer;
    lum::utils::EventManager* mEventManager;
    std::atomic<bool> mRunning;
    std::shared_mutex mGate;
    std::vector<bool> mActiveTypes;
    std::map<LumSdkClientType, Listener> mListeners;
};
