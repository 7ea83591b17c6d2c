// SPDX-License-Identifier: Apache-2.0
// The bytes of every structure of the interfaces, written and read, whole and damaged.

#include <aidl/vendor/orn/data/lumservice/DataRecommendation.h>
#include <aidl/vendor/orn/data/lumservice/DataStallParams.h>
#include <aidl/vendor/orn/data/lumservice/DubiousCellInfo.h>
#include <aidl/vendor/orn/data/lumservice/LumSdkType.h>
#include <aidl/vendor/orn/data/lumservice/Nr5gNflEntryType.h>
#include <aidl/vendor/orn/data/lumservice/PlmnId.h>
#include <aidl/vendor/orn/data/lumservice/Status.h>
#include <aidl/vendor/orn/data/lumservice/SubModeInfo.h>
#include <android/binder_auto_utils.h>
#include <android/binder_enums.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "tests/support/Hex.h"

using namespace aidl::vendor::orn::data::lumservice;
using Scs = DubiousCellInfo::Nr5gScsParams;

namespace {

::ndk::ScopedAParcel parcelOf(const std::vector<uint8_t>& bytes) {
    return ::ndk::ScopedAParcel(new AParcel(bytes, {}));
}

template <typename T>
std::string written(const T& value) {
    const ::ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(STATUS_OK, value.writeToParcel(parcel.get()));
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), AParcel_getDataPosition(parcel.get()));
    return toHex(parcel.get()->bytes());
}

// Reads a structure from these bytes alone. `value` keeps what was not read.
template <typename T>
binder_status_t readBytes(const std::string& text, T* value) {
    return value->readFromParcel(parcelOf(fromHex(text)).get());
}

// The value is written as these bytes, these bytes are read as the value, and without their last
// byte, or any number of last bytes, they are refused.
template <typename T>
void expectWire(const T& value, const std::string& text) {
    const std::vector<uint8_t> bytes = fromHex(text);
    EXPECT_EQ(toHex(bytes), written(value));

    const ::ndk::ScopedAParcel parcel = parcelOf(bytes);
    T read;
    EXPECT_NE(value, read) << "the test needs a value that is not the default";
    EXPECT_EQ(STATUS_OK, read.readFromParcel(parcel.get()));
    EXPECT_EQ(value, read);
    EXPECT_EQ(static_cast<int32_t>(bytes.size()), AParcel_getDataPosition(parcel.get()));

    for (size_t size = 0; size < bytes.size(); ++size) {
        const ::ndk::ScopedAParcel part = parcelOf({bytes.data(), bytes.data() + size});
        T ignored;
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, ignored.readFromParcel(part.get())) << size << " bytes";
    }
}

const PlmnId kPlmn{262, 1, false};

DubiousCellInfo cell() {
    return {kPlmn, 0x0123456789abcdef, 1, 2, 3, 4, Scs::make<Scs::spacing>(30)};
}

constexpr const char* kCell =
    "3c000000"                                      // 60 bytes in all
    "01000000 10000000 06010000 01000000 00000000"  // plmn: present, 16 bytes
    "efcdab89 67452301"                             // cellId
    "01000000 02000000 03000000 04000000"
    "01000000 01000000 1e000000";  // scs: present, tag 1, 30

constexpr const char* kStall =
    "20000000 02000000 01000000 03000000 04000000 05000000 06000000 07000000";

// An entry's bytes up to its array, the size word left to the caller.
constexpr const char* kEntryHead = "80a60900 4e000000 1e000000";

}  // namespace

TEST(Parcelable, EveryOtherStructure) {
    expectWire(DataRecommendation{1, -2}, "0c000000 01000000 feffffff");
    expectWire(DataStallParams{2, true, 3, 4, 5, 6, 7}, kStall);
    expectWire(PlmnId{310, 26, true}, "10000000 36010000 1a000000 01000000");
    expectWire(SubModeInfo{-1, 5}, "0c000000 ffffffff 05000000");
    expectWire(Nr5gNflEntryType{632448, 78, 30, {kPlmn, {310, 260, true}}},
               std::string("3c000000") + kEntryHead +
                   "02000000"
                   "01000000 10000000 06010000 01000000 00000000"
                   "01000000 10000000 36010000 04010000 01000000");
    expectWire(Nr5gNflEntryType{632448, 78, 30, {}},
               std::string("14000000") + kEntryHead + "00000000");
    expectWire(Scs::make<Scs::unknown>(true), "00000000 01000000");
    expectWire(Scs::make<Scs::spacing>(-120), "01000000 88ffffff");
}

TEST(Parcelable, DubiousCellInfo) {
    expectWire(cell(), kCell);
}

TEST(Parcelable, AsAnArgumentComesAWordThatItIsThere) {
    const ::ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(STATUS_OK, ::ndk::AParcel_writeData(parcel.get(), cell()));
    // The 64-bit value now lies at 28, not a multiple of 8.
    EXPECT_EQ(toHex(fromHex(std::string("01000000") + kCell)), toHex(parcel.get()->bytes()));
    EXPECT_EQ(STATUS_OK, AParcel_setDataPosition(parcel.get(), 0));
    DubiousCellInfo read;
    EXPECT_EQ(STATUS_OK, ::ndk::AParcel_readData(parcel.get(), &read));
    EXPECT_EQ(cell(), read);
}

TEST(Parcelable, NotThere) {
    const ::ndk::ScopedAParcel parcel = parcelOf(fromHex(std::string("00000000") + kCell));
    DubiousCellInfo read;
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ::ndk::AParcel_readData(parcel.get(), &read));
    // An element, and a field: the first and the last one.
    Nr5gNflEntryType entry;
    EXPECT_EQ(STATUS_UNEXPECTED_NULL,
              readBytes(std::string("18000000") + kEntryHead + "01000000 00000000", &entry));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, readBytes("0c000000 00000000 00000000", &read));
    std::string text = kCell;
    text.replace(text.size() - 26, 8, "00000000");
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, readBytes(text, &read));
}

TEST(Parcelable, SizeBelowFour) {
    for (const char* size :
         {"00000000", "01000000", "02000000", "03000000", "ffffffff", "00000080"}) {
        DataRecommendation read;
        EXPECT_EQ(STATUS_BAD_VALUE, readBytes(std::string(size) + "01000000 02000000", &read))
            << size;
        EXPECT_EQ(DataRecommendation(), read);
    }
}

// The fields that are there are read, whatever the size says; what comes next is not there.
TEST(Parcelable, SizeLongerThanTheParcel) {
    for (const char* size : {"10000000", "0d000000", "fcffff7f", "ffffff7f"}) {
        const ::ndk::ScopedAParcel parcel =
            parcelOf(fromHex(std::string(size) + "01000000 02000000"));
        DataRecommendation read;
        EXPECT_EQ(STATUS_OK, read.readFromParcel(parcel.get())) << size;
        EXPECT_EQ((DataRecommendation{1, 2}), read);
        int32_t next = 0;
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt32(parcel.get(), &next)) << size;

        DataRecommendation cut;
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, readBytes(std::string(size) + "01000000", &cut)) << size;
        EXPECT_EQ((DataRecommendation{1, 0}), cut);
    }
}

TEST(Parcelable, SizeThatEndsBeyondAllPositions) {
    const struct {
        const char* size;
        binder_status_t status;
        int32_t subscription;
    } cases[] = {
        {"fbffff7f", STATUS_OK, 1},  // ends at 2^31 - 1, the last position that there is
        {"fcffff7f", STATUS_BAD_VALUE, 0},
        {"ffffff7f", STATUS_BAD_VALUE, 0},
    };
    for (const auto& one : cases) {
        const ::ndk::ScopedAParcel parcel =
            parcelOf(fromHex(std::string("00000000") + one.size + "01000000 02000000"));
        EXPECT_EQ(STATUS_OK, AParcel_setDataPosition(parcel.get(), 4));
        DataRecommendation read;
        EXPECT_EQ(one.status, read.readFromParcel(parcel.get())) << one.size;
        EXPECT_EQ(one.subscription, read.subscription) << one.size;
    }
}

TEST(Parcelable, LongerBodyIsSkippedAndShorterOneLeavesDefaults) {
    const std::pair<std::string, DataStallParams> rows[] = {
        {"04000000", {}},
        {"08000000 02000000", {2}},
        {"0c000000 02000000 01000000", {2, true}},
        {"1c000000 02000000 01000000 03000000 04000000 05000000 06000000", {2, true, 3, 4, 5, 6}},
        {"28000000 02000000 01000000 03000000 04000000 05000000 06000000 07000000 aaaaaaaa bbbbbbbb",
         {2, true, 3, 4, 5, 6, 7}},
    };
    for (const auto& [text, expected] : rows) {
        const ::ndk::ScopedAParcel parcel = parcelOf(fromHex(text + " 2a000000"));
        DataStallParams read;
        EXPECT_EQ(STATUS_OK, read.readFromParcel(parcel.get()));
        EXPECT_EQ(expected, read) << text;
        int32_t next = 0;
        EXPECT_EQ(STATUS_OK, AParcel_readInt32(parcel.get(), &next));
        EXPECT_EQ(42, next) << text;
    }
}

TEST(Parcelable, BodyThatEndsInsideAField) {
    for (const char* size : {"05000000", "06000000", "07000000"}) {
        DataRecommendation read;
        EXPECT_EQ(STATUS_OK, readBytes(std::string(size) + "01000000 02000000", &read)) << size;
        EXPECT_EQ((DataRecommendation{1, 0}), read);
    }
    // The structure around it goes on where the broken one says that it ends.
    DubiousCellInfo read;
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA,
              readBytes("14000000 01000000 05000000 06010000 01000000", &read));
}

TEST(Union, HoldsItsFirstMemberToBeginWith) {
    Scs value;
    EXPECT_EQ(Scs::Tag::unknown, value.getTag());
    EXPECT_FALSE(value.get<Scs::unknown>());
    value.set<Scs::spacing>(15);
    EXPECT_EQ(Scs::Tag::spacing, value.getTag());
    EXPECT_EQ(15, value.get<Scs::spacing>());
    value.get<Scs::spacing>() = 60;
    EXPECT_EQ(Scs::make<Scs::spacing>(60), value);
}

TEST(Union, UnknownTag) {
    for (const char* tag : {"02000000", "ffffffff", "00000080", "ffffff7f", "00000100"}) {
        Scs read = Scs::make<Scs::spacing>(15);
        EXPECT_EQ(STATUS_BAD_VALUE, readBytes(std::string(tag) + "01000000", &read)) << tag;
        EXPECT_EQ(Scs::make<Scs::spacing>(15), read);
    }
}

TEST(Text, Structures) {
    EXPECT_EQ(
        "DubiousCellInfo{plmn: PlmnId{mcc: 262, mnc: 1, threeDigitMnc: false}, cellId: 81985529216486895, trackingAreaCode: 1, arfcn: 2, physicalCellId: 3, cause: 4, scs: Nr5gScsParams{spacing: 30}}",
        cell().toString());
    EXPECT_EQ("Nr5gNflEntryType{arfcn: 0, band: 0, subcarrierSpacing: 0, plmns: []}",
              Nr5gNflEntryType().toString());
    EXPECT_EQ(
        "Nr5gNflEntryType{arfcn: 0, band: 0, subcarrierSpacing: 0, plmns: [PlmnId{mcc: 1, mnc: 2, threeDigitMnc: true}, PlmnId{mcc: 0, mnc: 0, threeDigitMnc: false}]}",
        (Nr5gNflEntryType{0, 0, 0, {{1, 2, true}, {}}}).toString());
    EXPECT_EQ("Nr5gScsParams{unknown: true}", Scs::make<Scs::unknown>(true).toString());
}

TEST(Order, GoesByTheFirstFieldThatDiffers) {
    const PlmnId small{1, 9, true};
    const PlmnId large{2, 0, false};
    EXPECT_TRUE(small < large && small <= large && small != large);
    EXPECT_FALSE(small > large || small >= large || small == large);
    EXPECT_TRUE(small <= small && small >= small && small == small);
    EXPECT_FALSE(small < small || small > small || small != small);
    EXPECT_TRUE((PlmnId{1, 1, false} < PlmnId{1, 1, true}));
    EXPECT_TRUE(Scs::make<Scs::unknown>(true) < Scs::make<Scs::spacing>(-1));
}

TEST(Enumeration, ValuesAndText) {
    std::vector<int32_t> values;
    for (const LumSdkType type : ::ndk::enum_range<LumSdkType>()) {
        values.push_back(static_cast<int32_t>(type));
    }
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}), values);
    EXPECT_EQ(5, static_cast<int32_t>(LumSdkType::SDF));
    EXPECT_EQ("SDF", toString(LumSdkType::SDF));
    EXPECT_EQ("FEATURE_11", toString(LumSdkType::FEATURE_11));
    EXPECT_EQ("12", toString(static_cast<LumSdkType>(12)));
    EXPECT_EQ("-1", toString(static_cast<LumSdkType>(-1)));
    EXPECT_EQ("SUCCESS", toString(Status::SUCCESS));
}
