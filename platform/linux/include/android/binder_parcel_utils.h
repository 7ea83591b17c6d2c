// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writing and reading C++ types: numbers, bool, enumerations, structures, interfaces, and vectors
// of bytes and of structures. A structure is any class with
//     binder_status_t writeToParcel(AParcel*) const;
//     binder_status_t readFromParcel(const AParcel*);
// All functions return what the C functions return; STATUS_UNEXPECTED_NULL where a null structure
// was read. Memory that runs out is STATUS_NO_MEMORY, never an exception. What a failed read leaves
// in the value is valid, nothing more.

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace ndk {

namespace impl {

template <typename T>
struct IsInterface : std::false_type {};
template <typename T>
struct IsInterface<std::shared_ptr<T>> : std::is_base_of<ICInterface, T> {};

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};

// Whether the elements of an array are bytes.
template <typename T>
constexpr bool isByte = std::is_same_v<T, uint8_t> || std::is_same_v<T, int8_t>;

// Allocators of a std::vector<T>. The second is for bytes.
template <typename T>
bool allocateElements(void* vectorData, int32_t length) {
    if (length < 0) return false;
    try {
        static_cast<std::vector<T>*>(vectorData)->resize(static_cast<std::size_t>(length));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}
template <typename T>
bool allocateBytes(void* vectorData, int32_t length, int8_t** outBuffer) {
    if (!allocateElements<T>(vectorData, length)) return false;
    *outBuffer = reinterpret_cast<int8_t*>(static_cast<std::vector<T>*>(vectorData)->data());
    return true;
}

}  // namespace impl

// Writes or reads a structure: a word 1, then the structure.
template <typename P>
binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& structure) {
    const binder_status_t status = AParcel_writeInt32(parcel, 1);
    return status == STATUS_OK ? structure.writeToParcel(parcel) : status;
}
template <typename P>
binder_status_t AParcel_readParcelable(const AParcel* parcel, P* structure) {
    int32_t present = 0;
    const binder_status_t status = AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK) return status;
    return present == 0 ? STATUS_UNEXPECTED_NULL : structure->readFromParcel(parcel);
}

namespace impl {

template <typename T>
binder_status_t writeElement(AParcel* parcel, const void* vectorData, std::size_t index) {
    return AParcel_writeParcelable(parcel,
                                   (*static_cast<const std::vector<T>*>(vectorData))[index]);
}
template <typename T>
binder_status_t readElement(const AParcel* parcel, void* vectorData, std::size_t index) {
    return AParcel_readParcelable(parcel, &(*static_cast<std::vector<T>*>(vectorData))[index]);
}

}  // namespace impl

// Writes a vector: its length, then its elements.
template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<T>& vector) {
    if (vector.size() > INT32_MAX) return STATUS_BAD_VALUE;
    const auto length = static_cast<int32_t>(vector.size());
    if constexpr (impl::isByte<T>) {
        return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vector.data()),
                                      length);
    } else {
        return AParcel_writeParcelableArray(parcel, &vector, length, impl::writeElement<T>);
    }
}

// Reads a vector. A null array is refused.
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<T>* vector) {
    if constexpr (impl::isByte<T>) {
        return AParcel_readByteArray(parcel, vector, impl::allocateBytes<T>);
    } else {
        return AParcel_readParcelableArray(parcel, vector, impl::allocateElements<T>,
                                           impl::readElement<T>);
    }
}

// Writes any value. An interface may be null: generated code passes a null one on.
template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
    if constexpr (std::is_enum_v<T>) {
        return AParcel_writeData(parcel, static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_same_v<T, bool>) {
        return AParcel_writeBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_writeInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_writeInt64(parcel, value);
    } else if constexpr (impl::IsVector<T>::value) {
        return AParcel_writeVector(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::writeToParcel(parcel, value);
    } else {
        return AParcel_writeParcelable(parcel, value);
    }
}

// Reads any value. An interface is null for a null reference and for an object of another
// interface: the implementation that is called has to look.
template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
    if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> number{};
        const binder_status_t status = AParcel_readData(parcel, &number);
        if (status == STATUS_OK) *value = static_cast<T>(number);
        return status;
    } else if constexpr (std::is_same_v<T, bool>) {
        return AParcel_readBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_readInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_readInt64(parcel, value);
    } else if constexpr (impl::IsVector<T>::value) {
        return AParcel_readVector(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::readFromParcel(parcel, value);
    } else {
        return AParcel_readParcelable(parcel, value);
    }
}

}  // namespace ndk
