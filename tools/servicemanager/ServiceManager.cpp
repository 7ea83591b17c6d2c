// SPDX-License-Identifier: Apache-2.0
#include "tools/servicemanager/ServiceManager.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/ServiceManagerInterface.h"
#include "platform/linux/src/ServiceName.h"

using lum::utils::MutexLock;

namespace {

ServiceManager* gManager = nullptr;

AIBinder_Class* managerClass(AIBinder_Class_onTransact onTransact) {
    return AIBinder_Class_define(
        kServiceManager, [](void* manager) { return manager; }, [](void*) {}, onTransact);
}

binder_status_t answer(AParcel* out, binder_exception_t exception, const char* why) {
    const ndk::ScopedAStatus status(AStatus_fromExceptionCodeWithMessage(exception, why));
    return AParcel_writeStatusHeader(out, status.get());
}

binder_status_t answerOk(AParcel* out) {
    return AParcel_writeStatusHeader(out, ndk::ScopedAStatus::ok().get());
}

binder_status_t readObject(const AParcel* in, std::string* name, ndk::SpAIBinder* object) {
    const binder_status_t status = in->readString(name);
    return status == STATUS_OK ? in->readBinder(object->getR()) : status;
}

// One-way, so that a process that does not answer keeps nothing up. What becomes of it is the
// receiver's business.
void notify(const ndk::SpAIBinder& callback, const std::string& name,
            const ndk::SpAIBinder& object) {
    RemoteBinder* const remote = callback.get()->asRemote();
    if (remote == nullptr) return;
    AParcel in;
    std::unique_ptr<AParcel> nothing;
    if (in.writeInterfaceToken(kServiceCallback) == STATUS_OK &&
        in.writeString(name) == STATUS_OK && in.writeBinder(object.get()) == STATUS_OK) {
        remote->transact(kOnRegistration, in, FLAG_ONEWAY, &nothing);
    }
}

}  // namespace

ServiceManager::ServiceManager()
    : mRecipient(AIBinder_DeathRecipient_new(&ServiceManager::onDied)),
      mObject(AIBinder_new(managerClass(&ServiceManager::onTransact), this)) {
    gManager = this;
}

binder_status_t ServiceManager::onTransact(AIBinder* self, transaction_code_t code,
                                           const AParcel* in, AParcel* out) {
    auto& manager = *static_cast<ServiceManager*>(AIBinder_getUserData(self));
    switch (code) {
        case kGetService:
        case kCheckService: return manager.look(in, out);
        case kAddService: return manager.add(in, out);
        case kListServices: return manager.list(out);
        case kRegisterForNotifications: return manager.startNotifying(in, out);
        case kUnregisterForNotifications: return manager.stopNotifying(in, out);
        default: return STATUS_UNKNOWN_TRANSACTION;
    }
}

binder_status_t ServiceManager::look(const AParcel* in, AParcel* out) {
    std::string name;
    binder_status_t status = in->readString(&name);
    if (status == STATUS_OK) status = answerOk(out);
    if (status != STATUS_OK) return status;
    const MutexLock lock(mLock);
    const auto service = mServices.find(name);
    return out->writeBinder(service == mServices.end() ? nullptr : service->second.object.get());
}

binder_status_t ServiceManager::add(const AParcel* in, AParcel* out) {
    std::string name;
    ndk::SpAIBinder object;
    const binder_status_t status = readObject(in, &name, &object);
    if (status != STATUS_OK) return status;
    if (object.get() == nullptr) return answer(out, EX_NULL_POINTER, "no object to register");
    if (!isServiceName(name)) {
        return answer(out, EX_ILLEGAL_ARGUMENT,
                      "a name has 1 to 127 letters, digits and characters of \"._-/\"");
    }
    const MutexLock lock(mLock);
    if (const auto known = mServices.find(name); known != mServices.end()) {
        if (known->second.uid != AIBinder_getCallingUid()) {
            return answer(out, EX_SECURITY, "another user serves this name");
        }
        letGo(known->second);
        mServices.erase(known);
    }
    mServices.emplace(name, hold(name, object));
    for (const Entry& notified : mNotified) {
        if (notified.name == name) notify(notified.object, name, object);
    }
    return answerOk(out);
}

binder_status_t ServiceManager::list(AParcel* out) {
    const MutexLock lock(mLock);
    binder_status_t status = answerOk(out);
    if (status == STATUS_OK) status = out->writeValue(static_cast<int32_t>(mServices.size()));
    for (const auto& [name, service] : mServices) {
        if (status == STATUS_OK) status = out->writeString(name);
    }
    return status;
}

binder_status_t ServiceManager::startNotifying(const AParcel* in, AParcel* out) {
    std::string name;
    ndk::SpAIBinder callback;
    const binder_status_t status = readObject(in, &name, &callback);
    if (status != STATUS_OK) return status;
    if (callback.get() == nullptr) return answer(out, EX_NULL_POINTER, "no callback");
    const MutexLock lock(mLock);
    mNotified.push_back(hold(name, callback));
    const auto service = mServices.find(name);
    if (service != mServices.end()) notify(callback, name, service->second.object);
    return answerOk(out);
}

binder_status_t ServiceManager::stopNotifying(const AParcel* in, AParcel* out) {
    std::string name;
    ndk::SpAIBinder callback;
    const binder_status_t status = readObject(in, &name, &callback);
    if (status != STATUS_OK) return status;
    const MutexLock lock(mLock);
    const auto found = std::find_if(mNotified.begin(), mNotified.end(), [&](const Entry& notified) {
        return notified.name == name && notified.object == callback;
    });
    if (found == mNotified.end()) return answer(out, EX_ILLEGAL_STATE, "not registered");
    letGo(*found);
    mNotified.erase(found);
    return answerOk(out);
}

ServiceManager::Entry ServiceManager::hold(const std::string& name, const ndk::SpAIBinder& object) {
    // A number, not an address: the death may be on its way when the entry goes.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    auto* const cookie = reinterpret_cast<void*>(++mEntries);
    AIBinder_linkToDeath(object.get(), mRecipient.get(), cookie);
    return {name, object, AIBinder_getCallingUid(), cookie};
}

void ServiceManager::letGo(const Entry& entry) {
    AIBinder_unlinkToDeath(entry.object.get(), mRecipient.get(), entry.cookie);
}

void ServiceManager::onDied(void* cookie) {
    gManager->died(cookie);
}

void ServiceManager::died(void* cookie) {
    const MutexLock lock(mLock);
    const auto service =
        std::find_if(mServices.begin(), mServices.end(),
                     [cookie](const auto& named) { return named.second.cookie == cookie; });
    if (service != mServices.end()) mServices.erase(service);
    mNotified.remove_if([cookie](const Entry& notified) { return notified.cookie == cookie; });
}
