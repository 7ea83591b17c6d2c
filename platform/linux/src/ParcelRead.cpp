// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>
#include <new>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/ParcelFormat.h"
#include "platform/linux/src/Stability.h"
#include "platform/linux/src/Utf.h"

namespace {

// Moves behind a block that begins with its own size in bytes, the size included. A size of 0
// stands for an empty block.
binder_status_t skipBlock(const AParcel* parcel) {
    const size_t start = parcel->position();
    int32_t size = 0;
    const binder_status_t status = parcel->readValue(&size);
    if (status != STATUS_OK) return status;
    if (size < 0) return STATUS_BAD_VALUE;
    const uint64_t end = start + std::max(static_cast<uint64_t>(size), uint64_t{sizeof size});
    if (end > parcel->bytes().size()) return STATUS_NOT_ENOUGH_DATA;
    parcel->setPosition(static_cast<size_t>(end));
    return STATUS_OK;
}

// What follows the code of an exception.
binder_status_t readException(const AParcel* parcel, binder_exception_t exception,
                              AStatus** status) {
    std::string message;
    binder_status_t result = parcel->readString(&message);
    if (result == STATUS_OK) result = skipBlock(parcel);  // where it happened, for managed code
    int32_t serviceSpecific = 0;
    if (result == STATUS_OK && exception == EX_SERVICE_SPECIFIC) {
        result = parcel->readValue(&serviceSpecific);
    } else if (result == STATUS_OK && exception == EX_PARCELABLE) {
        result = skipBlock(parcel);
    }
    if (result != STATUS_OK) return result;
    *status = exception == EX_SERVICE_SPECIFIC
                  ? AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message.c_str())
                  : AStatus_fromExceptionCodeWithMessage(exception, message.c_str());
    return STATUS_OK;
}

}  // namespace

bool AParcel::checkInterfaceToken(const std::string& descriptor) const noexcept {
    CallHeader header;
    const uint8_t* units = nullptr;
    int32_t count = 0;
    return readValue(&header) == STATUS_OK && header.partition == CallHeader().partition &&
           readUtf16(&units, &count) == STATUS_OK && count >= 0 &&
           isSameText(units, static_cast<size_t>(count), descriptor.data(), descriptor.size());
}

binder_status_t AParcel::readString(std::string* text) const noexcept {
    const uint8_t* units = nullptr;
    int32_t count = 0;
    const binder_status_t status = readUtf16(&units, &count);
    if (status != STATUS_OK) return status;
    const int64_t size = count <= 0 ? 0 : utf8Length(units, static_cast<size_t>(count));
    if (size < 0) return STATUS_BAD_VALUE;
    try {
        text->resize(static_cast<size_t>(size));
    } catch (const std::bad_alloc&) {
        return STATUS_NO_MEMORY;
    }
    if (size > 0) utf16ToUtf8(units, static_cast<size_t>(count), text->data());
    return STATUS_OK;
}

bool AParcel::holds(uint64_t size) const {
    return mPosition <= mBytes.size() && size <= INT32_MAX &&
           aligned(size) <= mBytes.size() - mPosition;
}

const uint8_t* AParcel::take(uint64_t size) const {
    if (!holds(size)) return nullptr;
    const uint8_t* const bytes = mBytes.data() + mPosition;
    mPosition += static_cast<size_t>(aligned(size));
    return bytes;
}

binder_status_t AParcel::read(void* bytes, uint64_t size) const {
    const uint8_t* const from = take(size);
    if (from == nullptr) return STATUS_NOT_ENOUGH_DATA;
    memcpy(bytes, from, static_cast<size_t>(size));
    return STATUS_OK;
}

binder_status_t AParcel::readBinder(AIBinder** binder) const {
    const size_t offset = mPosition;
    ObjectEntry entry{};
    const binder_status_t status = readValue(&entry);
    if (status != STATUS_OK) return status;
    const Object* const object = objectAt(offset);
    if (object != nullptr && object->binder != nullptr &&
        takeStability(object->binder.get(), entry.stability)) {
        *binder = refTo(object->binder.get()).release();
        return STATUS_OK;
    }
    if (object != nullptr || entry.type != BINDER_TYPE_BINDER || entry.handle != 0 ||
        entry.cookie != 0 || !isStability(entry.stability, kUndeclared)) {
        return STATUS_BAD_TYPE;
    }
    *binder = nullptr;
    return STATUS_OK;
}

binder_status_t AParcel::readDescriptor(int* fd) const {
    const Object* const object = objectAt(mPosition);
    if (take(kDescriptorEntrySize) == nullptr) return STATUS_NOT_ENOUGH_DATA;
    if (object == nullptr || object->descriptor == nullptr) return STATUS_BAD_TYPE;
    *fd = object->descriptor->get();
    return STATUS_OK;
}

binder_status_t AParcel::readLength(uint64_t elementSize, int32_t* length) const {
    int32_t count = 0;
    const binder_status_t status = readValue(&count);
    if (status != STATUS_OK) return status;
    if (count < -1) return STATUS_BAD_VALUE;
    if (count > 0 && !holds(static_cast<uint64_t>(count) * elementSize)) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    *length = count;
    return STATUS_OK;
}

binder_status_t AParcel::readUtf16(const uint8_t** units, int32_t* count) const {
    const binder_status_t status = readLength(sizeof(char16_t), count);
    if (status != STATUS_OK || *count == -1) return status;
    const uint64_t size = static_cast<uint64_t>(*count) * sizeof(char16_t);
    const uint8_t* const text = take(size + sizeof(char16_t));
    if (text == nullptr) return STATUS_NOT_ENOUGH_DATA;
    if (text[size] != 0 || text[size + 1] != 0) return STATUS_BAD_VALUE;
    *units = text;
    return STATUS_OK;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    return parcel->readBinder(binder);
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    binder_exception_t exception = EX_NONE;
    const binder_status_t result = parcel->readValue(&exception);
    if (result != STATUS_OK) return result;
    if (exception != EX_NONE) return readException(parcel, exception, status);
    *status = AStatus_newOk();
    return STATUS_OK;
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return parcel->readValue(value);
}

binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return parcel->readValue(value);
}

binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    int32_t word = 0;
    const binder_status_t status = parcel->readValue(&word);
    if (status == STATUS_OK) *value = word != 0;
    return status;
}

binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) {
    int32_t length = 0;
    const binder_status_t status = parcel->readLength(1, &length);
    if (status != STATUS_OK) return status;
    int8_t* buffer = nullptr;
    if (!allocator(arrayData, length, &buffer)) return STATUS_NO_MEMORY;
    if (length <= 0) return STATUS_OK;
    if (buffer == nullptr) return STATUS_NO_MEMORY;
    return parcel->read(buffer, static_cast<uint64_t>(length));
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    int32_t length = 0;
    binder_status_t status = parcel->readLength(sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementReader(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}
