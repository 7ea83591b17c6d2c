// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "transport/SdkClientBase.h"
#include "transport/SdkClientEvent.h"
#include "utils/EventManager.h"
#include "utils/LumTimer.h"

// What a FakeTransport's base is made from.
struct FakeLoop {
    LumTimer loopTimer{nullptr};
    lum::utils::EventManager loopManager;
};

// A transport without a thread and without a service: keeps what was posted until the test takes
// it.
class FakeTransport : private FakeLoop, public SdkClientBase {
  public:
    FakeTransport() : SdkClientBase(&loopTimer, &loopManager) {}

    // What was posted since the last call, in order.
    std::vector<std::shared_ptr<SdkClientEvent>> take();

    // The same as text: "5: 1A 02 0A 00", and " release" behind a release event.
    std::vector<std::string> takeText();

    void handleEvent(std::shared_ptr<SdkClientEvent> event) override { mTaken.push_back(event); }
    void connectLumSdkClient(LumSdkClientType) override {}
    bool isConnected(LumSdkClientType) override { return true; }
    bool sendBlobToService(LumSdkClientType, std::vector<uint8_t>) override { return true; }
    void notifyServiceDown(LumSdkClientType) override {}

  private:
    std::vector<std::shared_ptr<SdkClientEvent>> mTaken;
};

// Stands in for the process-wide transport of the library: FakeTransport.cpp defines
// SdkClient::getInstance() and destroyInstance(), so that the linker leaves the real ones out.
struct FakeSdkClient {
    // Room for all that tests do: recording a call must not fail when memory runs out.
    FakeSdkClient() {
        obtained.reserve(4096);
        destroyed.reserve(4096);
    }

    // What getInstance() hands out next. Empty: it has no transport to give.
    std::shared_ptr<FakeTransport> transport = std::make_shared<FakeTransport>();
    // Called inside getInstance() before it returns, and inside destroyInstance().
    std::function<void()> duringGet;
    std::function<void()> duringDestroy;

    SdkClientBase::Listener listener;  // of the latest getInstance(); none after destroyInstance()
    std::vector<LumSdkClientType> obtained;
    std::vector<LumSdkClientType> destroyed;

    static FakeSdkClient& get();
    static void reset() { get() = FakeSdkClient(); }
};
