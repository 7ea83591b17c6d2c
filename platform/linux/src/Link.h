// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/src/Binder.h"

class LateCommand;

// What the binder objects above need from whatever carries calls between processes. A link
//   - carries transactions: out by transact(); in by handing LocalBinder::transact() to the thread
//     pool, or to a thread that waits in the chain of calls, under a CallScope;
//   - carries references: makes one RemoteBinder per object and peer for what it receives, and
//     keeps a strong reference to each local object that a peer holds;
//   - carries descriptors: hands the peer a duplicate of each that a parcel has, and makes parcels
//     of those that it receives;
//   - registers for deaths as the kernel's driver does, once for an object: posts a death
//     notification (DeathRecipient.h) for the proxy of each registered object whose process dies.
// A proxy holds its link. Every function may be called on any thread, with no lock of the link's
// caller held that an incoming call could want.
class Link {
  public:
    Link() = default;
    virtual ~Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // Calls an object of the peer and waits for the reply, or does not wait, with FLAG_ONEWAY.
    // handle: which object; code, flags: as AIBinder_transact; in: the arguments; out: set to the
    // reply, or to an empty parcel for a one-way call, only when STATUS_OK is returned.
    // Returns as AIBinder_transact. May throw std::bad_alloc, with nothing sent.
    virtual binder_status_t transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                                     binder_flags_t flags, std::unique_ptr<AParcel>* out) = 0;

    // The last strong reference to a proxy is gone; its memory may go after this returns.
    virtual void releaseProxy(RemoteBinder& proxy) noexcept = 0;

    // Whether calls may still get through; false once the peer is dead.
    virtual bool isAlive() = 0;

    // Registers for the death of an object, which is announced once to the proxy that the object
    // then has. Neither is kept alive. A registration that an earlier proxy has left behind stands
    // in the way: this one is then refused, and nobody hears of that.
    // late: set to what ends the registration if its proxy ends first, so that this end needs no
    // memory.
    // Returns STATUS_OK, also when refused, or STATUS_DEAD_OBJECT if it is too late. May throw
    // std::bad_alloc.
    virtual binder_status_t watchDeath(uint32_t handle, std::unique_ptr<LateCommand>* late) = 0;
    // Ends the registration for an object, at once.
    virtual void unwatchDeath(uint32_t handle) noexcept = 0;
};

// What a process has of a link before it knows any object: the names under which processes find
// each other's first objects, and the threads on which it is called.
class ServiceRegistry {
  public:
    ServiceRegistry() = default;
    virtual ~ServiceRegistry() = default;
    ServiceRegistry(const ServiceRegistry&) = delete;
    ServiceRegistry& operator=(const ServiceRegistry&) = delete;

    // The one of this process, never destroyed: over the kernel's driver if the environment names
    // its device (lum/service_manager.h), otherwise over sockets.
    static ServiceRegistry& instance();

    // As AServiceManager_addService. name: one that isServiceName() accepts, here and below. May
    // throw std::bad_alloc, with nothing registered.
    virtual binder_exception_t add(LocalBinder& object, const std::string& name) = 0;

    // The object registered under the name: the local one itself in its own process, elsewhere a
    // proxy; null when nobody serves it. Does not wait. May throw std::bad_alloc.
    virtual BinderRef find(const std::string& name) = 0;

    // The same, but waits until somebody serves it where a name can be waited for.
    virtual BinderRef waitFor(const std::string& name) = 0;

    // As LumServiceManager_mayFind. May throw std::bad_alloc.
    virtual ndk::ScopedAStatus mayFind(const std::string& name) = 0;

    // As ABinderProcess_startThreadPool.
    virtual void startThreadPool() = 0;
};
