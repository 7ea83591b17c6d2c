// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>
#include <new>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/ParcelFormat.h"
#include "platform/linux/src/Utf.h"

namespace {

// The entry of an object, without what names it; that of a null reference for null.
ObjectEntry makeEntry(const AIBinder* binder) {
    // The priority that a thread has by default; every object asks for at least that.
    constexpr uint32_t kDefaultPriority = 19;
    if (binder == nullptr) return {BINDER_TYPE_BINDER, kDefaultPriority, 0, 0, kNoStability};
    const int32_t stability = binderStability(binder);
    if (AIBinder_isRemote(binder)) return {BINDER_TYPE_HANDLE, kDefaultPriority, 0, 0, stability};
    return {BINDER_TYPE_BINDER, kDefaultPriority | FLAT_BINDER_FLAG_ACCEPTS_FDS, 0, 0, stability};
}

// Arrays whose elements lie in the parcel as they do in memory. Null arrays are the ones of length
// -1.
template <typename T>
binder_status_t writeArray(AParcel* parcel, const T* arrayData, int32_t length) {
    if (length < -1 || (length == -1) != (arrayData == nullptr && length != 0)) {
        return STATUS_BAD_VALUE;
    }
    const binder_status_t status = parcel->writeValue(length);
    if (status != STATUS_OK || length <= 0) return status;
    return parcel->write(arrayData, static_cast<uint64_t>(length) * sizeof(T));
}

// Arrays whose elements are written one by one.
template <typename WriteElement>
binder_status_t writeElements(AParcel* parcel, int32_t length, WriteElement writeElement) {
    if (length < -1) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->writeValue(length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = writeElement(static_cast<size_t>(i));
    }
    return status;
}

}  // namespace

binder_status_t AParcel::writeInterfaceToken(const std::string& descriptor) noexcept {
    const binder_status_t status = writeValue(CallHeader());
    if (status != STATUS_OK) return status;
    return AParcel_writeString(this, descriptor.data(), static_cast<int32_t>(descriptor.size()));
}

binder_status_t AParcel::extend(uint64_t size, uint8_t** bytes) noexcept {
    if (mPosition > mBytes.size() || mPosition % kParcelAlignment != 0) return STATUS_BAD_VALUE;
    const uint64_t end = mPosition + aligned(size);
    if (size > INT32_MAX || end > INT32_MAX) return STATUS_NO_MEMORY;
    const auto newPosition = static_cast<size_t>(end);
    if (newPosition > mBytes.size()) {
        try {
            mBytes.resize(newPosition);
        } catch (const std::bad_alloc&) {
            return STATUS_NO_MEMORY;
        }
    }
    // An object that begins before may still reach into what is written.
    const size_t reach = sizeof(ObjectEntry) - 1;
    mObjects.erase(firstObjectFrom(mPosition - std::min(mPosition, reach)),
                   firstObjectFrom(newPosition));
    *bytes = mBytes.data() + mPosition;
    memset(*bytes + size, 0, newPosition - mPosition - static_cast<size_t>(size));
    mPosition = newPosition;
    return STATUS_OK;
}

binder_status_t AParcel::write(const void* bytes, uint64_t size) noexcept {
    uint8_t* to = nullptr;
    const binder_status_t status = extend(size, &to);
    if (status == STATUS_OK && size != 0) memcpy(to, bytes, static_cast<size_t>(size));
    return status;
}

binder_status_t AParcel::writeBinder(AIBinder* binder) noexcept {
    if (!reserveObjects(1)) return STATUS_NO_MEMORY;
    const size_t offset = mPosition;
    const binder_status_t status = writeValue(makeEntry(binder));
    if (status == STATUS_OK && binder != nullptr) {
        mObjects.insert(firstObjectFrom(offset), Object{offset, refTo(binder)});
    }
    return status;
}

binder_status_t AParcel::append(const AParcel& from, size_t start, size_t size) noexcept {
    const auto first = from.firstObjectFrom(start);
    const auto last = std::find_if(first, from.mObjects.end(), [&](const Object& object) {
        return object.offset + sizeof(ObjectEntry) > start + size;
    });
    if (!reserveObjects(static_cast<size_t>(last - first))) return STATUS_NO_MEMORY;
    const size_t to = mPosition;
    const binder_status_t status = write(from.mBytes.data() + start, size);
    if (status != STATUS_OK) return status;
    for (auto object = first; object != last; ++object) {
        const size_t offset = to + object->offset - start;
        mObjects.insert(firstObjectFrom(offset), Object{offset, refTo(object->binder.get())});
    }
    return STATUS_OK;
}

bool AParcel::reserveObjects(size_t more) noexcept {
    const size_t needed = mObjects.size() + more;
    if (needed <= mObjects.capacity()) return true;
    try {
        mObjects.reserve(std::max(needed, 2 * mObjects.size()));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    return parcel->writeBinder(binder);
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    const binder_exception_t exception = AStatus_getExceptionCode(status);
    if (exception == EX_TRANSACTION_FAILED) return AStatus_getStatus(status);
    binder_status_t result = parcel->writeValue(exception);
    if (result != STATUS_OK || exception == EX_NONE) return result;
    const char* const message = AStatus_getMessage(status);
    result = AParcel_writeString(parcel, message, static_cast<int32_t>(strlen(message)));
    // Nothing about where it happened.
    if (result == STATUS_OK) result = parcel->writeValue(int32_t{0});
    if (result != STATUS_OK) return result;
    if (exception == EX_SERVICE_SPECIFIC) {
        return parcel->writeValue(AStatus_getServiceSpecificError(status));
    }
    // No structure.
    return exception == EX_PARCELABLE ? parcel->writeValue(int32_t{0}) : STATUS_OK;
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr && length == -1) return parcel->writeValue(length);
    if (string == nullptr || length < 0) return STATUS_BAD_VALUE;
    const auto size = static_cast<size_t>(length);
    const int64_t units = utf16Length(string, size);
    if (units < 0) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->writeValue(static_cast<int32_t>(units));
    if (status != STATUS_OK) return status;
    const uint64_t textSize = static_cast<uint64_t>(units) * sizeof(char16_t);
    uint8_t* text = nullptr;
    status = parcel->extend(textSize + sizeof(char16_t), &text);
    if (status != STATUS_OK) return status;
    utf8ToUtf16(string, size, text);
    memset(text + textSize, 0, sizeof(char16_t));
    return STATUS_OK;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return parcel->writeValue(value);
}

binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return parcel->writeValue(value);
}

binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return parcel->writeValue(int32_t{value});
}

binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return parcel->writeValue(int32_t{value});
}

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    return writeElements(parcel, length, [&](size_t index) {
        return AParcel_writeBool(parcel, getter(arrayData, index));
    });
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    return writeElements(parcel, length,
                         [&](size_t index) { return elementWriter(parcel, arrayData, index); });
}
