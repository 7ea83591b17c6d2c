// SPDX-License-Identifier: Apache-2.0
#include "transport/SdkClientBase.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "utils/Log.h"
#include "utils/Mutex.h"
#include "utils/SignalMask.h"

namespace {

bool isKnown(LumSdkClientType type) {
    return type >= 0 && static_cast<size_t>(type) < SdkClientBase::kClientTypes;
}

size_t indexOf(LumSdkClientType type) {
    return static_cast<size_t>(type);
}

}  // namespace

// How a new SDK thread reports to its maker that it runs, or why it cannot. Needs no memory.
class SdkClientBase::Start {
  public:
    void report(std::exception_ptr failure) {
        // Notified under the lock: the maker destroys this object as soon as it knows.
        const lum::utils::MutexLock lock(mLock);
        mFailure = std::move(failure);
        mReported = true;
        mChanged.notifyOne();
    }
    void wait() {
        const lum::utils::MutexLock lock(mLock);
        while (!mReported) mChanged.wait(mLock);
        if (mFailure) std::rethrow_exception(mFailure);
    }

  private:
    lum::utils::Mutex mLock;
    lum::utils::Condition mChanged;
    std::exception_ptr mFailure LUM_GUARDED_BY(mLock);
    bool mReported LUM_GUARDED_BY(mLock) = false;
};

uint64_t SdkClientBase::mTransactionId = 1;
uint32_t SdkClientBase::mTransactionId32 = 1;

SdkClientBase::SdkClientBase(LumTimer* timer, lum::utils::EventManager* eventManager)
    : LumEventHandler(*eventManager, *timer, "SdkClientBase"),
      mTimer(timer),
      mEventManager(eventManager),
      mActiveTypes(kClientTypes, false) {}

SdkClientBase::~SdkClientBase() = default;

void SdkClientBase::cleanup(LumSdkClientType /*type*/) {}

void SdkClientBase::start(LumSdkClientType /*type*/, std::shared_ptr<SdkClientEvent> event,
                          std::shared_ptr<SdkClientBase> self,
                          const std::function<void()>& running) {
    Start start;
    {
        const SignalMask mask;
        // The thread's own reference goes with its callable, after sdkThread() has returned.
        std::thread([self = std::move(self), event = std::move(event), &running, &start] {
            self->sdkThread(event, running, start);
        }).detach();
    }
    start.wait();
}

void SdkClientBase::sdkThread(const std::shared_ptr<SdkClientEvent>& event,
                              const std::function<void()>& running, Start& start) {
    {
        const lum::utils::MutexLock lock(mStateLock);
        mThread = std::this_thread::get_id();
    }
    mRunning = true;
    try {
        if (event) postEvent(event);
    } catch (...) {
        mRunning = false;
        start.report(std::current_exception());
        return;
    }
    {
        const lum::utils::MutexLock gate(mGate);
        running();
        start.report(nullptr);
        runLoop();
        const lum::utils::MutexLock lock(mStateLock);
        mThread = std::thread::id();  // a later thread may get the same one
    }
    if (mAfterLoop != nullptr) mAfterLoop(*this);
}

void SdkClientBase::runLoop() {
    while (mRunning) {
        // What a listener or a timed callback throws ends here; the loop has to go on, or nobody
        // could ever tear the transport down.
        try {
            mTimer->processEvents();
            mEventManager->processEvents(mTimer);
        } catch (const std::exception& error) {
            LUM_LOGE("SDK thread: a callback threw: %s", error.what());
        } catch (...) {
            LUM_LOGE("SDK thread: a callback threw something that is no std::exception");
        }
    }
}

void SdkClientBase::handleEvent(std::shared_ptr<SdkClientEvent> event) {
    if (!mRunning || !event) return;
    const LumSdkClientType type = event->mType;
    {
        // Every type, as the event may have been made for another than the one the transport was
        // joined with.
        const lum::utils::MutexLock lock(mStateLock);
        for (auto& first : mFirstEvents) {
            if (first == event) first.reset();
        }
    }

    if (event->mKind == SdkClientEvent::kDeliver) {
        if (const Listener listener = subscriptListener(type)) {
            listener(SDK_BLOB_RECEIVED, event->mBlob);
            return;
        }
    }

    if (!event->mRelease) {
        handleRequest(*event);
        return;
    }
    // The release is carried out whatever the last send and cleanup() do, or the loop would never
    // end; what they throw goes on afterwards.
    std::exception_ptr failure;
    try {
        handleRequest(*event);
    } catch (...) {
        failure = std::current_exception();
    }
    try {
        cleanup(type);
    } catch (...) {
        if (!failure) failure = std::current_exception();
    }
    deactivate(type);
    if (failure) std::rethrow_exception(failure);
}

void SdkClientBase::handleRequest(const SdkClientEvent& event) {
    const LumSdkClientType type = event.mType;
    if (!event.mRelease && !isConnected(type)) connectLumSdkClient(type);
    if (!isConnected(type) || sendBlobToService(type, event.mBlob)) return;
    if (const Listener listener = subscriptListener(type)) listener(SDK_SEND_FAILED, {});
}

void SdkClientBase::deactivate(LumSdkClientType type) {
    const lum::utils::MutexLock lock(mStateLock);
    if (isKnown(type)) {
        // The type came into use again after this release event was posted: the new use stays.
        if (mFirstEvents[indexOf(type)]) return;
        mActiveTypes[indexOf(type)] = false;
    }
    if (!anyActive()) mRunning = false;
}

void SdkClientBase::setClientListener(LumSdkClientType type, Listener listener) {
    // The swap leaves the old callable in the argument, which goes after the lock.
    const lum::utils::MutexLock lock(mStateLock);
    mListeners[type].swap(listener);
}

void SdkClientBase::notifyReceivedBlob(LumSdkClientType type, const std::vector<uint8_t>& blob) {
    if (const Listener listener = findListener(type)) listener(SDK_BLOB_RECEIVED, blob);
}

void SdkClientBase::notifyServiceUp(LumSdkClientType type) {
    if (const Listener listener = findListener(type)) listener(SDK_SERVICE_UP, {});
}

bool SdkClientBase::isActive(LumSdkClientType type) const {
    const lum::utils::MutexLock lock(mStateLock);
    return isKnown(type) && mActiveTypes[indexOf(type)];
}

bool SdkClientBase::begin(LumSdkClientType type, Listener listener,
                          std::shared_ptr<SdkClientEvent> first) {
    if (!isKnown(type)) return false;
    const lum::utils::MutexLock lock(mStateLock);
    mListeners[type].swap(listener);
    mFirstEvents[indexOf(type)].swap(first);
    mActiveTypes[indexOf(type)] = true;
    return true;
}

bool SdkClientBase::join(LumSdkClientType type, Listener listener,
                         std::shared_ptr<SdkClientEvent> first,
                         const std::function<void()>& queued) {
    if (!isKnown(type)) return false;
    // Held until all is in place: the SDK thread takes it before it handles an event.
    const lum::utils::MutexLock lock(mStateLock);
    if (mClosing || !mRunning) return false;
    mListeners[type].swap(listener);
    postEvent(first);
    mFirstEvents[indexOf(type)].swap(first);
    mActiveTypes[indexOf(type)] = true;
    queued();
    return true;
}

bool SdkClientBase::leave(LumSdkClientType type) {
    const lum::utils::MutexLock lock(mStateLock);
    if (isKnown(type)) mActiveTypes[indexOf(type)] = false;
    if (mClosing || anyActive()) return false;
    mClosing = true;
    return true;
}

bool SdkClientBase::anyActive() const {
    return std::find(mActiveTypes.begin(), mActiveTypes.end(), true) != mActiveTypes.end();
}

bool SdkClientBase::onSdkThread() const {
    const lum::utils::MutexLock lock(mStateLock);
    return mThread == std::this_thread::get_id();
}

void SdkClientBase::runAfterLoop(void (*teardown)(SdkClientBase&)) {
    mAfterLoop = teardown;
}

std::optional<std::pair<LumSdkClientType, SdkClientBase::Listener>> SdkClientBase::listenerAfter(
    std::optional<LumSdkClientType> last) const {
    const lum::utils::MutexLock lock(mStateLock);
    const auto next = last ? mListeners.upper_bound(*last) : mListeners.begin();
    if (next == mListeners.end()) return std::nullopt;
    return *next;
}

void SdkClientBase::clearListeners() {
    std::map<LumSdkClientType, Listener> cleared;
    const lum::utils::MutexLock lock(mStateLock);
    mListeners.swap(cleared);
}

SdkClientBase::Listener SdkClientBase::findListener(LumSdkClientType type) const {
    const lum::utils::MutexLock lock(mStateLock);
    const auto found = mListeners.find(type);
    return found == mListeners.end() ? Listener() : found->second;
}

SdkClientBase::Listener SdkClientBase::subscriptListener(LumSdkClientType type) {
    const lum::utils::MutexLock lock(mStateLock);
    return mListeners[type];
}
