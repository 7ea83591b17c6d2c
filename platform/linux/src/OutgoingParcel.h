// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/ObjectTable.h"
#include "platform/linux/src/Parcel.h"

// A parcel on its way out over a link, with its objects in the form of the wire. Each object of
// ours counts as sent once more; should the parcel not be sent after all, that is taken back.
class OutgoingParcel {
  public:
    // All of it must outlive this; `objects` are those of `link`.
    OutgoingParcel(const AParcel& parcel, const Link& link, ObjectTable& objects)
        : mParcel(parcel), mLink(link), mObjects(objects) {}
    ~OutgoingParcel();
    OutgoingParcel(const OutgoingParcel&) = delete;
    OutgoingParcel& operator=(const OutgoingParcel&) = delete;

    // Returns STATUS_OK, or why the parcel cannot be sent over this link. May throw std::bad_alloc.
    binder_status_t prepare();

    OutgoingPayload payload() const {
        return {mParcel.bytes().data(), mParcel.bytes().size(), mOffsets, mEntries};
    }

    const std::vector<SharedFd>& descriptors() const { return mDescriptors; }

    // It is sent: nothing is taken back.
    void sent() { mSent.clear(); }

  private:
    binder_status_t prepareObject(const AParcel::Object& object);

    const AParcel& mParcel;
    const Link& mLink;
    ObjectTable& mObjects;
    std::vector<uint32_t> mOffsets;
    std::vector<ObjectEntry> mEntries;
    std::vector<SharedFd> mDescriptors;
    std::vector<uint32_t> mSent;
};
