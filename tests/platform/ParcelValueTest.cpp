// SPDX-License-Identifier: Apache-2.0
// What every kind of value looks like in a parcel, worked out by hand; that it reads back; and that
// a parcel that ends anywhere within it gives an error.
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "tests/support/Hex.h"

namespace {

using ndk::ScopedAStatus;

// One value: how it is written, its bytes, and how it is read (true if it is what was written).
struct Value {
    const char* name;
    std::function<binder_status_t(AParcel*)> write;
    const char* bytes;
    std::function<binder_status_t(const AParcel*, bool* same)> read;
};

// A value that the C functions carry.
template <typename T>
Value scalar(const char* name, binder_status_t (*write)(AParcel*, T),
             binder_status_t (*read)(const AParcel*, T*), T value, const char* bytes) {
    return {name, [=](AParcel* parcel) { return write(parcel, value); }, bytes,
            [=](const AParcel* parcel, bool* same) {
                T got{};
                const binder_status_t status = read(parcel, &got);
                *same = got == value;
                return status;
            }};
}

// A value that the C++ functions carry.
template <typename T>
Value data(const char* name, T value, const char* bytes) {
    return {name, [=](AParcel* parcel) { return ndk::AParcel_writeData(parcel, value); }, bytes,
            [=](const AParcel* parcel, bool* same) {
                T got{};
                const binder_status_t status = ndk::AParcel_readData(parcel, &got);
                *same = got == value;
                return status;
            }};
}

// A text, which descriptors and messages are.
Value text(const char* name, const std::string& value, const char* bytes) {
    return {name, [=](AParcel* parcel) { return parcel->writeString(value); }, bytes,
            [=](const AParcel* parcel, bool* same) {
                std::string got;
                const binder_status_t status = parcel->readString(&got);
                *same = got == value;
                return status;
            }};
}

Value status(const char* name, const std::function<ScopedAStatus()>& make, const char* bytes) {
    return {name, [=](AParcel* parcel) { return AParcel_writeStatusHeader(parcel, make().get()); },
            bytes,
            [=](const AParcel* parcel, bool* same) {
                ScopedAStatus got;
                const binder_status_t result = AParcel_readStatusHeader(parcel, got.getR());
                *same = got.get() != nullptr && got.getDescription() == make().getDescription();
                return result;
            }};
}

enum class Colour : int32_t { RED = 1, BLUE = -2 };

struct Pair {
    int32_t first = 0;
    bool second = false;
    bool operator==(const Pair& other) const {
        return first == other.first && second == other.second;
    }
    binder_status_t writeToParcel(AParcel* parcel) const {
        const binder_status_t status = AParcel_writeInt32(parcel, first);
        return status == STATUS_OK ? AParcel_writeBool(parcel, second) : status;
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        const binder_status_t status = AParcel_readInt32(parcel, &first);
        return status == STATUS_OK ? AParcel_readBool(parcel, &second) : status;
    }
};

std::vector<Value> values() {
    return {
        scalar<int32_t>("Int32", AParcel_writeInt32, AParcel_readInt32, -2, "FE FF FF FF"),
        scalar<int64_t>("Int64", AParcel_writeInt64, AParcel_readInt64, -2,
                        "FE FF FF FF FF FF FF FF"),
        scalar<bool>("True", AParcel_writeBool, AParcel_readBool, true, "01 00 00 00"),
        scalar<bool>("False", AParcel_writeBool, AParcel_readBool, false, "00 00 00 00"),
        data<Colour>("Enumerator", Colour::BLUE, "FE FF FF FF"),

        text("StringEmpty", "", "00 00 00 00 00 00 00 00"),
        text("StringOdd", "a", "01 00 00 00 61 00 00 00"),
        text("StringEven", "ab", "02 00 00 00 61 00 62 00 00 00 00 00"),
        text("StringWide", "\xC3\xA4\xF0\x9F\x98\x80", "03 00 00 00 E4 00 3D D8 00 DE 00 00"),

        data<std::vector<int8_t>>("ByteArray", {1, -2, 3, 4, 5},
                                  "05 00 00 00 01 FE 03 04 05 00 00 00"),
        data<std::vector<uint8_t>>("ByteArray3", {1, 2, 3}, "03 00 00 00 01 02 03 00"),
        data<std::vector<uint8_t>>("ByteArray4", {1, 2, 3, 4}, "04 00 00 00 01 02 03 04"),
        data<std::vector<uint8_t>>("ByteArrayEmpty", {}, "00 00 00 00"),

        data<Pair>("Structure", {-2, true}, "01 00 00 00 FE FF FF FF 01 00 00 00"),
        data<std::vector<Pair>>("StructureArray", {{1, true}, {2, false}},
                                "02 00 00 00"
                                "01 00 00 00 01 00 00 00 01 00 00 00"
                                "01 00 00 00 02 00 00 00 00 00 00 00"),

        // Type, flags, what names the object (8 bytes), cookie (8 bytes); stability.
        {"BinderNull", [](AParcel* parcel) { return AParcel_writeStrongBinder(parcel, nullptr); },
         "85 2A 62 73 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         [](const AParcel* parcel, bool* same) {
             AIBinder* binder = nullptr;
             const binder_status_t result = AParcel_readStrongBinder(parcel, &binder);
             *same = binder == nullptr;
             return result;
         }},

        status("StatusOk", ScopedAStatus::ok, "00 00 00 00"),
        // Code, message, size of a trace of calls (none).
        status(
            "StatusException",
            [] { return ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, "no"); },
            "FF FF FF FF 02 00 00 00 6E 00 6F 00 00 00 00 00 00 00 00 00"),
        status(
            "StatusWithoutMessage",
            [] { return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE); },
            "FB FF FF FF 00 00 00 00 00 00 00 00 00 00 00 00"),
        status(
            "StatusServiceSpecific",
            [] { return ScopedAStatus::fromServiceSpecificErrorWithMessage(-42, "x"); },
            "F8 FF FF FF 01 00 00 00 78 00 00 00 00 00 00 00 D6 FF FF FF"),
        status(
            "StatusParcelable",
            [] { return ScopedAStatus::fromExceptionCodeWithMessage(EX_PARCELABLE, "x"); },
            "F7 FF FF FF 01 00 00 00 78 00 00 00 00 00 00 00 00 00 00 00"),
    };
}

class ParcelValue : public testing::TestWithParam<Value> {};

TEST_P(ParcelValue, IsWrittenAsTheseBytesBetweenOthers) {
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(&parcel, 0x11111111));
    ASSERT_EQ(STATUS_OK, GetParam().write(&parcel));
    EXPECT_EQ(AParcel_getDataSize(&parcel), AParcel_getDataPosition(&parcel));
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(&parcel, 0x22222222));
    EXPECT_EQ("11 11 11 11 " + toHex(fromHex(GetParam().bytes)) + " 22 22 22 22",
              toHex(parcel.bytes()));
    EXPECT_TRUE(parcel.objects().empty());
}

TEST_P(ParcelValue, ReadsBack) {
    const AParcel parcel(fromHex(GetParam().bytes), {});
    bool same = false;
    ASSERT_EQ(STATUS_OK, GetParam().read(&parcel, &same));
    EXPECT_TRUE(same);
    EXPECT_EQ(AParcel_getDataSize(&parcel), AParcel_getDataPosition(&parcel));
}

TEST_P(ParcelValue, IsAnErrorWhereverTheParcelEndsWithinIt) {
    const std::vector<uint8_t> bytes = fromHex(GetParam().bytes);
    for (size_t size = 0; size < bytes.size(); ++size) {
        // A copy of just that size, so that a read behind its end does not go unnoticed.
        const AParcel parcel(
            std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)), {});
        bool same = false;
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, GetParam().read(&parcel, &same)) << size;
    }
}

TEST_P(ParcelValue, SurvivesAnyByteBeingWrong) {
    const std::vector<uint8_t> bytes = fromHex(GetParam().bytes);
    for (size_t at = 0; at < bytes.size(); ++at) {
        for (const uint8_t wrong : fromHex("00 01 7F 80 FE FF")) {
            std::vector<uint8_t> changed = bytes;
            changed[at] = wrong;
            const AParcel parcel(changed, {});
            bool same = false;
            // Error or another value: either is right, as long as the read stays inside.
            GetParam().read(&parcel, &same);
            EXPECT_LE(parcel.position(), changed.size());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, ParcelValue, testing::ValuesIn(values()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
