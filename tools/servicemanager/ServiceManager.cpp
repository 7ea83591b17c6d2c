// SPDX-License-Identifier: Apache-2.0
#include "tools/servicemanager/ServiceManager.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/ServiceManagerInterface.h"
#include "platform/linux/src/ServiceName.h"

using lum::utils::MutexLock;

namespace {

// Names and callbacks that a user may have, so that none uses up the memory of this process, or
// makes it slow for others. Not of a process: it may make others, and the driver does not always
// say which one calls.
constexpr ptrdiff_t kMostOfAUser = 5000;

constexpr char kNoName[] = "a name has 1 to 127 letters, digits and characters of \"._-/\"";
constexpr char kNotHeard[] = "the object's death cannot be waited for, or has come";
constexpr char kTooMany[] = "a user may have 5000 names and callbacks";

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
// receiver's business, also when there is no memory to send it.
void notify(const ndk::SpAIBinder& callback, const std::string& name,
            const ndk::SpAIBinder& object) noexcept {
    RemoteBinder* const remote = callback.get()->asRemote();
    if (remote == nullptr) return;
    withoutThrowing([&] {
        AParcel in;
        std::unique_ptr<AParcel> nothing;
        if (in.writeInterfaceToken(kServiceCallback) == STATUS_OK &&
            in.writeString(name) == STATUS_OK && in.writeBinder(object.get()) == STATUS_OK) {
            remote->transact(kOnRegistration, in, FLAG_ONEWAY, &nothing);
        }
    });
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
    return out->writeBinder(service == mServices.end() ? nullptr : service->second->object.get());
}

binder_status_t ServiceManager::add(const AParcel* in, AParcel* out) {
    std::string name;
    ndk::SpAIBinder object;
    const binder_status_t status = readObject(in, &name, &object);
    if (status != STATUS_OK) return status;
    if (object.get() == nullptr) return answer(out, EX_NULL_POINTER, "no object to register");
    if (!isServiceName(name)) return answer(out, EX_ILLEGAL_ARGUMENT, kNoName);
    Entries entries;
    const Entry& added = addEntry(name, object, &entries);
    Entries::node_type replaced;
    const MutexLock lock(mLock);
    const auto known = mServices.find(name);
    const bool isNew = known == mServices.end();
    if (!isNew && known->second->uid != added.uid) {
        return answer(out, EX_SECURITY, "another user serves this name");
    }
    if (!added.willBeHeard()) return answer(out, EX_ILLEGAL_STATE, kNotHeard);
    if (isNew) {
        if (hasAll(added.uid)) return answer(out, EX_ILLEGAL_STATE, kTooMany);
        mServices.emplace(name, &added);
    } else {
        replaced = mEntries.extract(known->second->cookie);
        known->second = &added;
    }
    mEntries.merge(entries);
    // With the lock, so that a callback hears of the services in their order.
    for (const auto& [cookie, notified] : mEntries) {
        if (notified.name == name && &notified != &added) notify(notified.object, name, object);
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
    if (!isServiceName(name)) return answer(out, EX_ILLEGAL_ARGUMENT, kNoName);
    Entries entries;
    const Entry& added = addEntry(name, callback, &entries);
    const MutexLock lock(mLock);
    if (!added.willBeHeard()) return answer(out, EX_ILLEGAL_STATE, kNotHeard);
    if (hasAll(added.uid)) return answer(out, EX_ILLEGAL_STATE, kTooMany);
    mEntries.merge(entries);
    const auto service = mServices.find(name);
    if (service != mServices.end()) notify(callback, name, service->second->object);
    return answerOk(out);
}

binder_status_t ServiceManager::stopNotifying(const AParcel* in, AParcel* out) {
    std::string name;
    ndk::SpAIBinder callback;
    const binder_status_t status = readObject(in, &name, &callback);
    if (status != STATUS_OK) return status;
    Entries::node_type stopped;
    const MutexLock lock(mLock);
    const auto service = mServices.find(name);
    const Entry* const served = service == mServices.end() ? nullptr : service->second;
    const auto found = std::find_if(mEntries.begin(), mEntries.end(), [&](const auto& entry) {
        const Entry& notified = entry.second;
        return notified.name == name && notified.object == callback && &notified != served;
    });
    if (found == mEntries.end()) return answer(out, EX_ILLEGAL_STATE, "not registered");
    stopped = mEntries.extract(found);
    return answerOk(out);
}

ServiceManager::Entry::Entry(std::string theName, ndk::SpAIBinder theObject,
                             AIBinder_DeathRecipient* recipient, void* theCookie)
    : name(std::move(theName)),
      object(std::move(theObject)),
      uid(AIBinder_getCallingUid()),
      cookie(theCookie),
      mRecipient(recipient),
      mIsLinked(AIBinder_linkToDeath(object.get(), recipient, cookie) == STATUS_OK) {}

ServiceManager::Entry::~Entry() {
    AIBinder_unlinkToDeath(object.get(), mRecipient, cookie);
}

ServiceManager::Entry& ServiceManager::addEntry(const std::string& name,
                                                const ndk::SpAIBinder& object, Entries* entries) {
    // A number, not an address: the death may be on its way when the entry goes.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    auto* const cookie = reinterpret_cast<void*>(++mLastCookie);
    return entries->try_emplace(cookie, name, object, mRecipient.get(), cookie).first->second;
}

bool ServiceManager::hasAll(uid_t uid) const {
    return std::count_if(mEntries.begin(), mEntries.end(), [uid](const auto& entry) {
               return entry.second.uid == uid;
           }) >= kMostOfAUser;
}

void ServiceManager::onDied(void* cookie) {
    gManager->died(cookie);
}

void ServiceManager::died(void* cookie) {
    Entries::node_type dead;
    const MutexLock lock(mLock);
    dead = mEntries.extract(cookie);
    if (dead.empty()) return;
    const auto service = mServices.find(dead.mapped().name);
    if (service != mServices.end() && service->second == &dead.mapped()) mServices.erase(service);
}
