// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/ParcelFormat.h"
#include "platform/linux/src/Stability.h"
#include "platform/linux/src/Utf.h"

namespace {

// The entry of an object, without what names it; that of a null reference for null.
ObjectEntry makeEntry(AIBinder* binder) {
    // The priority that a thread has by default; every object asks for at least that.
    constexpr uint32_t kDefaultPriority = 19;
    if (binder == nullptr) return {BINDER_TYPE_BINDER, kDefaultPriority, 0, 0, kUndeclared};
    const int32_t stability = binderStability(binder);
    if (AIBinder_isRemote(binder)) return {BINDER_TYPE_HANDLE, kDefaultPriority, 0, 0, stability};
    return {BINDER_TYPE_BINDER, kDefaultPriority | FLAT_BINDER_FLAG_ACCEPTS_FDS, 0, 0, stability};
}

}  // namespace

binder_status_t AParcel::writeInterfaceToken(const std::string& descriptor) noexcept {
    const binder_status_t status = writeValue(CallHeader());
    if (status != STATUS_OK) return status;
    return writeString(descriptor);
}

binder_status_t AParcel::writeString(std::string_view text) noexcept {
    const int64_t count = utf16Length(text.data(), text.size());
    if (count < 0 || count > INT32_MAX) return STATUS_BAD_VALUE;
    binder_status_t status = writeValue(static_cast<int32_t>(count));
    if (status != STATUS_OK) return status;
    const uint64_t size = static_cast<uint64_t>(count) * sizeof(char16_t);
    uint8_t* units = nullptr;
    status = extend(size + sizeof(char16_t), &units);
    if (status != STATUS_OK) return status;
    utf8ToUtf16(text.data(), text.size(), units);
    memset(units + size, 0, sizeof(char16_t));
    return STATUS_OK;
}

binder_status_t AParcel::extend(uint64_t size, uint8_t** bytes) noexcept {
    if (mPosition > mBytes.size() || mPosition % kParcelAlignment != 0) return STATUS_BAD_VALUE;
    const uint64_t end = mPosition + aligned(size);
    if (size > INT32_MAX || end > INT32_MAX) return STATUS_NO_MEMORY;
    const auto newPosition = static_cast<size_t>(end);
    if (newPosition > mBytes.size()) {
        try {
            // Few calls need more.
            constexpr size_t kUsual = 256;
            if (mBytes.empty()) mBytes.reserve(kUsual);
            mBytes.resize(newPosition);
        } catch (const std::bad_alloc&) {
            return STATUS_NO_MEMORY;
        }
    }
    auto first = firstObjectFrom(mPosition);
    // The one before may still reach into what is written.
    if (first != mObjects.begin() && std::prev(first)->end() > mPosition) --first;
    mObjects.erase(first, firstObjectFrom(newPosition));
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

binder_status_t AParcel::writeDescriptor(int fd) noexcept try {
    if (!reserveObjects(1)) return STATUS_NO_MEMORY;
    const auto duplicate = std::make_shared<UniqueFd>();
    duplicate->reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!duplicate->valid()) return errno == EBADF ? STATUS_BAD_VALUE : STATUS_NO_MEMORY;
    const size_t offset = mPosition;
    const ObjectEntry entry{BINDER_TYPE_FD, 0x7f | FLAT_BINDER_FLAG_ACCEPTS_FDS, 0, 0};
    const binder_status_t status = write(&entry, kDescriptorEntrySize);
    if (status == STATUS_OK) {
        mObjects.insert(firstObjectFrom(offset), Object{offset, nullptr, duplicate});
    }
    return status;
} catch (const std::bad_alloc&) {
    return STATUS_NO_MEMORY;
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
    result = parcel->writeString(AStatus_getMessage(status));
    // Nothing about where it happened.
    if (result == STATUS_OK) result = parcel->writeValue(int32_t{0});
    if (result != STATUS_OK) return result;
    if (exception == EX_SERVICE_SPECIFIC) {
        return parcel->writeValue(AStatus_getServiceSpecificError(status));
    }
    // No structure.
    return exception == EX_PARCELABLE ? parcel->writeValue(int32_t{0}) : STATUS_OK;
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

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    if (length < 0 || (arrayData == nullptr && length != 0)) return STATUS_BAD_VALUE;
    const binder_status_t status = parcel->writeValue(length);
    return status == STATUS_OK ? parcel->write(arrayData, static_cast<uint64_t>(length)) : status;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    if (length < 0) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->writeValue(length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementWriter(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}
