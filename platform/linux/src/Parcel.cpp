// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Parcel.h"

#include <algorithm>
#include <new>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "values are written as they lie in memory");

void AParcel::assign(const uint8_t* bytes, size_t size) {
    mBytes = std::vector<uint8_t>(bytes, bytes + size);
    mObjects.clear();
    mPosition = 0;
}

std::vector<AParcel::Object>::const_iterator AParcel::firstObjectFrom(size_t offset) const {
    return std::lower_bound(
        mObjects.begin(), mObjects.end(), offset,
        [](const Object& object, size_t wanted) { return object.offset < wanted; });
}

const AParcel::Object* AParcel::objectAt(size_t offset) const {
    const auto object = firstObjectFrom(offset);
    return object == mObjects.end() || object->offset != offset ? nullptr : &*object;
}

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

AParcel* AParcel_create() {
    return new (std::nothrow) AParcel();
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) return STATUS_BAD_VALUE;
    parcel->setPosition(static_cast<size_t>(position));
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position());
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->bytes().size());
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    if (len > INT32_MAX) return STATUS_BAD_VALUE;
    try {
        parcel->assign(buffer, len);
        return STATUS_OK;
    } catch (const std::bad_alloc&) {
        return STATUS_NO_MEMORY;
    }
}
