// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_parcel.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/ObjectEntry.h"
#include "platform/linux/src/UniqueFd.h"

// The bytes and objects of a call. Belongs to one thread at a time.
//
// An object, which is a reference to a binder object or a descriptor, lies in the bytes as an
// ObjectEntry. Which places are objects, and which objects they are, is known from the list beside
// the bytes alone; whatever the entry itself says about that is empty here and is filled in by a
// link that needs it on the way out. A null reference has an entry, but no place in the list.
struct AParcel {
  public:
    struct Object {
        size_t offset;  // of the entry, in bytes
        BinderRef binder;
        SharedFd descriptor{};  // null unless binder is

        // Behind the entry.
        size_t end() const {
            return offset + (binder == nullptr ? kDescriptorEntrySize : sizeof(ObjectEntry));
        }
    };

    // An empty parcel.
    AParcel() = default;
    // An empty parcel for a call of target, which is only remembered, for target() to be compared.
    explicit AParcel(const AIBinder* target) : mTarget(target) {}
    // A received parcel. objects: their entries whole, aligned to four bytes, in ascending order,
    // none over another.
    AParcel(std::vector<uint8_t> bytes, std::vector<Object> objects)
        : mBytes(std::move(bytes)), mObjects(std::move(objects)) {}

    AParcel(const AParcel&) = delete;
    AParcel& operator=(const AParcel&) = delete;

    const AIBinder* target() const { return mTarget; }
    const std::vector<uint8_t>& bytes() const { return mBytes; }
    const std::vector<Object>& objects() const { return mObjects; }

    // Writes what every call begins with: the interface that the caller believes to call.
    binder_status_t writeInterfaceToken(const std::string& descriptor) noexcept;
    // Reads it, and returns whether it is the token of this interface.
    bool checkInterfaceToken(const std::string& descriptor) const noexcept;

    // Writes a text. One that is not UTF-8 is refused with STATUS_BAD_VALUE.
    binder_status_t writeString(std::string_view text) noexcept;
    // Reads a text; a null one is empty. One that is not UTF-16 is refused with STATUS_BAD_VALUE.
    binder_status_t readString(std::string* text) const noexcept;

    // The rest is what the AParcel_ functions are made of.

    size_t position() const { return mPosition; }
    void setPosition(size_t position) const { mPosition = position; }

    // Replaces everything by these bytes. May throw std::bad_alloc, with nothing changed.
    void assign(const uint8_t* bytes, size_t size);

    // Makes the next `size` bytes writable and moves behind them and what aligns the next value,
    // which is set to zero. Objects that are written over leave the list.
    // bytes: set to them, valid until the next write.
    // Returns STATUS_OK; STATUS_BAD_VALUE if the position lies behind the end or is not aligned;
    // STATUS_NO_MEMORY, with nothing changed.
    binder_status_t extend(uint64_t size, uint8_t** bytes) noexcept;
    binder_status_t write(const void* bytes, uint64_t size) noexcept;
    // A value that lies in memory as in the parcel.
    template <typename T>
    binder_status_t writeValue(T value) noexcept {
        return write(&value, sizeof value);
    }
    binder_status_t writeBinder(AIBinder* binder) noexcept;
    // Writes a duplicate of the descriptor, which is closed with the parcel. Returns
    // STATUS_BAD_VALUE if it is not open, STATUS_NO_MEMORY also for want of a descriptor.
    binder_status_t writeDescriptor(int fd) noexcept;

    // Whether the rest holds that many bytes, and what aligns the next value.
    bool holds(uint64_t size) const;
    // Returns the next `size` bytes and moves behind them and what aligns the next value; null, and
    // does not move, if the rest does not hold them.
    const uint8_t* take(uint64_t size) const;
    binder_status_t read(void* bytes, uint64_t size) const;
    template <typename T>
    binder_status_t readValue(T* value) const {
        return read(value, sizeof *value);
    }
    binder_status_t readBinder(AIBinder** binder) const;
    // fd: stays the parcel's. Returns STATUS_BAD_TYPE when no descriptor was put there.
    binder_status_t readDescriptor(int* fd) const;

    // Reads the length of an array whose elements take elementSize bytes each. length: set to -1
    // for a null array, otherwise to a number of elements that the rest of the parcel holds.
    binder_status_t readLength(uint64_t elementSize, int32_t* length) const;

    // Reads a text. units: set to its UTF-16 units; count: to how many; -1 for a null text.
    binder_status_t readUtf16(const uint8_t** units, int32_t* count) const;

  private:
    std::vector<Object>::const_iterator firstObjectFrom(size_t offset) const;
    // The object whose entry begins there, null if there is none.
    const Object* objectAt(size_t offset) const;
    bool reserveObjects(size_t more) noexcept;

    const AIBinder* mTarget = nullptr;
    std::vector<uint8_t> mBytes;
    // In ascending order of their offsets, none over another.
    std::vector<Object> mObjects;
    // Moved by reading too.
    mutable size_t mPosition = 0;
};
