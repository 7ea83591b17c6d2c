// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/ObjectEntry.h"

// The objects that one connection carries: ours that the peer holds, the peer's that are in use
// here, and those of the peer's whose death is to be reported. Not locked; maps, which give the
// memory of what is erased back, as hash tables do not.
class ObjectTable {
  public:
    // One of ours that the peer holds.
    struct Export {
        BinderRef binder;
        uint64_t timesSent = 0;
    };

    // root: for the accepting side, what the peer may call as handle 0; null for the other.
    explicit ObjectTable(BinderRef root);

    // How many objects either side holds.
    size_t size() const { return mExports.size() + mImports.size(); }

    // Returns the number of one of ours, and counts that it is sent once more. May throw
    // std::bad_alloc.
    uint32_t send(AIBinder* binder);
    // Takes one of ours back that was sent `count` times. Returns it when that were all. Throws
    // MalformedFrame if the peer does not hold it so often.
    BinderRef takeBack(uint32_t id, uint64_t count);
    // Returns one of ours. Throws MalformedFrame(otherwise) if the peer does not hold it.
    AIBinder& exported(uint32_t id, const char* otherwise) const;
    // Takes all of ours back.
    std::map<uint32_t, Export> takeAllBack();

    // Throws MalformedFrame if the peer must not send this object.
    void check(const ObjectEntry& entry) const;
    // Returns an object that was received and has been checked, and counts that. May throw
    // std::bad_alloc.
    BinderRef receive(const ObjectEntry& entry, const std::shared_ptr<Link>& link);
    // Returns the proxy of one of the peer's objects, the same for as long as it is held. May throw
    // std::bad_alloc.
    BinderRef proxy(uint32_t handle, const std::shared_ptr<Link>& link);
    // A proxy has lost its last reference. Returns how often its object was received, 0 if that is
    // still the business of another proxy.
    uint64_t release(const RemoteBinder& proxy);

    // Registers for the death of one of the peer's objects. By object, and not by proxy: a
    // registration can outlive the proxy that made it, and then stands in the way of the next
    // one's. May throw std::bad_alloc.
    void registerForDeath(uint32_t handle);
    void unregister(uint32_t handle) { mRegistrations.erase(handle); }
    // Ends the first registration. Returns false if there is none. notification: set to what
    // reports the death, null if the object has no proxy that could use it.
    bool takeRegistration(std::unique_ptr<DeathNotification>* notification);

  private:
    // A proxy takes itself out before its memory goes.
    struct Import {
        RemoteBinder* proxy = nullptr;
        uint64_t timesReceived = 0;
    };

    const bool mAccepted;
    std::map<uint32_t, Export> mExports;
    std::map<AIBinder*, uint32_t> mExportIds;
    uint32_t mNextExport = 1;
    std::map<uint32_t, Import> mImports;
    std::map<uint32_t, std::unique_ptr<DeathNotification>> mRegistrations;
};
