// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/KernelObjects.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/UniqueFd.h"

using lum::utils::MutexLock;

namespace {

binder_handle_cookie withCookie(uint32_t handle, binder_uintptr_t cookie) {
    binder_handle_cookie registration{};
    registration.handle = handle;
    registration.cookie = cookie;
    return registration;
}

// Ends a reference of the driver's when the thread does not wait for anything any more: objects end
// with code of the application, and the driver refuses what that may call while a call is under
// way.
class LateRelease final : public LateCommand {
  public:
    LateRelease(AIBinder* binder, bool strong) : mBinder(binder), mStrong(strong) {}

  private:
    void run() noexcept override { mStrong ? mBinder->decStrong() : mBinder->decWeak(); }

    AIBinder* const mBinder;
    const bool mStrong;
};

void endReference(AIBinder* binder, bool strong) noexcept {
    std::unique_ptr<LateCommand> release(new (std::nothrow) LateRelease(binder, strong));
    if (release != nullptr) return LateCommand::queue(std::move(release));
    strong ? binder->decStrong() : binder->decWeak();
}

// What names the object to the driver.
uint64_t nameOf(const AParcel::Object& object) {
    if (object.descriptor != nullptr) return static_cast<uint32_t>(object.descriptor->get());
    const RemoteBinder* const remote = object.binder->asRemote();
    if (remote != nullptr) return remote->handle();
    return reinterpret_cast<uintptr_t>(object.binder.get());
}

// The driver's list of where a buffer has objects.
class Places {
  public:
    explicit Places(const binder_transaction_data& data)
        : mBytes(addressOf<const uint8_t>(data.data.ptr.buffer)),
          mSize(static_cast<size_t>(data.data_size)),
          mOffsets(addressOf<const binder_size_t>(data.data.ptr.offsets)),
          mCount(static_cast<size_t>(data.offsets_size) / sizeof(binder_size_t)) {}

    const uint8_t* bytes() const { return mBytes; }
    size_t size() const { return mSize; }
    size_t count() const { return mCount; }
    size_t offset(size_t i) const { return static_cast<size_t>(mOffsets[i]); }

    // The driver has checked that its part of the entry is there. Of the stability there may be
    // less: what is missing is 0.
    ObjectEntry entry(size_t i) const {
        ObjectEntry entry{};
        memcpy(&entry, mBytes + offset(i), std::min(sizeof entry, mSize - offset(i)));
        return entry;
    }
    // Whether the entry is whole, and no other object lies over its end.
    bool isWhole(size_t i) const {
        const size_t end = i + 1 < mCount ? offset(i + 1) : mSize;
        return offset(i) + entrySize(entry(i).type) <= end;
    }

  private:
    const uint8_t* const mBytes;
    const size_t mSize;
    const binder_size_t* const mOffsets;
    const size_t mCount;
};

}  // namespace

BinderRef KernelObjects::proxy(uint32_t handle, const std::shared_ptr<Link>& link) {
    const MutexLock lock(mLock);
    const auto known = mProxies.find(handle);
    // One that has lost its last reference cannot be held again; it is about to be released.
    if (known != mProxies.end() && known->second->attemptIncStrong()) {
        return BinderRef(known->second);
    }
    // Before the proxy, whose end without memory would come here.
    RemoteBinder*& place = mProxies[handle];
    try {
        place = new RemoteBinder(link, handle);
    } catch (const std::bad_alloc&) {
        if (known == mProxies.end()) mProxies.erase(handle);
        throw;
    }
    mDriver.write(KernelCommands().add(BC_ACQUIRE, handle));
    return BinderRef(place);
}

void KernelObjects::release(RemoteBinder& proxy) noexcept {
    if (!mDriver.isOpen()) return;
    const MutexLock lock(mLock);
    // The object may have come again since, and have another proxy.
    const auto found = mProxies.find(proxy.handle());
    if (found != mProxies.end() && found->second == &proxy) mProxies.erase(found);
    mDriver.write(KernelCommands().add(BC_RELEASE, proxy.handle()));
}

void KernelObjects::count(uint32_t command, const binder_ptr_cookie& object) noexcept {
    AIBinder* const binder = addressOf<AIBinder>(object.cookie);
    switch (command) {
        case BR_INCREFS:
            binder->incWeak();
            mDriver.write(KernelCommands().add(BC_INCREFS_DONE, object));
            return;
        case BR_ACQUIRE:
            binder->incStrong();
            mDriver.write(KernelCommands().add(BC_ACQUIRE_DONE, object));
            return;
        default: return endReference(binder, command == BR_RELEASE);
    }
}

binder_uintptr_t KernelObjects::registerForDeath(uint32_t handle) {
    auto notification = std::make_unique<DeathNotification>();
    const MutexLock lock(mLock);
    // The driver would refuse a second one, too, and complain.
    const auto known = mRegistrations.find(handle);
    if (known != mRegistrations.end()) return known->second.cookie;
    const binder_uintptr_t cookie = binder_uintptr_t{++mRegistered} << 32 | handle;
    mRegistrations.emplace(handle, Registration{cookie, std::move(notification)});
    mDriver.write(KernelCommands()
                      .add(BC_INCREFS, handle)
                      .add(BC_REQUEST_DEATH_NOTIFICATION, withCookie(handle, cookie)));
    return cookie;
}

KernelObjects::Registrations::iterator KernelObjects::findRegistration(binder_uintptr_t cookie) {
    const auto found = mRegistrations.find(static_cast<uint32_t>(cookie));
    return found != mRegistrations.end() && found->second.cookie == cookie ? found
                                                                           : mRegistrations.end();
}

void KernelObjects::endRegistration(Registrations::iterator registration) {
    const uint32_t handle = registration->first;
    mDriver.write(
        KernelCommands()
            .add(BC_CLEAR_DEATH_NOTIFICATION, withCookie(handle, registration->second.cookie))
            .add(BC_DECREFS, handle));
    mRegistrations.erase(registration);
}

void KernelObjects::unregister(uint32_t handle) noexcept {
    if (!mDriver.isOpen()) return;
    const MutexLock lock(mLock);
    const auto found = mRegistrations.find(handle);
    if (found != mRegistrations.end()) endRegistration(found);
}

void KernelObjects::unregisterLate(binder_uintptr_t cookie) noexcept {
    if (!mDriver.isOpen()) return;
    const MutexLock lock(mLock);
    const auto found = findRegistration(cookie);
    if (found != mRegistrations.end()) endRegistration(found);
}

std::unique_ptr<DeathNotification> KernelObjects::takeDead(binder_uintptr_t cookie) noexcept {
    const MutexLock lock(mLock);
    std::unique_ptr<DeathNotification> notification;
    const auto found = findRegistration(cookie);
    if (found != mRegistrations.end()) {
        const auto known = mProxies.find(found->first);
        if (known != mProxies.end() && known->second->attemptIncStrong()) {
            notification = std::move(found->second.notification);
            notification->setProxy(BinderRef(known->second));
        }
        endRegistration(found);
    }
    mDriver.write(KernelCommands().add(BC_DEAD_BINDER_DONE, cookie));
    return notification;
}

std::unique_ptr<AParcel> KernelObjects::import(const binder_transaction_data& data,
                                               const std::shared_ptr<Link>& link) {
    const Places places(data);
    std::vector<uint8_t> bytes;
    std::vector<AParcel::Object> objects;
    size_t taken = 0;
    try {
        bytes.assign(places.bytes(), places.bytes() + places.size());
        objects.reserve(places.count());
        for (; taken < places.count(); ++taken) {
            const size_t offset = places.offset(taken);
            const ObjectEntry entry = places.entry(taken);
            AParcel::Object object{offset, nullptr};
            if (entry.type == BINDER_TYPE_FD) {
                const auto descriptor = std::make_shared<UniqueFd>();
                descriptor->reset(static_cast<int>(entry.handle));
                object.descriptor = descriptor;
            } else if (entry.type == BINDER_TYPE_BINDER && entry.cookie != 0) {
                object.binder = refTo(addressOf<AIBinder>(entry.cookie));
            } else if (entry.type == BINDER_TYPE_HANDLE) {
                object.binder = proxy(static_cast<uint32_t>(entry.handle), link);
            } else {
                continue;  // of a kind that no parcel here has
            }
            if (!places.isWhole(taken)) continue;
            objects.push_back(std::move(object));
            // What the entry says besides its stability is for the driver only.
            memset(bytes.data() + offset, 0, offsetof(ObjectEntry, stability));
        }
        return std::make_unique<AParcel>(std::move(bytes), std::move(objects));
    } catch (const std::bad_alloc&) {
        for (; taken < places.count(); ++taken) {
            const ObjectEntry entry = places.entry(taken);
            if (entry.type == BINDER_TYPE_FD) close(static_cast<int>(entry.handle));
        }
        throw;
    }
}

KernelParcel::KernelParcel(const AParcel& parcel) : mParcel(parcel) {
    if (parcel.objects().empty()) return;
    mBytes = parcel.bytes();
    mOffsets.reserve(parcel.objects().size());
    for (const AParcel::Object& object : parcel.objects()) {
        flat_binder_object entry{};
        memcpy(&entry, mBytes.data() + object.offset, sizeof entry);
        entry.binder = nameOf(object);
        if (entry.hdr.type == BINDER_TYPE_BINDER) entry.cookie = entry.binder;
        memcpy(mBytes.data() + object.offset, &entry, sizeof entry);
        mOffsets.push_back(object.offset);
    }
}

void KernelParcel::putInto(binder_transaction_data* data) const {
    const std::vector<uint8_t>& bytes = mOffsets.empty() ? mParcel.bytes() : mBytes;
    data->data_size = bytes.size();
    data->offsets_size = mOffsets.size() * sizeof(binder_size_t);
    data->data.ptr.buffer = reinterpret_cast<uintptr_t>(bytes.data());
    data->data.ptr.offsets = reinterpret_cast<uintptr_t>(mOffsets.data());
}
