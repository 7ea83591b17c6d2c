// SPDX-License-Identifier: Apache-2.0
// What texts, bytes and statuses look like in a parcel, worked out by hand; that they read back;
// and that a parcel that ends anywhere within them gives an error. Of numbers, structures and
// objects that is said in tests/aidl.
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

Value bytes(const char* name, const std::vector<uint8_t>& value, const char* bytes) {
    return {name, [=](AParcel* parcel) { return ndk::AParcel_writeVector(parcel, value); }, bytes,
            [=](const AParcel* parcel, bool* same) {
                std::vector<uint8_t> got;
                const binder_status_t status = ndk::AParcel_readVector(parcel, &got);
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

std::vector<Value> values() {
    return {
        text("StringEmpty", "", "00 00 00 00 00 00 00 00"),
        text("StringOdd", "a", "01 00 00 00 61 00 00 00"),
        text("StringEven", "ab", "02 00 00 00 61 00 62 00 00 00 00 00"),
        text("StringWide", "\xC3\xA4\xF0\x9F\x98\x80", "03 00 00 00 E4 00 3D D8 00 DE 00 00"),

        bytes("BytesNone", {}, "00 00 00 00"),
        bytes("Bytes3", {1, 2, 3}, "03 00 00 00 01 02 03 00"),
        bytes("Bytes4", {1, 2, 3, 4}, "04 00 00 00 01 02 03 04"),
        bytes("Bytes5", {1, 0xFE, 3, 4, 5}, "05 00 00 00 01 FE 03 04 05 00 00 00"),

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
