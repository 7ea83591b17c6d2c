// SPDX-License-Identifier: Apache-2.0
#pragma once

// Writing and reading C++ types: strings, vectors, optional values, enumerations, structures and
// interfaces. A structure is any class with
//     binder_status_t writeToParcel(AParcel*) const;
//     binder_status_t readFromParcel(const AParcel*);
// All functions return what the C functions return; STATUS_UNEXPECTED_NULL where a null was read,
// or is to be written, in a place that cannot hold one. Memory that runs out is STATUS_NO_MEMORY,
// never an exception. What a failed read leaves in the value is valid, nothing more.

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
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

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

// Makes container that many elements long. Returns false when there is no memory.
template <typename Container>
bool resize(Container* container, int32_t length) {
    try {
        container->resize(static_cast<std::size_t>(length));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Allocators. The first takes a std::vector<T> whose elements lie in memory as Raw does.
template <typename T, typename Raw>
bool allocateVector(void* vectorData, int32_t length, Raw** outBuffer) {
    auto* vector = static_cast<std::vector<T>*>(vectorData);
    if (length < 0 || !resize(vector, length)) {
        return false;
    }
    *outBuffer = reinterpret_cast<Raw*>(vector->data());
    return true;
}

template <typename T>
bool allocateElements(void* vectorData, int32_t length) {
    return length >= 0 && resize(static_cast<std::vector<T>*>(vectorData), length);
}

// The length counts the zero that is written behind the text, where std::string keeps its own.
inline bool allocateString(void* stringData, int32_t length, char** buffer) {
    auto* string = static_cast<std::string*>(stringData);
    if (length < 1 || !resize(string, length - 1)) {
        return false;
    }
    *buffer = string->data();
    return true;
}

// Only lengths of this size can be written.
inline bool fitsLength(std::size_t size) {
    return size <= INT32_MAX;
}

inline bool getBool(const void* vectorData, std::size_t index) {
    return (*static_cast<const std::vector<bool>*>(vectorData))[index];
}

inline void setBool(void* vectorData, std::size_t index, bool value) {
    (*static_cast<std::vector<bool>*>(vectorData))[index] = value;
}

}  // namespace impl

// Declared ahead: containers hold whatever these can write and read.
template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

// Writes or reads a reference to an object that may be null.
inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel,
                                                         const SpAIBinder& binder) {
    return AParcel_writeStrongBinder(parcel, binder.get());
}
inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel, SpAIBinder* binder) {
    AIBinder* read = nullptr;
    const binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status == STATUS_OK) {
        binder->set(read);
    }
    return status;
}

// Writes or reads a reference to an object that cannot be null.
inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel,
                                                         const SpAIBinder& binder) {
    if (binder.get() == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    return AParcel_writeStrongBinder(parcel, binder.get());
}
inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel, SpAIBinder* binder) {
    const binder_status_t status = AParcel_readNullableStrongBinder(parcel, binder);
    return status == STATUS_OK && binder->get() == nullptr ? STATUS_UNEXPECTED_NULL : status;
}

// Writes or reads a string.
inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& string) {
    if (!impl::fitsLength(string.size())) {
        return STATUS_BAD_VALUE;
    }
    return ::AParcel_writeString(parcel, string.data(), static_cast<int32_t>(string.size()));
}
inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* string) {
    return ::AParcel_readString(parcel, string, impl::allocateString);
}

// Writes or reads a structure that cannot be null: a word 1, then the structure.
template <typename P>
binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& structure) {
    const binder_status_t status = AParcel_writeInt32(parcel, 1);
    return status == STATUS_OK ? structure.writeToParcel(parcel) : status;
}
template <typename P>
binder_status_t AParcel_readParcelable(const AParcel* parcel, P* structure) {
    int32_t present = 0;
    const binder_status_t status = AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK) {
        return status;
    }
    return present == 0 ? STATUS_UNEXPECTED_NULL : structure->readFromParcel(parcel);
}

// Writes or reads a structure that may be missing: a word 1 and the structure, or a word 0.
template <typename P>
binder_status_t AParcel_writeNullableParcelable(AParcel* parcel,
                                                const std::optional<P>& structure) {
    return structure ? AParcel_writeParcelable(parcel, *structure) : AParcel_writeInt32(parcel, 0);
}
template <typename P>
binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, std::optional<P>* structure) {
    structure->reset();
    int32_t present = 0;
    const binder_status_t status = AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK || present == 0) {
        return status;
    }
    return structure->emplace().readFromParcel(parcel);
}

namespace impl {

// One element of a vector: null is allowed exactly where the element's type can hold it.
template <typename T>
binder_status_t writeElement(AParcel* parcel, const void* vectorData, std::size_t index) {
    const T& value = (*static_cast<const std::vector<T>*>(vectorData))[index];
    if constexpr (IsOptional<T>::value) {
        return AParcel_writeNullableData(parcel, value);
    } else {
        return AParcel_writeData(parcel, value);
    }
}

template <typename T>
binder_status_t readElement(const AParcel* parcel, void* vectorData, std::size_t index) {
    T* value = &(*static_cast<std::vector<T>*>(vectorData))[index];
    if constexpr (IsOptional<T>::value) {
        return AParcel_readNullableData(parcel, value);
    } else {
        return AParcel_readData(parcel, value);
    }
}

// What the elements of a vector are written as: enumerators as their numbers.
template <typename T, bool = std::is_enum_v<T>>
struct Stored {
    using Type = T;
};
template <typename T>
struct Stored<T, true> {
    using Type = std::underlying_type_t<T>;
};

}  // namespace impl

// Writes a vector: its length, then its elements.
template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<T>& vector) {
    using Stored = typename impl::Stored<T>::Type;
    if (!impl::fitsLength(vector.size())) {
        return STATUS_BAD_VALUE;
    }
    const auto length = static_cast<int32_t>(vector.size());
    if constexpr (std::is_same_v<Stored, bool>) {
        return AParcel_writeBoolArray(parcel, &vector, length, impl::getBool);
    } else if constexpr (!std::is_arithmetic_v<Stored>) {
        return AParcel_writeParcelableArray(parcel, &vector, length, impl::writeElement<T>);
    } else {
        // A vector without elements need not have an address; it is not a null array for that.
        static const Stored none{};
        const Stored* data =
            vector.empty() ? &none : reinterpret_cast<const Stored*>(vector.data());
        if constexpr (std::is_same_v<Stored, int32_t>) {
            return AParcel_writeInt32Array(parcel, data, length);
        } else if constexpr (std::is_same_v<Stored, uint32_t>) {
            return AParcel_writeUint32Array(parcel, data, length);
        } else if constexpr (std::is_same_v<Stored, int64_t>) {
            return AParcel_writeInt64Array(parcel, data, length);
        } else if constexpr (std::is_same_v<Stored, uint64_t>) {
            return AParcel_writeUint64Array(parcel, data, length);
        } else if constexpr (std::is_same_v<Stored, float>) {
            return AParcel_writeFloatArray(parcel, data, length);
        } else if constexpr (std::is_same_v<Stored, double>) {
            return AParcel_writeDoubleArray(parcel, data, length);
        } else if constexpr (std::is_same_v<Stored, char16_t>) {
            return AParcel_writeCharArray(parcel, data, length);
        } else {
            static_assert(sizeof(Stored) == 1, "no array of this type");
            return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(data), length);
        }
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
    } else if constexpr (std::is_same_v<Stored, uint32_t>) {
        return AParcel_readUint32Array(parcel, vector, impl::allocateVector<T, uint32_t>);
    } else if constexpr (std::is_same_v<Stored, int64_t>) {
        return AParcel_readInt64Array(parcel, vector, impl::allocateVector<T, int64_t>);
    } else if constexpr (std::is_same_v<Stored, uint64_t>) {
        return AParcel_readUint64Array(parcel, vector, impl::allocateVector<T, uint64_t>);
    } else if constexpr (std::is_same_v<Stored, float>) {
        return AParcel_readFloatArray(parcel, vector, impl::allocateVector<T, float>);
    } else if constexpr (std::is_same_v<Stored, double>) {
        return AParcel_readDoubleArray(parcel, vector, impl::allocateVector<T, double>);
    } else if constexpr (std::is_same_v<Stored, char16_t>) {
        return AParcel_readCharArray(parcel, vector, impl::allocateVector<T, char16_t>);
    } else if constexpr (std::is_arithmetic_v<Stored>) {
        static_assert(sizeof(Stored) == 1, "no array of this type");
        return AParcel_readByteArray(parcel, vector, impl::allocateVector<T, int8_t>);
    } else {
        return AParcel_readParcelableArray(parcel, vector, impl::allocateElements<T>,
                                           impl::readElement<T>);
    }
}

// Writes any value that cannot be null, and an interface, which can: generated code passes a null
// one on.
template <typename T>
binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
    using Stored = typename impl::Stored<T>::Type;
    if constexpr (std::is_same_v<Stored, bool>) {
        return AParcel_writeBool(parcel, value);
    } else if constexpr (std::is_same_v<Stored, int32_t>) {
        return AParcel_writeInt32(parcel, static_cast<int32_t>(value));
    } else if constexpr (std::is_same_v<Stored, uint32_t>) {
        return AParcel_writeUint32(parcel, static_cast<uint32_t>(value));
    } else if constexpr (std::is_same_v<Stored, int64_t>) {
        return AParcel_writeInt64(parcel, static_cast<int64_t>(value));
    } else if constexpr (std::is_same_v<Stored, uint64_t>) {
        return AParcel_writeUint64(parcel, static_cast<uint64_t>(value));
    } else if constexpr (std::is_same_v<Stored, float>) {
        return AParcel_writeFloat(parcel, value);
    } else if constexpr (std::is_same_v<Stored, double>) {
        return AParcel_writeDouble(parcel, value);
    } else if constexpr (std::is_same_v<Stored, char16_t>) {
        return AParcel_writeChar(parcel, value);
    } else if constexpr (std::is_arithmetic_v<Stored>) {
        static_assert(sizeof(Stored) == 1, "no value of this type");
        return AParcel_writeByte(parcel, static_cast<int8_t>(value));
    } else if constexpr (std::is_same_v<T, std::string>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (impl::IsVector<T>::value) {
        return AParcel_writeVector(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_writeRequiredStrongBinder(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::writeToParcel(parcel, value);
    } else {
        return AParcel_writeParcelable(parcel, value);
    }
}

// Reads any value that cannot be null, and an interface, which is null for a null reference and for
// an object of another interface: the implementation that is called has to look.
template <typename T>
binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
    if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> number{};
        const binder_status_t status = AParcel_readData(parcel, &number);
        if (status == STATUS_OK) {
            *value = static_cast<T>(number);
        }
        return status;
    } else if constexpr (std::is_same_v<T, bool>) {
        return AParcel_readBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_readInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, uint32_t>) {
        return AParcel_readUint32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_readInt64(parcel, value);
    } else if constexpr (std::is_same_v<T, uint64_t>) {
        return AParcel_readUint64(parcel, value);
    } else if constexpr (std::is_same_v<T, float>) {
        return AParcel_readFloat(parcel, value);
    } else if constexpr (std::is_same_v<T, double>) {
        return AParcel_readDouble(parcel, value);
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return AParcel_readChar(parcel, value);
    } else if constexpr (std::is_arithmetic_v<T>) {
        static_assert(sizeof(T) == 1, "no value of this type");
        return AParcel_readByte(parcel, reinterpret_cast<int8_t*>(value));
    } else if constexpr (std::is_same_v<T, std::string>) {
        return AParcel_readString(parcel, value);
    } else if constexpr (impl::IsVector<T>::value) {
        return AParcel_readVector(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_readRequiredStrongBinder(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::readFromParcel(parcel, value);
    } else {
        return AParcel_readParcelable(parcel, value);
    }
}

// Writes a value that may be null: a SpAIBinder, an interface, or a std::optional of a string, a
// vector or a structure.
template <typename T>
binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value) {
    if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_writeNullableStrongBinder(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::writeToParcel(parcel, value);
    } else {
        static_assert(impl::IsOptional<T>::value, "this type has no null");
        using Held = typename T::value_type;
        if constexpr (std::is_same_v<Held, std::string> || impl::IsVector<Held>::value) {
            // The length -1 is what says null.
            return value ? AParcel_writeData(parcel, *value) : AParcel_writeInt32(parcel, -1);
        } else {
            return AParcel_writeNullableParcelable(parcel, value);
        }
    }
}

// Reads a value that may be null; the types are those of AParcel_writeNullableData.
template <typename T>
binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value) {
    if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_readNullableStrongBinder(parcel, value);
    } else if constexpr (impl::IsInterface<T>::value) {
        return T::element_type::readFromParcel(parcel, value);
    } else {
        static_assert(impl::IsOptional<T>::value, "this type has no null");
        using Held = typename T::value_type;
        if constexpr (std::is_same_v<Held, std::string> || impl::IsVector<Held>::value) {
            value->reset();
            const int32_t start = AParcel_getDataPosition(parcel);
            int32_t length = 0;
            const binder_status_t status = AParcel_readInt32(parcel, &length);
            if (status != STATUS_OK || length == -1) {
                return status;
            }
            AParcel_setDataPosition(parcel, start);
            return AParcel_readData(parcel, &value->emplace());
        } else {
            return AParcel_readNullableParcelable(parcel, value);
        }
    }
}

// Strings and vectors that may be null.
inline binder_status_t AParcel_writeString(AParcel* parcel,
                                           const std::optional<std::string>& string) {
    return AParcel_writeNullableData(parcel, string);
}
inline binder_status_t AParcel_readString(const AParcel* parcel,
                                          std::optional<std::string>* string) {
    return AParcel_readNullableData(parcel, string);
}
template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::optional<std::vector<T>>& vector) {
    return AParcel_writeNullableData(parcel, vector);
}
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::optional<std::vector<T>>* vector) {
    return AParcel_readNullableData(parcel, vector);
}

}  // namespace ndk
