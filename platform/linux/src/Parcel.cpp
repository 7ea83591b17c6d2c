// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Parcel.h"

#include <android/binder_parcel_utils.h>
#include <linux/android/binder.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "platform/linux/src/Utf.h"

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "values are written as they lie in memory");
static_assert(sizeof(flat_binder_object) + sizeof(int32_t) == AParcel::kObjectSize, "");

constexpr size_t kAlignment = 4;

// What every call begins with, before the name of the interface: which checks of the caller's
// thread the callee takes over (none, but it is to collect what they find), on whose behalf
// (nobody's), and which partition the caller is built for.
constexpr uint32_t kStrictMode = 0x80000000;
constexpr int32_t kNoWorkSource = -1;
constexpr uint32_t kHeader = B_PACK_CHARS('V', 'N', 'D', 'R');

// Announce blocks before a reply that only managed code looks at.
constexpr int32_t kNotedOperationsHeader = -127;
constexpr int32_t kReplyHeader = -128;

// The priority a thread has that nobody gave another one; every object says at least that.
constexpr uint32_t kDefaultPriority = 19;
constexpr int32_t kNoStability = 0;

uint64_t aligned(uint64_t size) {
    return (size + kAlignment - 1) / kAlignment * kAlignment;
}

struct Entry {
    flat_binder_object object;
    int32_t stability;
};

// The entry of an object, without what names it; that of a null reference for null.
Entry makeEntry(const AIBinder* binder) {
    Entry entry = {};
    entry.object.hdr.type = BINDER_TYPE_BINDER;
    entry.object.flags = kDefaultPriority;
    entry.stability = kNoStability;
    if (binder != nullptr) {
        entry.stability = binderStability(binder);
        if (AIBinder_isRemote(binder)) {
            entry.object.hdr.type = BINDER_TYPE_HANDLE;
        } else {
            entry.object.flags |= FLAT_BINDER_FLAG_ACCEPTS_FDS;
        }
    }
    return entry;
}

// The length that comes before an array. Null arrays are the ones of length -1.
binder_status_t writeLength(AParcel* parcel, const void* arrayData, int32_t length) {
    if (length < -1 || (length == -1) != (arrayData == nullptr && length != 0)) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeInt32(parcel, length);
}

// Arrays whose elements lie in the parcel as they do in memory.
template <typename T>
binder_status_t writeArray(AParcel* parcel, const T* arrayData, int32_t length) {
    const binder_status_t status = writeLength(parcel, arrayData, length);
    if (status != STATUS_OK || length <= 0) {
        return status;
    }
    return parcel->write(arrayData, static_cast<uint64_t>(length) * sizeof(T));
}

template <typename T>
binder_status_t readArray(const AParcel* parcel, void* arrayData,
                          bool (*allocator)(void*, int32_t, T**)) {
    int32_t length = 0;
    const binder_status_t status = parcel->readLength(sizeof(T), &length);
    if (status != STATUS_OK) {
        return status;
    }
    T* buffer = nullptr;
    if (!allocator(arrayData, length, &buffer)) {
        return STATUS_NO_MEMORY;
    }
    if (length <= 0) {
        return STATUS_OK;
    }
    return buffer == nullptr ? STATUS_NO_MEMORY
                             : parcel->read(buffer, static_cast<uint64_t>(length) * sizeof(T));
}

// Values that lie in memory as in the parcel.
template <typename T>
binder_status_t writeValue(AParcel* parcel, T value) {
    return parcel->write(&value, sizeof value);
}

template <typename T>
binder_status_t readValue(const AParcel* parcel, T* value) {
    return parcel->read(value, sizeof *value);
}

// Values that take a whole word.
template <typename T>
binder_status_t readWord(const AParcel* parcel, T* value) {
    int32_t word = 0;
    const binder_status_t status = readValue(parcel, &word);
    if (status == STATUS_OK) {
        *value = static_cast<T>(word);
    }
    return status;
}

// Reads a text into room that `allocate` gives for its length with the zero at the end; for a null
// text that length is -1.
template <typename Allocate>
binder_status_t readText(const AParcel* parcel, Allocate allocate) {
    const uint8_t* units = nullptr;
    int32_t count = 0;
    const binder_status_t status = parcel->readUtf16(&units, &count);
    if (status != STATUS_OK) {
        return status;
    }
    char* buffer = nullptr;
    if (count == -1) {
        return allocate(-1, &buffer) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    }
    const int64_t size = utf8Length(units, static_cast<size_t>(count));
    if (size < 0 || size >= INT32_MAX) {
        return STATUS_BAD_VALUE;
    }
    if (!allocate(static_cast<int32_t>(size + 1), &buffer) || buffer == nullptr) {
        return STATUS_NO_MEMORY;
    }
    utf16ToUtf8(units, static_cast<size_t>(count), buffer);
    buffer[size] = '\0';
    return STATUS_OK;
}

// Moves behind a block that begins with its own size in bytes, the size included. A size of 0
// stands for an empty block.
binder_status_t skipBlock(const AParcel* parcel) {
    const size_t start = parcel->position();
    int32_t size = 0;
    const binder_status_t status = readValue(parcel, &size);
    if (status != STATUS_OK) {
        return status;
    }
    if (size < 0) {
        return STATUS_BAD_VALUE;
    }
    const uint64_t end = start + std::max(static_cast<uint64_t>(size), uint64_t{sizeof size});
    if (end > parcel->bytes().size()) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    parcel->setPosition(static_cast<size_t>(end));
    return STATUS_OK;
}

// What follows the code of an exception.
binder_status_t readException(const AParcel* parcel, binder_exception_t exception,
                              AStatus** status) {
    std::optional<std::string> message;
    binder_status_t result = ndk::AParcel_readString(parcel, &message);
    if (result == STATUS_OK) {
        result = skipBlock(parcel);  // where it happened, for managed code
    }
    int32_t serviceSpecific = 0;
    if (result == STATUS_OK && exception == EX_SERVICE_SPECIFIC) {
        result = readValue(parcel, &serviceSpecific);
    } else if (result == STATUS_OK && exception == EX_PARCELABLE) {
        result = skipBlock(parcel);
    }
    if (result != STATUS_OK) {
        return result;
    }
    const char* text = message ? message->c_str() : "";
    *status = exception == EX_SERVICE_SPECIFIC
                  ? AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, text)
                  : AStatus_fromExceptionCodeWithMessage(exception, text);
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel::writeInterfaceToken(const std::string& descriptor) noexcept {
    binder_status_t status = writeValue(this, kStrictMode);
    if (status == STATUS_OK) {
        status = writeValue(this, kNoWorkSource);
    }
    if (status == STATUS_OK) {
        status = writeValue(this, kHeader);
    }
    return status == STATUS_OK ? ndk::AParcel_writeString(this, descriptor) : status;
}

bool AParcel::checkInterfaceToken(const std::string& descriptor) const noexcept {
    uint32_t strictMode = 0;
    int32_t workSource = 0;
    uint32_t header = 0;
    const uint8_t* units = nullptr;
    int32_t count = 0;
    if (readValue(this, &strictMode) != STATUS_OK || readValue(this, &workSource) != STATUS_OK ||
        readValue(this, &header) != STATUS_OK || header != kHeader ||
        readUtf16(&units, &count) != STATUS_OK || count < 0) {
        return false;
    }
    return isSameText(units, static_cast<size_t>(count), descriptor.data(), descriptor.size());
}

void AParcel::clear() {
    mBytes.clear();
    mObjects.clear();
    mPosition = 0;
}

void AParcel::assign(const uint8_t* bytes, size_t size) {
    std::vector<uint8_t> copy(bytes, bytes + size);
    clear();
    mBytes = std::move(copy);
}

binder_status_t AParcel::makeRoom(uint64_t size, uint8_t** room) noexcept {
    if (mPosition > mBytes.size() || mPosition % kAlignment != 0) {
        return STATUS_BAD_VALUE;
    }
    const uint64_t end = mPosition + aligned(size);
    if (size > INT32_MAX || end > INT32_MAX) {
        return STATUS_NO_MEMORY;
    }
    const auto newPosition = static_cast<size_t>(end);
    if (newPosition > mBytes.size()) {
        try {
            mBytes.resize(newPosition);
        } catch (const std::bad_alloc&) {
            return STATUS_NO_MEMORY;
        }
    }
    dropObjects(mPosition, newPosition);
    *room = mBytes.data() + mPosition;
    std::memset(*room + size, 0, newPosition - mPosition - static_cast<size_t>(size));
    mPosition = newPosition;
    return STATUS_OK;
}

binder_status_t AParcel::write(const void* bytes, uint64_t size) noexcept {
    uint8_t* room = nullptr;
    const binder_status_t status = makeRoom(size, &room);
    if (status == STATUS_OK && size != 0) {
        std::memcpy(room, bytes, static_cast<size_t>(size));
    }
    return status;
}

binder_status_t AParcel::writeBinder(AIBinder* binder) noexcept {
    if (!reserveObjects(1)) {
        return STATUS_NO_MEMORY;
    }
    const Entry entry = makeEntry(binder);
    const size_t offset = mPosition;
    uint8_t* room = nullptr;
    const binder_status_t status = makeRoom(kObjectSize, &room);
    if (status != STATUS_OK) {
        return status;
    }
    std::memcpy(room, &entry.object, sizeof entry.object);
    std::memcpy(room + sizeof entry.object, &entry.stability, sizeof entry.stability);
    if (binder != nullptr) {
        mObjects.insert(firstObjectFrom(offset), Object{offset, refTo(binder)});
    }
    return STATUS_OK;
}

binder_status_t AParcel::append(const AParcel& from, size_t start, size_t size) noexcept {
    const auto first = from.firstObjectFrom(start);
    const auto last = std::find_if(first, from.mObjects.end(), [&](const Object& object) {
        return object.offset + kObjectSize > start + size;
    });
    if (!reserveObjects(static_cast<size_t>(last - first))) {
        return STATUS_NO_MEMORY;
    }
    const size_t to = mPosition;
    const binder_status_t status = write(from.mBytes.data() + start, size);
    if (status != STATUS_OK) {
        return status;
    }
    for (auto object = first; object != last; ++object) {
        const size_t offset = to + object->offset - start;
        mObjects.insert(firstObjectFrom(offset), Object{offset, refTo(object->binder.get())});
    }
    return STATUS_OK;
}

bool AParcel::holds(uint64_t size) const {
    return mPosition <= mBytes.size() && size <= INT32_MAX &&
           aligned(size) <= mBytes.size() - mPosition;
}

const uint8_t* AParcel::take(uint64_t size) const {
    if (!holds(size)) {
        return nullptr;
    }
    const uint8_t* bytes = mBytes.data() + mPosition;
    mPosition += static_cast<size_t>(aligned(size));
    return bytes;
}

binder_status_t AParcel::read(void* bytes, uint64_t size) const {
    const uint8_t* from = take(size);
    if (from == nullptr) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    std::memcpy(bytes, from, static_cast<size_t>(size));
    return STATUS_OK;
}

binder_status_t AParcel::readBinder(AIBinder** binder) const {
    const size_t offset = mPosition;
    const uint8_t* bytes = take(kObjectSize);
    if (bytes == nullptr) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    const auto object = firstObjectFrom(offset);
    if (object == mObjects.end() || object->offset != offset) {
        Entry entry = {};
        std::memcpy(&entry.object, bytes, sizeof entry.object);
        std::memcpy(&entry.stability, bytes + sizeof entry.object, sizeof entry.stability);
        if (entry.object.hdr.type != BINDER_TYPE_BINDER || entry.object.binder != 0 ||
            entry.object.cookie != 0 || entry.stability != kNoStability) {
            return STATUS_BAD_TYPE;
        }
        *binder = nullptr;
        return STATUS_OK;
    }
    int32_t stability = 0;
    std::memcpy(&stability, bytes + sizeof(flat_binder_object), sizeof stability);
    if (stability != binderStability(object->binder.get())) {
        return STATUS_BAD_TYPE;
    }
    *binder = refTo(object->binder.get()).release();
    return STATUS_OK;
}

binder_status_t AParcel::readLength(uint64_t elementSize, int32_t* length) const {
    int32_t count = 0;
    const binder_status_t status = readValue(this, &count);
    if (status != STATUS_OK) {
        return status;
    }
    if (count < -1) {
        return STATUS_BAD_VALUE;
    }
    if (count > 0 && !holds(static_cast<uint64_t>(count) * elementSize)) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    *length = count;
    return STATUS_OK;
}

binder_status_t AParcel::readUtf16(const uint8_t** units, int32_t* count) const {
    int32_t length = 0;
    const binder_status_t status = readLength(sizeof(char16_t), &length);
    if (status != STATUS_OK || length == -1) {
        *count = length;
        return status;
    }
    const uint64_t size = static_cast<uint64_t>(length) * sizeof(char16_t);
    const uint8_t* text = take(size + sizeof(char16_t));
    if (text == nullptr) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    if (text[size] != 0 || text[size + 1] != 0) {
        return STATUS_BAD_VALUE;
    }
    *units = text;
    *count = length;
    return STATUS_OK;
}

std::vector<AParcel::Object>::const_iterator AParcel::firstObjectFrom(size_t offset) const {
    return std::lower_bound(
        mObjects.begin(), mObjects.end(), offset,
        [](const Object& object, size_t wanted) { return object.offset < wanted; });
}

bool AParcel::reserveObjects(size_t more) noexcept {
    const size_t needed = mObjects.size() + more;
    if (needed <= mObjects.capacity()) {
        return true;
    }
    try {
        mObjects.reserve(std::max(needed, 2 * mObjects.size()));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void AParcel::dropObjects(size_t start, size_t end) noexcept {
    // An entry that begins before may still reach into the range.
    const auto first = firstObjectFrom(start < kObjectSize ? 0 : start - kObjectSize + 1);
    mObjects.erase(first, firstObjectFrom(end));
}

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

AParcel* AParcel_create() {
    return new (std::nothrow) AParcel();
}

binder_status_t AParcel_reset(AParcel* parcel) {
    parcel->clear();
    return STATUS_OK;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) {
        return STATUS_BAD_VALUE;
    }
    parcel->setPosition(static_cast<size_t>(position));
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position());
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->bytes().size());
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
    if (from == to || start < 0 || size < 0 || static_cast<size_t>(start) % kAlignment != 0 ||
        static_cast<uint64_t>(start) + static_cast<uint64_t>(size) > from->bytes().size()) {
        return STATUS_BAD_VALUE;
    }
    return to->append(*from, static_cast<size_t>(start), static_cast<size_t>(size));
}

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    if (!parcel->objects().empty()) {
        return STATUS_INVALID_OPERATION;
    }
    const std::vector<uint8_t>& bytes = parcel->bytes();
    if (start > bytes.size() || len > bytes.size() - start) {
        return STATUS_BAD_VALUE;
    }
    std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(start), len, buffer);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    if (len > INT32_MAX) {
        return STATUS_BAD_VALUE;
    }
    try {
        parcel->assign(buffer, len);
        return STATUS_OK;
    } catch (const std::bad_alloc&) {
        return STATUS_NO_MEMORY;
    }
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    return parcel->writeBinder(binder);
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    return parcel->readBinder(binder);
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    const binder_exception_t exception = AStatus_getExceptionCode(status);
    if (exception == EX_TRANSACTION_FAILED) {
        return AStatus_getStatus(status);
    }
    binder_status_t result = AParcel_writeInt32(parcel, exception);
    if (result != STATUS_OK || exception == EX_NONE) {
        return result;
    }
    const char* message = AStatus_getMessage(status);
    result = AParcel_writeString(parcel, message, static_cast<int32_t>(std::strlen(message)));
    if (result == STATUS_OK) {
        result = AParcel_writeInt32(parcel, 0);  // nothing about where it happened
    }
    if (result == STATUS_OK && exception == EX_SERVICE_SPECIFIC) {
        result = AParcel_writeInt32(parcel, AStatus_getServiceSpecificError(status));
    } else if (result == STATUS_OK && exception == EX_PARCELABLE) {
        result = AParcel_writeInt32(parcel, 0);  // no structure
    }
    return result;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    binder_exception_t exception = EX_NONE;
    binder_status_t result = readValue(parcel, &exception);
    if (result == STATUS_OK && exception == kNotedOperationsHeader) {
        result = skipBlock(parcel);
        if (result == STATUS_OK) {
            result = readValue(parcel, &exception);
        }
    }
    if (result == STATUS_OK && exception == kReplyHeader) {
        // Comes with successes only.
        result = skipBlock(parcel);
        exception = EX_NONE;
    }
    if (result != STATUS_OK) {
        return result;
    }
    if (exception != EX_NONE) {
        return readException(parcel, exception, status);
    }
    *status = AStatus_newOk();
    return STATUS_OK;
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr) {
        return length == -1 ? AParcel_writeInt32(parcel, -1) : STATUS_BAD_VALUE;
    }
    if (length < 0) {
        return STATUS_BAD_VALUE;
    }
    const auto size = static_cast<size_t>(length);
    const int64_t units = utf16Length(string, size);
    if (units < 0) {
        return STATUS_BAD_VALUE;
    }
    const binder_status_t status = AParcel_writeInt32(parcel, static_cast<int32_t>(units));
    if (status != STATUS_OK) {
        return status;
    }
    const uint64_t textSize = static_cast<uint64_t>(units) * sizeof(char16_t);
    uint8_t* room = nullptr;
    const binder_status_t roomStatus = parcel->makeRoom(textSize + sizeof(char16_t), &room);
    if (roomStatus != STATUS_OK) {
        return roomStatus;
    }
    utf8ToUtf16(string, size, room);
    std::memset(room + textSize, 0, sizeof(char16_t));
    return STATUS_OK;
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    return readText(parcel, [&](int32_t length, char** buffer) {
        return allocator(stringData, length, buffer);
    });
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    if (length < -1) {
        return STATUS_BAD_VALUE;
    }
    binder_status_t status = AParcel_writeInt32(parcel, length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        int32_t size = 0;
        const char* string = getter(arrayData, static_cast<size_t>(i), &size);
        status = AParcel_writeString(parcel, string, size);
    }
    return status;
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    int32_t length = 0;
    binder_status_t status = parcel->readLength(sizeof(int32_t), &length);
    if (status != STATUS_OK) {
        return status;
    }
    if (!allocator(arrayData, length)) {
        return STATUS_NO_MEMORY;
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = readText(parcel, [&](int32_t size, char** buffer) {
            return elementAllocator(arrayData, static_cast<size_t>(i), size, buffer);
        });
    }
    return status;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    if (length < -1) {
        return STATUS_BAD_VALUE;
    }
    binder_status_t status = AParcel_writeInt32(parcel, length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementWriter(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    int32_t length = 0;
    binder_status_t status = parcel->readLength(sizeof(int32_t), &length);
    if (status != STATUS_OK) {
        return status;
    }
    if (!allocator(arrayData, length)) {
        return STATUS_NO_MEMORY;
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementReader(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return writeValue(parcel, value);
}

binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) {
    return writeValue(parcel, value);
}

binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return writeValue(parcel, value);
}

binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) {
    return writeValue(parcel, value);
}

binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return writeValue(parcel, value);
}

binder_status_t AParcel_writeDouble(AParcel* parcel, double value) {
    return writeValue(parcel, value);
}

binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return AParcel_writeInt32(parcel, value ? 1 : 0);
}

binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) {
    return AParcel_writeInt32(parcel, value);
}

binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return AParcel_writeInt32(parcel, value);
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return readValue(parcel, value);
}

binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) {
    return readValue(parcel, value);
}

binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return readValue(parcel, value);
}

binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) {
    return readValue(parcel, value);
}

binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return readValue(parcel, value);
}

binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) {
    return readValue(parcel, value);
}

binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    return readWord(parcel, value);
}

binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) {
    return readWord(parcel, value);
}

binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
    return readWord(parcel, value);
}

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* arrayData,
                                         int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* arrayData,
                                         int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    if (length < -1) {
        return STATUS_BAD_VALUE;
    }
    binder_status_t status = AParcel_writeInt32(parcel, length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = AParcel_writeBool(parcel, getter(arrayData, static_cast<size_t>(i)));
    }
    return status;
}

binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length) {
    binder_status_t status = writeLength(parcel, arrayData, length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = AParcel_writeChar(parcel, arrayData[i]);
    }
    return status;
}

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    return writeArray(parcel, arrayData, length);
}

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) {
    int32_t length = 0;
    binder_status_t status = parcel->readLength(sizeof(int32_t), &length);
    if (status != STATUS_OK) {
        return status;
    }
    if (!allocator(arrayData, length)) {
        return STATUS_NO_MEMORY;
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        bool value = false;
        status = AParcel_readBool(parcel, &value);
        setter(arrayData, static_cast<size_t>(i), value);
    }
    return status;
}

binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) {
    int32_t length = 0;
    binder_status_t status = parcel->readLength(sizeof(int32_t), &length);
    if (status != STATUS_OK) {
        return status;
    }
    char16_t* buffer = nullptr;
    if (!allocator(arrayData, length, &buffer) || (length > 0 && buffer == nullptr)) {
        return STATUS_NO_MEMORY;
    }
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = AParcel_readChar(parcel, &buffer[i]);
    }
    return status;
}

binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) {
    return readArray(parcel, arrayData, allocator);
}
