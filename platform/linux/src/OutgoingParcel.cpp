// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/OutgoingParcel.h"

#include <cstring>

#include "platform/linux/src/RemoteBinder.h"
#include "utils/Log.h"

OutgoingParcel::~OutgoingParcel() {
    // The parcel holds the objects, so that none ends here.
    for (const uint32_t id : mSent) mObjects.takeBack(id, 1);
}

binder_status_t OutgoingParcel::prepare() {
    const std::vector<AParcel::Object>& objects = mParcel.objects();
    if (transactionCost(mParcel.bytes().size(), objects.size()) > kMaxTransaction) {
        LUM_LOGE("binder: a transaction of %zu bytes is too large", mParcel.bytes().size());
        return STATUS_FAILED_TRANSACTION;
    }
    mOffsets.reserve(objects.size());
    mEntries.reserve(objects.size());
    mSent.reserve(objects.size());
    for (const AParcel::Object& object : objects) {
        const binder_status_t status = prepareObject(object);
        if (status != STATUS_OK) return status;
    }
    if (mDescriptors.size() > kMaxDescriptors) {
        LUM_LOGE("binder: a transaction with %zu descriptors has too many", mDescriptors.size());
        return STATUS_FAILED_TRANSACTION;
    }
    return STATUS_OK;
}

binder_status_t OutgoingParcel::prepareObject(const AParcel::Object& object) {
    ObjectEntry entry{};
    memcpy(&entry, mParcel.bytes().data() + object.offset, object.end() - object.offset);
    entry.cookie = 0;
    if (object.descriptor != nullptr) {
        mDescriptors.push_back(object.descriptor);
        entry.type = kDescriptor;
        entry.handle = 0;
    } else if (const RemoteBinder* const remote = object.binder->asRemote(); remote == nullptr) {
        const uint32_t id = mObjects.send(object.binder.get());
        entry.type = kOwnedBySender;
        entry.handle = id;
        if (id != 0) mSent.push_back(id);
    } else if (&remote->link() == &mLink) {
        entry.type = kOwnedByReceiver;
        entry.handle = remote->handle();
    } else {
        LUM_LOGE("binder: an object of a third process cannot be passed on");
        return STATUS_INVALID_OPERATION;
    }
    mOffsets.push_back(static_cast<uint32_t>(object.offset));
    mEntries.push_back(entry);
    return STATUS_OK;
}
