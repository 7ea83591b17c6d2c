// SPDX-License-Identifier: Apache-2.0
#pragma once

// Parcels: the bytes and objects that a call carries. Valid C and C++.
//
// A part of the platform's functions: those for what the interface compiler of this tree can
// generate (bool, int, long, enumerations, structures, interfaces, and arrays of bytes and of
// structures), and for whole parcels.
//
// Values lie one after the other, little-endian, each filled up to a multiple of four bytes. A
// parcel has one position, at which the next read or write happens and which moves behind what was
// read or written. A parcel belongs to one thread at a time.
//
// Unless a comment says otherwise: parcel is not null; writes return STATUS_OK, STATUS_BAD_VALUE
// for invalid arguments, STATUS_NO_MEMORY; reads return STATUS_OK, STATUS_NOT_ENOUGH_DATA when the
// value would end behind the parcel's end, STATUS_BAD_VALUE when the bytes are malformed,
// STATUS_NO_MEMORY when an allocator refuses. A failed read says nothing about the position.

#include <android/binder_status.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)
// NOLINTBEGIN(modernize-use-using): C has typedef alone

struct AIBinder;
typedef struct AIBinder AIBinder;

struct AParcel;
typedef struct AParcel AParcel;

// Ends a parcel and gives up its references to objects. parcel: may be null.
void AParcel_delete(AParcel* parcel);

// Returns a new, empty parcel, owned by the caller; null when there is no memory.
AParcel* AParcel_create(void);

// Moves the position. Behind the end nothing can be read or written; nothing can be written at a
// position that is not a multiple of 4.
// position: in bytes from the start, 0 or more; STATUS_BAD_VALUE otherwise.
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);

// Returns the position, in bytes from the start.
int32_t AParcel_getDataPosition(const AParcel* parcel);

// Returns the size in bytes.
int32_t AParcel_getDataSize(const AParcel* parcel);

// Replaces what the parcel holds by these bytes; the position is then 0.
// buffer: not null, len bytes.
binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len);

// Allocates memory for an array that is being read.
// arrayData: what the reading function was given; length: number of elements, or -1 for a null
// array; outBuffer: set to memory for length elements, which the callee owns (ignored if length is
// below 1). Structures are read one by one, and need not lie in memory in one piece.
// Return false to refuse.
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);
typedef bool (*AParcel_parcelableArrayAllocator)(void* arrayData, int32_t length);

// Write and read one structure. Return STATUS_OK, or an error that ends the writing or reading.
typedef binder_status_t (*AParcel_writeParcelableElement)(AParcel* parcel, const void* arrayData,
                                                          size_t index);
typedef binder_status_t (*AParcel_readParcelableElement)(const AParcel* parcel, void* arrayData,
                                                         size_t index);

// Writes a reference to an object. binder: null writes a null reference; otherwise the parcel keeps
// a strong reference.
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder);

// Reads a reference to an object.
// binder: set to the object with a new strong reference, owned by the caller; to null for a null
// reference.
// Returns STATUS_BAD_TYPE when no object was put there: bytes alone never become an object.
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder);

// Writes what a reply begins with.
// status: not null. One with EX_TRANSACTION_FAILED is not written: its own code is returned, to be
// returned in place of the reply.
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);

// Reads what a reply begins with.
// status: set to a new status, owned by the caller, only if STATUS_OK is returned.
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);

// Write one value. A bool takes four bytes.
binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value);

// Read one value. value: not null, set only if STATUS_OK is returned.
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);

// Write an array: its length, then its elements. Bytes lie one beside the other.
// arrayData: the bytes; may be null if length is 0. For structures it is handed to the function and
// may be anything. length: number of elements. elementWriter: must write at least four
// bytes for each.
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length);
binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter);

// Read an array. A length that needs more than the rest of the parcel, at four bytes for each
// structure, is refused with STATUS_NOT_ENOUGH_DATA before anything is allocated.
// arrayData: handed to the functions; allocator: not null, called once, before the others.
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator);
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader);

// NOLINTEND(modernize-use-using)
#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
