// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/KernelDriver.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/Parcel.h"
#include "utils/Mutex.h"

// The references between this process and others, as the driver counts them.
//
// To the driver an object of ours is its address, as both of the numbers it keeps for one: it asks
// for a weak reference while anybody knows the object, and for a strong one while anybody holds it.
// An object of others is a handle. Each proxy has one strong reference to its handle, and each
// registration for a death a weak one, so that the handle stays the object's.
//
// References are counted at once, with the lock held: queued until the thread's next call, the end
// of one thread's reference could overtake the beginning of another's. In a child made by fork(),
// where a thread of the parent's may have held the lock, nothing takes it: the driver is closed.
// Thread-safe.
class KernelObjects {
  public:
    explicit KernelObjects(KernelDriver& driver) : mDriver(driver) {}

    // Returns the proxy of a handle that somebody or something holds meanwhile. May throw
    // std::bad_alloc.
    BinderRef proxy(uint32_t handle, const std::shared_ptr<Link>& link);
    void release(RemoteBinder& proxy) noexcept;

    // Carries out one of the driver's commands for an object of ours. One that ends a reference is
    // left to this thread (LateCommand.h).
    void count(uint32_t command, const binder_ptr_cookie& object) noexcept;

    // Registers for the death of an object, unless it is registered for. Returns the registration's
    // cookie. May throw std::bad_alloc.
    binder_uintptr_t registerForDeath(uint32_t handle);
    void unregister(uint32_t handle) noexcept;
    // The same, unless that registration has ended: its handle may be another object's by now.
    void unregisterLate(binder_uintptr_t cookie) noexcept;
    // The driver has announced a death. Returns what reports it; null if the object has no proxy
    // that could use it, or is not registered for any more.
    std::unique_ptr<DeathNotification> takeDead(binder_uintptr_t cookie) noexcept;

    // Returns the parcel that came in the driver's buffer. May throw std::bad_alloc; the
    // descriptors are closed then.
    std::unique_ptr<AParcel> import(const binder_transaction_data& data,
                                    const std::shared_ptr<Link>& link);

  private:
    struct Registration {
        binder_uintptr_t cookie;
        std::unique_ptr<DeathNotification> notification;
    };

    using Registrations = std::map<uint32_t, Registration>;

    Registrations::iterator findRegistration(binder_uintptr_t cookie) LUM_REQUIRES(mLock);
    void endRegistration(Registrations::iterator registration) LUM_REQUIRES(mLock);

    KernelDriver& mDriver;
    lum::utils::Mutex mLock;
    std::map<uint32_t, RemoteBinder*> mProxies LUM_GUARDED_BY(mLock);
    Registrations mRegistrations LUM_GUARDED_BY(mLock);
    uint32_t mRegistered LUM_GUARDED_BY(mLock) = 0;
};

// A parcel on its way out, with its objects as the driver takes them. The parcel must outlive the
// driver's answer: until then nothing else need hold its objects.
class KernelParcel {
  public:
    // May throw std::bad_alloc.
    explicit KernelParcel(const AParcel& parcel);

    void putInto(binder_transaction_data* data) const;

  private:
    const AParcel& mParcel;
    std::vector<uint8_t> mBytes;  // with the objects, if it has any
    std::vector<binder_size_t> mOffsets;
};
