// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ServiceManagerProxy.h"

#include <chrono>
#include <new>
#include <utility>

#include "platform/linux/src/BinderDevice.h"
#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/ServiceManagerInterface.h"
#include "platform/linux/src/Stability.h"
#include "utils/Log.h"
#include "utils/Mutex.h"

using lum::utils::MutexLock;

namespace {

// Where an object arrives that is waited for.
class Waiter {
  public:
    // What arrived before ends with the argument, with nothing locked.
    void arrived(BinderRef object) {
        const MutexLock lock(mLock);
        mObject.swap(object);
        mArrived.notifyOne();
    }

    // Returns null if none has arrived after a while.
    BinderRef wait() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        const MutexLock lock(mLock);
        while (mObject == nullptr && mArrived.waitUntil(mLock, end)) {
        }
        return std::move(mObject);
    }

  private:
    lum::utils::Mutex mLock;
    lum::utils::Condition mArrived;
    BinderRef mObject LUM_GUARDED_BY(mLock);
};

// The service manager may hold, and call, the callback when nobody waits any more.
using SharedWaiter = std::shared_ptr<Waiter>;

binder_status_t onRegistration(AIBinder* callback, transaction_code_t code, const AParcel* in,
                               AParcel*) {
    if (code != kOnRegistration) return STATUS_UNKNOWN_TRANSACTION;
    std::string name;
    AIBinder* object = nullptr;
    binder_status_t status = in->readString(&name);
    if (status == STATUS_OK) status = in->readBinder(&object);
    if (status != STATUS_OK) return status;
    (*static_cast<SharedWaiter*>(AIBinder_getUserData(callback)))->arrived(BinderRef(object));
    return STATUS_OK;
}

// Throws std::bad_alloc.
AIBinder_Class* defineCallback() {
    AIBinder_Class* const clazz = AIBinder_Class_define(
        kServiceCallback,
        [](void* from) -> void* {
            return new SharedWaiter(*static_cast<const SharedWaiter*>(from));
        },
        [](void* held) { delete static_cast<SharedWaiter*>(held); }, onRegistration);
    if (clazz == nullptr) throw std::bad_alloc();
    return clazz;
}

// device: of the service manager, which may call only objects of its own partition. Throws
// std::bad_alloc.
BinderRef makeCallback(SharedWaiter waiter, const std::string& device) {
    static AIBinder_Class* const sClass = defineCallback();
    BinderRef callback(AIBinder_new(sClass, &waiter));
    if (callback == nullptr) throw std::bad_alloc();
    if (partitionAt(device) == kSystemPartition) callback->asLocal()->setStability(kSystem);
    return callback;
}

// Nothing else can go wrong with what is written here.
void require(binder_status_t written) {
    if (written != STATUS_OK) throw std::bad_alloc();
}

// There was no memory for the answer to a call, or the service manager had none: it may have been
// carried out. Where nothing was sent, std::bad_alloc itself is thrown.
struct NoAnswer : std::bad_alloc {};

// Every call begins with a name.
void begin(AParcel* in, const std::string& name) {
    require(in->writeInterfaceToken(kServiceManager));
    require(in->writeString(name));
}

}  // namespace

ndk::ScopedAStatus ServiceManagerProxy::call(transaction_code_t code, const AParcel& in,
                                             const std::string& name,
                                             std::unique_ptr<AParcel>* reply) {
    binder_status_t result = mLink->transact(0, code, in, 0, reply);
    if (result == STATUS_DEAD_OBJECT) {
        LUM_LOGE("binder: no service manager at %s to ask about %s", mDevice.c_str(), name.c_str());
        return ndk::ScopedAStatus::fromStatus(result);
    }
    ndk::ScopedAStatus status;
    if (result == STATUS_OK) result = AParcel_readStatusHeader(reply->get(), status.getR());
    if (result != STATUS_OK) status = ndk::ScopedAStatus::fromStatus(result);
    if (status.getStatus() == STATUS_NO_MEMORY) throw NoAnswer();
    if (!status.isOk()) {
        LUM_LOGE("binder: the service manager refuses a call about %s: %s", name.c_str(),
                 status.getDescription().c_str());
    }
    return status;
}

ndk::ScopedAStatus ServiceManagerProxy::add(LocalBinder& object, const std::string& name) {
    ndk::ScopedAStatus status = learnStability(name);
    if (!status.isOk()) return status;
    AParcel in;
    begin(&in, name);
    require(in.writeBinder(&object));
    require(in.writeValue(int32_t{0}));  // not for isolated processes
    require(in.writeValue(kDumpPriorityDefault));
    std::unique_ptr<AParcel> reply;
    return call(kAddService, in, name, &reply);
}

ndk::ScopedAStatus ServiceManagerProxy::lookUp(transaction_code_t code, const std::string& name,
                                               BinderRef* found) {
    AParcel in;
    begin(&in, name);
    std::unique_ptr<AParcel> reply;
    ndk::ScopedAStatus status = call(code, in, name, &reply);
    if (!status.isOk()) return status;
    const size_t offset = reply->position();
    AIBinder* object = nullptr;
    binder_status_t result = reply->readBinder(&object);
    if (result != STATUS_OK) {
        LUM_LOGE("binder: the service manager does not answer a question about %s with an object",
                 name.c_str());
        return ndk::ScopedAStatus::fromStatus(result);
    }
    found->reset(object);
    ObjectEntry entry{};
    reply->setPosition(offset);
    result = reply->readValue(&entry);
    // Each version may write null so.
    if (result == STATUS_OK && entry.stability != kUndeclared) {
        OwnStability::writeAs(entry.stability);
    }
    return status;
}

ndk::ScopedAStatus ServiceManagerProxy::find(const std::string& name, BinderRef* found) {
    return lookUp(kCheckService, name, found);
}

ndk::ScopedAStatus ServiceManagerProxy::learnStability(const std::string& name) {
    BinderRef unused;
    return find(name, &unused);
}

ndk::ScopedAStatus ServiceManagerProxy::setNotified(transaction_code_t code,
                                                    const std::string& name, AIBinder* callback) {
    AParcel in;
    begin(&in, name);
    require(in.writeBinder(callback));
    std::unique_ptr<AParcel> reply;
    return call(code, in, name, &reply);
}

ndk::ScopedAStatus ServiceManagerProxy::startNotifications(const std::string& name,
                                                           AIBinder* callback) try {
    return setNotified(kRegisterForNotifications, name, callback);
} catch (const NoAnswer&) {
    endNotifications(name, callback);
    throw;
}

void ServiceManagerProxy::endNotifications(const std::string& name, AIBinder* callback) noexcept {
    withoutThrowing([&] { setNotified(kUnregisterForNotifications, name, callback); });
}

ndk::ScopedAStatus ServiceManagerProxy::mayFind(const std::string& name) {
    ndk::ScopedAStatus status = learnStability(name);
    if (!status.isOk()) return status;
    // A look-up that is refused is answered as if nobody served the name; this is not.
    const BinderRef callback = makeCallback(std::make_shared<Waiter>(), mDevice);
    status = startNotifications(name, callback.get());
    if (status.isOk()) endNotifications(name, callback.get());
    return status;
}

BinderRef ServiceManagerProxy::waitFor(const std::string& name) {
    BinderRef found;
    if (!lookUp(kGetService, name, &found).isOk() || found != nullptr) return found;
    const auto waiter = std::make_shared<Waiter>();
    const BinderRef callback = makeCallback(waiter, mDevice);
    if (!startNotifications(name, callback.get()).isOk()) return nullptr;
    for (bool refused = false; found == nullptr && !refused;) {
        found = waiter->wait();
        if (found != nullptr) break;
        // The notification needs a thread of the pool, which need not be there. A look-up without
        // memory is made again.
        withoutThrowing([&] { refused = !lookUp(kGetService, name, &found).isOk(); });
    }
    endNotifications(name, callback.get());
    return found;
}
