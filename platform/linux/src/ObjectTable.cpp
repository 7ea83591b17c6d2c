// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ObjectTable.h"

#include <new>
#include <utility>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/RemoteBinder.h"

ObjectTable::ObjectTable(BinderRef root) : mAccepted(root != nullptr) {
    if (!mAccepted) return;
    mExportIds.emplace(root.get(), 0);
    mExports[0].binder = std::move(root);
}

uint32_t ObjectTable::send(AIBinder* binder) {
    if (const auto known = mExportIds.find(binder); known != mExportIds.end()) {
        // Handle 0 is the peer's for as long as the connection lasts, and is not counted.
        if (known->second != 0) ++mExports[known->second].timesSent;
        return known->second;
    }
    while (mNextExport == 0 || mExports.count(mNextExport) != 0) ++mNextExport;
    const uint32_t id = mNextExport;
    mExportIds.emplace(binder, id);
    try {
        mExports.emplace(id, Export{refTo(binder), 1});
    } catch (const std::bad_alloc&) {
        mExportIds.erase(binder);
        throw;
    }
    ++mNextExport;
    return id;
}

BinderRef ObjectTable::takeBack(uint32_t id, uint64_t count) {
    const auto found = mExports.find(id);
    require(found != mExports.end() && count != 0 && count <= found->second.timesSent,
            "a release of an object it does not hold");
    found->second.timesSent -= count;
    if (found->second.timesSent != 0) return nullptr;
    BinderRef binder = std::move(found->second.binder);
    mExportIds.erase(binder.get());
    mExports.erase(found);
    return binder;
}

AIBinder& ObjectTable::exported(uint32_t id, const char* otherwise) const {
    const auto found = mExports.find(id);
    require(found != mExports.end(), otherwise);
    return *found->second.binder;
}

std::map<uint32_t, ObjectTable::Export> ObjectTable::takeAllBack() {
    mExportIds.clear();
    return std::exchange(mExports, {});
}

void ObjectTable::check(const ObjectEntry& entry) const {
    const auto handle = static_cast<uint32_t>(entry.handle);
    if (entry.type == kOwnedByReceiver) {
        exported(handle, "an object it does not hold");
    } else if (entry.type == kOwnedBySender) {
        require(handle != 0 || !mAccepted, "an object with a service's handle");
    }
}

BinderRef ObjectTable::receive(const ObjectEntry& entry, const std::shared_ptr<Link>& link) {
    const auto handle = static_cast<uint32_t>(entry.handle);
    if (entry.type == kOwnedByReceiver) return refTo(mExports.find(handle)->second.binder.get());
    BinderRef received = proxy(handle, link);
    if (handle != 0) ++mImports[handle].timesReceived;
    return received;
}

BinderRef ObjectTable::proxy(uint32_t handle, const std::shared_ptr<Link>& link) {
    RemoteBinder*& known = mImports[handle].proxy;
    // One that has lost its last reference cannot be held again; it is about to be released.
    if (known != nullptr && known->attemptIncStrong()) return BinderRef(known);
    BinderRef made(new RemoteBinder(link, handle));
    known = made->asRemote();
    return made;
}

uint64_t ObjectTable::release(const RemoteBinder& proxy) {
    const auto found = mImports.find(proxy.handle());
    // The object may have been received again since; that proxy answers for all.
    if (found == mImports.end() || found->second.proxy != &proxy) return 0;
    const uint64_t timesReceived = found->second.timesReceived;
    mImports.erase(found);
    return timesReceived;
}

void ObjectTable::registerForDeath(uint32_t handle) {
    if (mRegistrations.count(handle) != 0) return;
    mRegistrations.emplace(handle, std::make_unique<DeathNotification>());
}

bool ObjectTable::takeRegistration(std::unique_ptr<DeathNotification>* notification) {
    if (mRegistrations.empty()) return false;
    const auto first = mRegistrations.begin();
    const auto import = mImports.find(first->first);
    notification->reset();
    if (import != mImports.end() && import->second.proxy != nullptr &&
        import->second.proxy->attemptIncStrong()) {
        *notification = std::move(first->second);
        (*notification)->setProxy(BinderRef(import->second.proxy));
    }
    mRegistrations.erase(first);
    return true;
}
