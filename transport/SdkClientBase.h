// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <thread>
#include <utility>
#include <vector>

#include "transport/LumSdkClientType.h"
#include "transport/SdkClientEvent.h"
#include "utils/EventManager.h"
#include "utils/LumEventHandler.h"
#include "utils/LumTimer.h"
#include "utils/Mutex.h"

// The half of the transport that does not depend on how the service is reached: the SDK thread, the
// queue of events for it, one listener per client type, and which client types are in use.
//
// Threads: postEvent() may be called from anywhere. handleEvent() and the virtual operations run on
// the SDK thread, except notifyServiceDown(). Listeners are called with no lock held.
class SdkClientBase : public lum::utils::LumEventHandler<std::shared_ptr<SdkClientEvent>> {
  public:
    // What a listener is called with.
    enum SdkStatus : int32_t {
        SDK_BLOB_RECEIVED = 0,  // bytes from the service; on the thread that delivered them
        SDK_SEND_FAILED = 1,    // a queued request could not be handed over; on the SDK thread
        SDK_SERVICE_DOWN = 2,   // the service died; on a binder thread
        SDK_SERVICE_UP = 3,     // the link stands; on the SDK thread, or inside getInstance()
    };

    // The vector is valid only during the call; it is empty for all but SDK_BLOB_RECEIVED.
    using Listener = std::function<void(SdkStatus, const std::vector<uint8_t>&)>;

    static constexpr size_t kClientTypes = 14;

    // Counters shared by feature clients; the transport itself neither reads nor advances them.
    static uint64_t mTransactionId;
    static uint32_t mTransactionId32;

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
    // Reports to every listener that the service is gone, in ascending order of client type.
    virtual void notifyServiceDown(LumSdkClientType type) = 0;
    // Called when a release event of the type has been handled.
    virtual void cleanup(LumSdkClientType type);

    // Starts the SDK thread, detached, with the signals blocked that a program handles on purpose
    // (SignalMask.h); `type` names who starts it. When it returns, the first event is queued, the
    // loop runs and its thread owns the gate: a teardown that follows at once waits for it. Throws
    // the standard library's exception when there is no thread or no memory, and then nothing runs.
    // self: owns this object; the thread keeps it until it has released the gate.
    // running: called on the SDK thread before the first event is handled, when nothing can fail
    // any more; lives as long as the call.
    void start(LumSdkClientType type, std::shared_ptr<SdkClientEvent> event,
               std::shared_ptr<SdkClientBase> self, const std::function<void()>& running);

    // Replaces the type's listener; the old callable is destroyed with no lock held. For other
    // feature clients: this library's own sets its listener when it joins.
    void setClientListener(LumSdkClientType type, Listener listener);
    // Each calls the type's listener, on the calling thread, if there is one.
    void notifyReceivedBlob(LumSdkClientType type, const std::vector<uint8_t>& blob);
    void notifyServiceUp(LumSdkClientType type);

    // True while the SDK thread's loop runs.
    bool isRunning() const { return mRunning; }
    // Whether the type is in use.
    bool isActive(LumSdkClientType type) const;

  protected:
    // A type comes into use, with `first` as its first event, before the loop runs. Returns false,
    // with nothing changed, when the type is none that the transport knows.
    bool begin(LumSdkClientType type, Listener listener, std::shared_ptr<SdkClientEvent> first);
    // The same on a loop that runs, and queues the event; `queued` is called before the event can
    // be handled. Returns false, with nothing changed, also when the loop does not run any more or
    // the last type has left. Throws std::bad_alloc; the type is then no more in use than it was.
    bool join(LumSdkClientType type, Listener listener, std::shared_ptr<SdkClientEvent> first,
              const std::function<void()>& queued);
    // A type goes out of use. Returns true to exactly one caller: the one that left last and has to
    // tear down. From then on join() refuses.
    bool leave(LumSdkClientType type);

    bool onSdkThread() const;
    // What the SDK thread does last, once its loop has ended and the gate is free: for a teardown
    // that was asked for on the SDK thread itself, which cannot wait for its own end.
    void runAfterLoop(void (*teardown)(SdkClientBase&));

    // Waits until the SDK thread has left its loop. Whoever locks it owns the object until after
    // the unlock.
    lum::utils::BasicMutex<std::shared_mutex>& gate() LUM_RETURNS(mGate) { return mGate; }

    // The entry with the lowest type above `last`, or of all if that is empty; nothing when there
    // is none. The listener may be an empty one.
    std::optional<std::pair<LumSdkClientType, Listener>> listenerAfter(
        std::optional<LumSdkClientType> last) const;
    void clearListeners();

    LumTimer* timer() const { return mTimer; }
    lum::utils::EventManager* eventManager() const { return mEventManager; }

  private:
    friend class SdkClientBasePeer;  // tests: where its members lie

    class Start;
    void sdkThread(const std::shared_ptr<SdkClientEvent>& event,
                   const std::function<void()>& running, Start& start);
    void runLoop();
    void handleRequest(const SdkClientEvent& event);
    void deactivate(LumSdkClientType type);
    bool anyActive() const LUM_REQUIRES(mStateLock);
    // The type's listener; empty when it has none.
    Listener findListener(LumSdkClientType type) const;
    // The same, but leaves an empty entry behind for a type that has none.
    Listener subscriptListener(LumSdkClientType type);

    LumTimer* mTimer;
    lum::utils::EventManager* mEventManager;
    std::atomic<bool> mRunning{false};
    lum::utils::BasicMutex<std::shared_mutex> mGate;
    std::vector<bool> mActiveTypes LUM_GUARDED_BY(mStateLock);
    std::map<LumSdkClientType, Listener> mListeners LUM_GUARDED_BY(mStateLock);

    // Never held while a listener runs or is destroyed.
    mutable lum::utils::Mutex mStateLock;
    // Per type the first event of its latest use, until that event is handled: release events that
    // are handled before it belong to an earlier use.
    std::array<std::shared_ptr<SdkClientEvent>, kClientTypes> mFirstEvents
        LUM_GUARDED_BY(mStateLock);
    bool mClosing LUM_GUARDED_BY(mStateLock) = false;  // the last type has left
    std::thread::id mThread LUM_GUARDED_BY(mStateLock);
    // Touched by the SDK thread alone.
    void (*mAfterLoop)(SdkClientBase&) = nullptr;
};
