// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/ILumService.h>
#include <aidl/vendor/orn/data/lumservice/LumSdkType.h>
#include <android/binder_ibinder.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "transport/SdkClientBase.h"
#include "utils/Mutex.h"

// The transport over binder: sends requests to the data service and is itself the callback object
// that the service sends to. One per process, shared by all feature clients: made by the first
// getInstance(), torn down when the last client type has left.
class SdkClient : public aidl::vendor::orn::data::lumservice::BnLumServiceCallback,
                  public SdkClientBase {
  public:
    using LumSdkType = aidl::vendor::orn::data::lumservice::LumSdkType;

    // Use getInstance(). Both pointers are the transport's to delete, at its teardown.
    SdkClient(LumTimer* timer, lum::utils::EventManager* eventManager);
    ~SdkClient() override;

    // The process's transport, for `type`: marks the type as in use, installs `listener` for it and
    // queues `event`. If the transport was there already, the listener is called with
    // SDK_SERVICE_UP before this returns. `published`, if given, is set before `event` can be
    // handled, so that what comes of it finds the pointer in place; not when the call fails.
    //
    // Returns an empty pointer, with nothing changed, when `event` is empty, when the transport is
    // shutting down, or when the system has no descriptors or no thread for it. Throws
    // std::bad_alloc when memory runs out; the type is then no more in use than before. What the
    // listener throws at SDK_SERVICE_UP comes out as it is, after all has been done. Any thread,
    // but not while another is in getInstance() or destroyInstance().
    static std::shared_ptr<SdkClient> getInstance(
        LumSdkClientType type, Listener listener, std::shared_ptr<SdkClientEvent> event,
        std::shared_ptr<SdkClientBase>* published = nullptr);

    // Releases the transport for `type`, whose release event has to be posted before. The last
    // one waits until the SDK thread has handled everything queued (while the service is missing,
    // about 3.15 s for each request), then tears the transport down. On the SDK thread itself
    // it does not wait: the instance is gone at once for everyone, and the thread cleans up at its
    // end.
    static void destroyInstance(LumSdkClientType type);

    // The function of the death recipient; `cookie` is the SdkClient that linked. On a binder
    // thread.
    static void deathCallback(void* cookie);

    // Between the client types of this library and those of the service's interface. What has no
    // counterpart becomes 0.
    static LumSdkType convertLumSdkTypeToAidl(LumSdkClientType type);
    static LumSdkClientType convertAidlSdkTypeToSdk(LumSdkType type);

    // From the service, on a binder thread.
    ndk::ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override;

    void connectLumSdkClient(LumSdkClientType type) override;
    bool isConnected(LumSdkClientType type) override;
    bool sendBlobToService(LumSdkClientType type, std::vector<uint8_t> blob) override;
    void notifyServiceDown(LumSdkClientType type) override;

    // Never destroyed, for the threads that are still there when the process exits. Read and
    // replaced with loadShared() and exchangeShared().
    static std::shared_ptr<SdkClient>& mInstance;

  private:
    friend class SdkClientPeer;  // tests: where its members lie

    using ILumService = aidl::vendor::orn::data::lumservice::ILumService;
    using ILumServiceCallback = aidl::vendor::orn::data::lumservice::ILumServiceCallback;

    static std::shared_ptr<SdkClient> create(LumSdkClientType type, Listener listener,
                                             std::shared_ptr<SdkClientEvent> event,
                                             std::shared_ptr<SdkClientBase>* published);
    void publish(std::shared_ptr<SdkClientBase>* published);

    std::shared_ptr<ILumService> service() const;
    void setService(std::shared_ptr<ILumService> service);
    std::shared_ptr<ILumService> findService();
    bool linkToService(const std::shared_ptr<ILumService>& service);
    void deleteRecipient();
    void tearDown();

    // Empty while not connected.
    std::shared_ptr<ILumService> mService LUM_GUARDED_BY(mServiceLock);
    std::shared_ptr<ILumServiceCallback> mCallbackSelf;
    AIBinder_DeathRecipient* mDeathRecipient = nullptr;
    // What the recipient is linked to, with this object as cookie: kept until the recipient goes.
    ndk::SpAIBinder mLinkedBinder;

    // The death notification releases mService while the SDK thread may be using it.
    mutable lum::utils::Mutex mServiceLock;
};
