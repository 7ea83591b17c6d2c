// SPDX-License-Identifier: Apache-2.0
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "tests/support/Hex.h"

namespace {

using ndk::ScopedAStatus;

// ---- Arrays and their lengths

int allocations = 0;

bool allocateNoBytes(void* /*arrayData*/, int32_t /*length*/, int8_t** /*outBuffer*/) {
    ++allocations;
    return false;
}
bool allocateNoElements(void* /*arrayData*/, int32_t /*length*/) {
    ++allocations;
    return false;
}

TEST(ParcelArray, LengthThatDoesNotFitIsRefusedBeforeAnythingIsAllocated) {
    for (const int32_t elementSize : {1, 4}) {
        // Reads an array of bytes, or of structures, from a length and 64 bytes behind it.
        const auto read = [&](int32_t length) {
            std::vector<uint8_t> bytes(4 + 64);
            memcpy(bytes.data(), &length, sizeof length);
            const AParcel parcel(bytes, {});
            allocations = 0;
            return elementSize == 1
                       ? AParcel_readByteArray(&parcel, nullptr, allocateNoBytes)
                       : AParcel_readParcelableArray(&parcel, nullptr, allocateNoElements, nullptr);
        };
        const int32_t fitting = 64 / elementSize;
        for (const int32_t length : {-2, INT32_MIN}) {
            EXPECT_EQ(STATUS_BAD_VALUE, read(length)) << length;
            EXPECT_EQ(0, allocations);
        }
        for (const int32_t length : {INT32_MAX, INT32_MAX / 4 + 1, 1 << 30, fitting + 1}) {
            EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, read(length)) << length;
            EXPECT_EQ(0, allocations);
        }
        // These get as far as the allocator, which refuses: the longest that fits, and null.
        for (const int32_t length : {fitting, -1}) {
            EXPECT_EQ(STATUS_NO_MEMORY, read(length)) << length;
            EXPECT_EQ(1, allocations);
        }
    }
}

// ---- Texts

// Reads a text: itself, or the error.
std::string readText(const std::string& hex) {
    std::string text;
    const binder_status_t status = AParcel(fromHex(hex), {}).readString(&text);
    return status == STATUS_OK ? text : "error " + std::to_string(status);
}

TEST(ParcelString, LengthThatDoesNotFitIsRefused) {
    const std::string rest = repeatHex("00", 64);
    for (const char* length : {"FF FF FF 7F", "FE FF FF 7F", "00 00 00 40", "20 00 00 00"}) {
        EXPECT_EQ("error -61", readText(length + rest)) << length;
    }
    EXPECT_EQ("error -22", readText("FE FF FF FF" + rest));
}

TEST(ParcelString, MustBeUtf16AndEndInZero) {
    EXPECT_EQ("a", readText("01 00 00 00 61 00 00 00"));
    EXPECT_EQ("", readText("FF FF FF FF"));  // null
    for (const char* units : {"61 00 62 00", "61 00 00 62", "00 D8 00 00"}) {
        EXPECT_EQ("error -22", readText(std::string("01 00 00 00") + units)) << units;
    }
}

TEST(ParcelString, MustBeUtf8) {
    AParcel parcel;
    EXPECT_EQ(STATUS_BAD_VALUE, parcel.writeString("\xC0\x80"));
    EXPECT_EQ(STATUS_BAD_VALUE, parcel.writeString("a\xE2\x82"));
    EXPECT_TRUE(parcel.bytes().empty());
}

// ---- Arrays through the C functions

TEST(ParcelArray, LengthAndAddressMustFit) {
    AParcel parcel;
    const int8_t byte = 1;
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeByteArray(&parcel, &byte, -1));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeByteArray(&parcel, nullptr, 1));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeParcelableArray(&parcel, nullptr, -1, nullptr));
    EXPECT_TRUE(parcel.bytes().empty());
    EXPECT_EQ(STATUS_OK, AParcel_writeByteArray(&parcel, nullptr, 0));
    EXPECT_EQ("00 00 00 00", toHex(parcel.bytes()));
}

TEST(ParcelArray, FailureOfAnElementEndsIt) {
    AParcel parcel;
    int written = 0;
    EXPECT_EQ(
        STATUS_DEAD_OBJECT,
        AParcel_writeParcelableArray(
            &parcel, &written, 5, [](AParcel*, const void* data, size_t index) -> binder_status_t {
                ++*static_cast<int*>(const_cast<void*>(data));
                return index == 2 ? STATUS_DEAD_OBJECT : STATUS_OK;
            }));
    EXPECT_EQ(3, written);

    const AParcel from(fromHex("03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"), {});
    int read = 0;
    EXPECT_EQ(STATUS_BAD_TYPE, AParcel_readParcelableArray(
                                   &from, &read, [](void*, int32_t) { return true; },
                                   [](const AParcel*, void* data, size_t index) -> binder_status_t {
                                       ++*static_cast<int*>(data);
                                       return index == 1 ? STATUS_BAD_TYPE : STATUS_OK;
                                   }));
    EXPECT_EQ(2, read);
}

TEST(ParcelArray, VectorsRefuseNull) {
    struct Structure {
        binder_status_t readFromParcel(const AParcel* /*parcel*/) { return STATUS_OK; }
    };
    const AParcel parcel(fromHex("FF FF FF FF FF FF FF FF"), {});
    std::vector<uint8_t> bytes;
    std::vector<Structure> structures;
    EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_readVector(&parcel, &bytes));
    EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_readVector(&parcel, &structures));
}

TEST(ParcelScalar, AnyBoolBut0IsTrue) {
    const AParcel parcel(fromHex("00 00 00 80"), {});
    bool flag = false;
    EXPECT_EQ(STATUS_OK, AParcel_readBool(&parcel, &flag));
    EXPECT_TRUE(flag);
}

// ---- Statuses

TEST(ParcelStatus, FailedTransactionIsReturnedInPlaceOfTheReply) {
    AParcel parcel;
    const auto status = ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_EQ(STATUS_DEAD_OBJECT, AParcel_writeStatusHeader(&parcel, status.get()));
    EXPECT_TRUE(parcel.bytes().empty());
}

TEST(ParcelStatus, WhatIsReadStatesItselfAndLeavesTheRest) {
    const std::string rest = " EE EE EE EE";
    const std::string block = "01 01 01 01";
    const std::string unknown =
        "Status(-129, EX_TRANSACTION_FAILED): 'STATUS_FAILED_TRANSACTION: '";
    const std::vector<std::pair<std::string, std::string>> statuses = {
        // Message null, a trace of 8 bytes, then the service's number.
        {"F8 FF FF FF FF FF FF FF 08 00 00 00" + block + "05 00 00 00",
         "Status(-8, EX_SERVICE_SPECIFIC): '5: '"},
        // A structure of 8 bytes.
        {"F7 FF FF FF FF FF FF FF 00 00 00 00 08 00 00 00" + block,
         "Status(-9, EX_PARCELABLE): ''"},
        // Codes that nobody knows.
        {"05 00 00 00 FF FF FF FF 00 00 00 00", unknown},
        {"7F FF FF FF FF FF FF FF 00 00 00 00", unknown},
        // Traces of too many, of -2 and of INT32_MIN bytes.
        {"FF FF FF FF FF FF FF FF 05 00 00 00", "error -61"},
        {"FF FF FF FF FF FF FF FF FF FF FF 7F", "error -61"},
        {"FF FF FF FF FF FF FF FF FE FF FF FF", "error -22"},
        {"FF FF FF FF FF FF FF FF 00 00 00 80", "error -22"},
    };
    for (const auto& [bytes, expected] : statuses) {
        const bool wellFormed = expected.find("error -") != 0;
        const AParcel parcel(fromHex(bytes + (wellFormed ? rest : "")), {});
        ScopedAStatus status;
        const binder_status_t result = AParcel_readStatusHeader(&parcel, status.getR());
        EXPECT_EQ(wellFormed, status.get() != nullptr) << bytes;
        EXPECT_EQ(expected,
                  result == STATUS_OK ? status.getDescription() : "error " + std::to_string(result))
            << bytes;
        if (wellFormed) {
            EXPECT_EQ(fromHex(bytes).size(), parcel.position()) << bytes;
        }
    }
}

// ---- Position

TEST(ParcelPosition, NothingIsReadOrWrittenBehindTheEndOrWrittenBesideTheGrid) {
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, AParcel_writeInt64(&parcel, 0));
    for (const int32_t position : {1, 2, 3, 5, 9, 12, INT32_MAX - 3, INT32_MAX}) {
        ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(&parcel, position));
        EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeInt32(&parcel, -1));
        EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeStrongBinder(&parcel, nullptr));
        if (position < 8) continue;
        int32_t value = 0;
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt32(&parcel, &value));
        AIBinder* binder = nullptr;
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readStrongBinder(&parcel, &binder));
    }
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_setDataPosition(&parcel, -1));
    EXPECT_EQ(INT32_MAX, AParcel_getDataPosition(&parcel));
    EXPECT_EQ("00 00 00 00 00 00 00 00", toHex(parcel.bytes()));
}

TEST(ParcelPosition, WritingBackReplacesAndMayGrow) {
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, AParcel_writeInt64(&parcel, -1));
    ASSERT_EQ(STATUS_OK, AParcel_setDataPosition(&parcel, 0));
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(&parcel, 8));
    EXPECT_EQ(4, AParcel_getDataPosition(&parcel));
    EXPECT_EQ("08 00 00 00 FF FF FF FF", toHex(parcel.bytes()));
    // Across the end; the padding becomes zero.
    const int8_t byte = 7;
    ASSERT_EQ(STATUS_OK, AParcel_writeByteArray(&parcel, &byte, 1));
    EXPECT_EQ("08 00 00 00 01 00 00 00 07 00 00 00", toHex(parcel.bytes()));
}

// ---- The beginning of a call

// Strict mode, work source, "VNDR", then the name.
const char* const kToken =
    "00 00 00 80 FF FF FF FF 52 44 4E 56 03 00 00 00 61 00 2E 00 62 00 00 00";

TEST(ParcelToken, IsWrittenAsTheseBytesAndRecognised) {
    AParcel parcel;
    EXPECT_EQ(STATUS_OK, parcel.writeInterfaceToken("a.b"));
    EXPECT_EQ(kToken, toHex(parcel.bytes()));
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(&parcel, 7));
    parcel.setPosition(0);
    EXPECT_TRUE(parcel.checkInterfaceToken("a.b"));
    EXPECT_EQ(24U, parcel.position());
}

bool isToken(const std::vector<uint8_t>& bytes, const std::string& descriptor = "a.b") {
    const AParcel parcel(bytes, {});
    return parcel.checkInterfaceToken(descriptor);
}

TEST(ParcelToken, OfAnotherInterfaceOrPartitionOrCutShortIsNone) {
    const std::vector<uint8_t> bytes = fromHex(kToken);
    for (const char* descriptor : {"", "a", "a.", "a.c", "a.bc", "A.b"}) {
        EXPECT_FALSE(isToken(bytes, descriptor)) << descriptor;
    }
    for (const char* header : {"54 53 59 53", "4F 43 45 52", "00 00 00 00"}) {
        std::vector<uint8_t> changed = bytes;
        const std::vector<uint8_t> other = fromHex(header);
        std::copy(other.begin(), other.end(), changed.begin() + 8);
        EXPECT_FALSE(isToken(changed)) << header;
    }
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(isToken({bytes.data(), bytes.data() + size})) << size;
    }
    EXPECT_FALSE(isToken(fromHex("00 00 00 80 FF FF FF FF 52 44 4E 56 FF FF FF FF"), ""));
}

TEST(ParcelToken, StrictModeAndWorkSourceAreTheCallersOwn) {
    std::vector<uint8_t> bytes = fromHex(kToken);
    for (size_t i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(17 * i);
    EXPECT_TRUE(isToken(bytes));
}

}  // namespace
