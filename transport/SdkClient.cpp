// SPDX-License-Identifier: Apache-2.0
#include "transport/SdkClient.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <unistd.h>

#include <exception>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "utils/Log.h"
#include "utils/NoDestroy.h"
#include "utils/SharedPointer.h"

namespace {

constexpr int kConnectAttempts = 6;
constexpr useconds_t kFirstDelayMs = 50;  // doubled after each failed attempt

NoDestroy<std::shared_ptr<SdkClient>> gInstance;

// The objects that a death notification may name. A notification can be under way while its object
// goes, so the cookie is only compared until an owning pointer was obtained here.
struct Linked {
    lum::utils::Mutex lock;
    std::map<const void*, std::weak_ptr<SdkClient>> clients LUM_GUARDED_BY(lock);
};
NoDestroy<Linked> gLinked;

}  // namespace

std::shared_ptr<SdkClient>& SdkClient::mInstance = gInstance.value;

SdkClient::SdkClient(LumTimer* timer, lum::utils::EventManager* eventManager)
    : SdkClientBase(timer, eventManager) {}

SdkClient::~SdkClient() {
    {
        const lum::utils::MutexLock lock(gLinked.value.lock);
        gLinked.value.clients.erase(this);
    }
    deleteRecipient();
}

std::shared_ptr<SdkClient> SdkClient::getInstance(LumSdkClientType type, Listener listener,
                                                  std::shared_ptr<SdkClientEvent> event,
                                                  std::shared_ptr<SdkClientBase>* published) {
    if (!event) return nullptr;
    std::shared_ptr<SdkClient> present = lum::utils::loadShared(mInstance);
    if (!present) return create(type, std::move(listener), std::move(event), published);
    // Copied before anything changes: what the listener keeps takes memory.
    const Listener joined = listener;
    if (!present->join(type, std::move(listener), std::move(event),
                       [&present, published] { present->publish(published); })) {
        return nullptr;
    }
    if (joined) joined(SDK_SERVICE_UP, {});
    return present;
}

std::shared_ptr<SdkClient> SdkClient::create(LumSdkClientType type, Listener listener,
                                             std::shared_ptr<SdkClientEvent> event,
                                             std::shared_ptr<SdkClientBase>* published) {
    auto timer = std::make_unique<LumTimer>(nullptr);
    auto eventManager = std::make_unique<lum::utils::EventManager>();
    // After the two, so that a half-made object goes before what it refers to.
    std::shared_ptr<SdkClient> instance =
        ndk::SharedRefBase::make<SdkClient>(timer.get(), eventManager.get());
    if (!instance->isRegistered()) {
        LUM_LOGE("SdkClient: no descriptor for the event queue; the transport is not started");
        return nullptr;
    }
    if (!instance->begin(type, std::move(listener), event)) return nullptr;
    {
        const lum::utils::MutexLock lock(gLinked.value.lock);
        gLinked.value.clients[instance.get()] = instance;
    }
    try {
        instance->start(type, std::move(event), instance, [&instance, published] {
            lum::utils::exchangeShared(mInstance, instance);
            instance->publish(published);
        });
    } catch (const std::system_error& error) {
        LUM_LOGE("SdkClient: no SDK thread (%s); the transport is not started", error.what());
        instance->detach();
        return nullptr;
    } catch (...) {
        instance->detach();  // a thread that failed may be the last to release the object
        throw;
    }
    // From here on the teardown owns them; see tearDown().
    (void)timer.release();
    (void)eventManager.release();
    return instance;
}

void SdkClient::publish(std::shared_ptr<SdkClientBase>* published) {
    if (published != nullptr) {
        lum::utils::exchangeShared<SdkClientBase>(*published, ref<SdkClient>());
    }
}

void SdkClient::destroyInstance(LumSdkClientType type) {
    const std::shared_ptr<SdkClient> instance = lum::utils::loadShared(mInstance);
    if (!instance || !instance->leave(type)) return;
    if (instance->onSdkThread()) {
        lum::utils::exchangeShared(mInstance, {});
        instance->runAfterLoop(
            [](SdkClientBase& self) { static_cast<SdkClient&>(self).tearDown(); });
        return;
    }
    const lum::utils::MutexLock loopEnded(instance->gate());
    instance->tearDown();
}

// The SDK thread's loop has ended; only binder threads may still reach this object.
void SdkClient::tearDown() {
    if (const std::shared_ptr<ILumService> linked = service()) {
        // The cookie is not the one that was linked with, so the link stays until the recipient is
        // deleted with this object. A death that comes meanwhile finds no listener left.
        AIBinder_unlinkToDeath(linked->asBinder().get(), mDeathRecipient, &mInstance);
    }
    setService(nullptr);
    // This object's hold on itself: without this it would never go.
    mCallbackSelf.reset();
    clearListeners();
    // Unless a destroy on the SDK thread has done so: then another may be there by now.
    lum::utils::clearShared(mInstance, this);
    // The service may keep this object past the two deleted here.
    detach();
    delete timer();
    delete eventManager();
}

void SdkClient::deathCallback(void* cookie) {
    std::shared_ptr<SdkClient> client;
    {
        const lum::utils::MutexLock lock(gLinked.value.lock);
        const auto found = gLinked.value.clients.find(cookie);
        if (found != gLinked.value.clients.end()) client = found->second.lock();
    }
    if (!client) return;
    try {
        client->notifyServiceDown(LUM_SDK_CLIENT_NONE);
    } catch (const std::exception& error) {
        LUM_LOGE("SdkClient: a listener threw at service down: %s", error.what());
    } catch (...) {
        LUM_LOGE("SdkClient: a listener threw at service down");
    }
    client->setService(nullptr);
}

SdkClient::LumSdkType SdkClient::convertLumSdkTypeToAidl(LumSdkClientType type) {
    int32_t value = 0;
    if (type >= 1 && type <= 6) value = type;
    if (type >= 8 && type <= 12) value = type - 1;
    return static_cast<LumSdkType>(value);
}

LumSdkClientType SdkClient::convertAidlSdkTypeToSdk(LumSdkType type) {
    const auto value = static_cast<int32_t>(type);
    if (value >= 1 && value <= 6) return static_cast<LumSdkClientType>(value);
    if (value >= 7 && value <= 11) return static_cast<LumSdkClientType>(value + 1);
    return LUM_SDK_CLIENT_NONE;
}

ndk::ScopedAStatus SdkClient::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    try {
        notifyReceivedBlob(convertAidlSdkTypeToSdk(type), blob);
    } catch (const std::exception& error) {
        LUM_LOGE("SdkClient: a listener threw at a message: %s", error.what());
    } catch (...) {
        LUM_LOGE("SdkClient: a listener threw at a message");
    }
    return ndk::ScopedAStatus::ok();
}

void SdkClient::connectLumSdkClient(LumSdkClientType type) {
    if (service()) {
        notifyServiceUp(type);
        return;
    }
    ABinderProcess_startThreadPool();
    const std::shared_ptr<ILumService> found = findService();
    if (!found) return;
    mCallbackSelf = ref<SdkClient>();
    if (found->registerBlobCallback(mCallbackSelf).isOk()) notifyServiceUp(type);
}

std::shared_ptr<SdkClient::ILumService> SdkClient::findService() {
    useconds_t delayMs = kFirstDelayMs;
    for (int failures = 0; failures < kConnectAttempts; ++failures) {
        const ndk::SpAIBinder binder(AServiceManager_waitForService(ILumService::descriptor));
        if (binder.get() != nullptr) {
            std::shared_ptr<ILumService> found = ILumService::fromBinder(binder);
            if (found && linkToService(found)) return found;
        }
        usleep(delayMs * 1000);
        delayMs *= 2;
    }
    return nullptr;
}

bool SdkClient::linkToService(const std::shared_ptr<ILumService>& service) {
    // Set before the link, so that a death right after the link finds it and releases it.
    setService(service);
    AIBinder_DeathRecipient* const recipient = AIBinder_DeathRecipient_new(deathCallback);
    deleteRecipient();
    mDeathRecipient = recipient;
    const ndk::SpAIBinder binder = service->asBinder();
    if (AIBinder_linkToDeath(binder.get(), mDeathRecipient, this) == STATUS_OK) {
        mLinkedBinder = binder;
        return true;
    }
    // Dead already: its death would never be reported.
    setService(nullptr);
    return false;
}

// The link must end before its proxy may go: a proxy that goes with a link on it has the runtime
// take its registration at the driver back by itself, but only with this thread's next call. Until
// then the driver refuses another registration for the same service, and ends it afterwards.
void SdkClient::deleteRecipient() {
    if (mLinkedBinder.get() != nullptr) {
        AIBinder_unlinkToDeath(mLinkedBinder.get(), mDeathRecipient, this);
        mLinkedBinder.set(nullptr);
    }
    AIBinder_DeathRecipient_delete(mDeathRecipient);
}

bool SdkClient::isConnected(LumSdkClientType /*type*/) {
    return service() != nullptr;
}

bool SdkClient::sendBlobToService(LumSdkClientType type, std::vector<uint8_t> blob) {
    const std::shared_ptr<ILumService> target = service();
    return target && target->sendBlob(convertLumSdkTypeToAidl(type), blob).isOk();
}

void SdkClient::notifyServiceDown(LumSdkClientType /*type*/) {
    // Each is looked up when its turn comes: one that is replaced or added meanwhile counts.
    std::optional<LumSdkClientType> last;
    while (const auto next = listenerAfter(last)) {
        last = next->first;
        next->second(SDK_SERVICE_DOWN, {});
    }
}

std::shared_ptr<SdkClient::ILumService> SdkClient::service() const {
    const lum::utils::MutexLock lock(mServiceLock);
    return mService;
}

void SdkClient::setService(std::shared_ptr<ILumService> service) {
    // The old one goes with the argument, after the lock.
    const lum::utils::MutexLock lock(mServiceLock);
    mService.swap(service);
}
