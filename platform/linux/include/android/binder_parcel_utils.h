// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writing and reading C++ types: numbers, bool, enumerations, structures, interfaces, and vectors
// of these. A structure is any class with
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

// What a value is written as: an enumerator as its number.
template <typename T, bool = std::is_enum_v<T>>
struct Stored {
    using Type = T;
};
template <typename T>
struct Stored<T, true> {
    using Type = std::underlying_type_t<T>;
};

// Allocators of a std::vector<T>. The second is for elements that lie in memory as Raw does.
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
template <typename T, typename Raw>
bool allocateVector(void* vectorData, int32_t length, Raw** outBuffer) {
    if (!allocateElements<T>(vectorData, length)) return false;
    *outBuffer = reinterpret_cast<Raw*>(static_cast<std::vector<T>*>(vectorData)->data());
    return true;
}

inline bool getBool(const void* vectorData, std::size_t index) {
    return (*static_cast<const std::vector<bool>*>(vectorData))[index];
}
inline void setBool(void* vectorData, std::size_t index, bool value) {
    (*static_cast<std::vector<bool>*>(vectorData))[index] = value;
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
    using Stored = typename impl::Stored<T>::Type;
    if (vector.size() > INT32_MAX) return STATUS_BAD_VALUE;
    const auto length = static_cast<int32_t>(vector.size());
    if constexpr (std::is_same_v<Stored, bool>) {
        return AParcel_writeBoolArray(parcel, &vector, length, impl::getBool);
    } else if constexpr (std::is_same_v<Stored, int32_t>) {
        return AParcel_writeInt32Array(parcel, reinterpret_cast<const int32_t*>(vector.data()),
                                       length);
    } else if constexpr (std::is_same_v<Stored, int64_t>) {
        return AParcel_writeInt64Array(parcel, reinterpret_cast<const int64_t*>(vector.data()),
                                       length);
    } else if constexpr (std::is_arithmetic_v<Stored>) {
        static_assert(sizeof(Stored) == 1, "no array of this type");
        return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vector.data()),
                                      length);
    } else {
        return AParcel_writeParcelableArray(parcel, &vector, length, impl::writeElement<T>);
    }
}

// Reads a vector. A null array is refused.
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<T>* vector) {
    using Stored = typename impl::Stored<T>::Type;
    if constexpr (std::is_same_v<Stored, bool>) {
        return AParcel_readBoolArray(parcel, vector, impl::allocateElements<bool>, impl::setBool);
    } else if constexpr (std::is_same_v<Stored, int32_t>) {
        return AParcel_readInt32Array(parcel, vector, impl::allocateVector<T, int32_t>);
    } else if constexpr (std::is_same_v<Stored, int64_t>) {
        return AParcel_readInt64Array(parcel, vector, impl::allocateVector<T, int64_t>);
    } else if constexpr (std::is_arithmetic_v<Stored>) {
        static_assert(sizeof(Stored) == 1, "no array of this type");
        return AParcel_readByteArray(parcel, vector, impl::allocateVector<T, int8_t>);
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
    } else if constexpr (std::is_arithmetic_v<T>) {
        static_assert(std::is_same_v<T, int8_t>, "no value of this type");
        return AParcel_writeByte(parcel, value);
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
    } else if constexpr (std::is_arithmetic_v<T>) {
        static_assert(std::is_same_v<T, int8_t>, "no value of this type");
        return AParcel_readByte(parcel, value);
    } else if constexpr (impl::IsVector<T>::value) {
        return AParcel_readVector(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::readFromParcel(parcel, value);
    } else {
        return AParcel_readParcelable(parcel, value);
    }
}

}  // namespace ndk
