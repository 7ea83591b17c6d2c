// SPDX-License-Identifier: Apache-2.0
// Objects in parcels: their bytes, who keeps them, and that nothing but the list of objects decides
// what is one.
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "tests/platform/CountedObject.h"
#include "tests/platform/NoLink.h"
#include "tests/support/Hex.h"

namespace {

using ndk::SpAIBinder;

// Type "sb*", flags, 8 bytes of name and 8 of cookie, stability.
const char* const kLocal =
    "85 2A 62 73 13 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00";
const char* const kRemote =
    "85 2A 68 73 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00";
const char* const kNull =
    "85 2A 62 73 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

std::string withStability(std::string entry, const char* stability) {
    return entry.replace(entry.size() - 11, 11, stability);
}

int32_t references(const SpAIBinder& binder) {
    return AIBinder_debugGetRefCount(binder.get());
}

// Reads an object that must be there; its status otherwise.
std::pair<binder_status_t, SpAIBinder> readAt(const AParcel& parcel, size_t position) {
    parcel.setPosition(position);
    SpAIBinder binder;
    const binder_status_t status = AParcel_readStrongBinder(&parcel, binder.getR());
    return {status, binder};
}

// A received parcel: the bytes, and the object, if there is one, at that offset.
AParcel received(const std::string& hex, const SpAIBinder& binder = nullptr, size_t offset = 0) {
    std::vector<AParcel::Object> objects;
    if (binder.get() != nullptr) {
        objects.push_back({offset, refTo(binder.get())});
    }
    return AParcel(fromHex(hex), std::move(objects));
}

class ParcelObject : public testing::Test {
  protected:
    int mEnded = 0;
    SpAIBinder mBinder = makeCounted(&mEnded);
};

TEST_F(ParcelObject, LocalOneIsWrittenAsTheseBytes) {
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(&parcel, 7));
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&parcel, mBinder.get()));
    EXPECT_EQ(std::string("07 00 00 00 ") + kLocal, toHex(parcel.bytes()));
    ASSERT_EQ(1U, parcel.objects().size());
    EXPECT_EQ(4U, parcel.objects()[0].offset);
    EXPECT_EQ(mBinder.get(), parcel.objects()[0].binder.get());
}

TEST_F(ParcelObject, RemoteOneIsWrittenAsTheseBytesAndReadBack) {
    const SpAIBinder proxy(new RemoteBinder(std::make_shared<NoLink>(), 77));
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&parcel, proxy.get()));
    EXPECT_EQ(kRemote, toHex(parcel.bytes()));
    ASSERT_EQ(1U, parcel.objects().size());
    const auto [status, binder] = readAt(parcel, 0);
    EXPECT_EQ(STATUS_OK, status);
    EXPECT_EQ(proxy, binder);
}

TEST_F(ParcelObject, ParcelKeepsItUntilItIsEmptiedOrEnds) {
    AParcel* const parcel = AParcel_create();
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(parcel, mBinder.get()));
    EXPECT_EQ(2, references(mBinder));
    const uint8_t bytes[4] = {};
    ASSERT_EQ(STATUS_OK, AParcel_unmarshal(parcel, bytes, sizeof bytes));
    EXPECT_EQ(1, references(mBinder));
    EXPECT_TRUE(parcel->objects().empty());
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(parcel, mBinder.get()));
    mBinder.set(nullptr);
    EXPECT_EQ(0, mEnded);
    AParcel_delete(parcel);
    EXPECT_EQ(1, mEnded);
}

TEST_F(ParcelObject, EveryReadGivesAReferenceOfItsOwn) {
    const AParcel parcel = received(kLocal, mBinder);
    EXPECT_EQ(2, references(mBinder));
    {
        const auto first = readAt(parcel, 0);
        const auto second = readAt(parcel, 0);
        EXPECT_EQ(STATUS_OK, first.first);
        EXPECT_EQ(mBinder, first.second);
        EXPECT_EQ(mBinder, second.second);
        EXPECT_EQ(4, references(mBinder));
        EXPECT_EQ(28U, parcel.position());
    }
    EXPECT_EQ(2, references(mBinder));
}

TEST_F(ParcelObject, BytesAloneNeverBecomeOne) {
    // The last ones with a name, as a process that knows its own addresses or the numbers of
    // others would forge it.
    for (const char* bytes :
         {kLocal, kRemote,
          "85 2A 62 73 13 01 00 00 10 20 30 40 50 60 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
          "85 2A 62 73 13 01 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00",
          "85 2A 68 73 13 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00",
          "85 2A 68 73 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
          "85 2A 62 77 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
          "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}) {
        const AParcel parcel = received(bytes);
        AIBinder* binder = mBinder.get();
        EXPECT_EQ(STATUS_BAD_TYPE, AParcel_readStrongBinder(&parcel, &binder)) << bytes;
        EXPECT_EQ(mBinder.get(), binder);
    }
}

TEST_F(ParcelObject, IsFoundAtItsOwnOffsetOnly) {
    const AParcel parcel =
        received(std::string("00 00 00 00 ") + kLocal + " 00 00 00 00", mBinder, 4);
    EXPECT_EQ(STATUS_OK, readAt(parcel, 4).first);
    for (const size_t offset : {0U, 1U, 2U, 3U, 5U, 6U, 7U, 8U}) {
        EXPECT_EQ(STATUS_BAD_TYPE, readAt(parcel, offset).first) << offset;
    }
    for (const size_t offset : {9U, 12U, 32U, 36U}) {
        EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, readAt(parcel, offset).first) << offset;
    }
    EXPECT_EQ(2, references(mBinder));
}

TEST_F(ParcelObject, ListDecidesWhateverTheBytesSay) {
    const auto [status, binder] = readAt(received(withStability(kNull, "03 00 00 00"), mBinder), 0);
    EXPECT_EQ(STATUS_OK, status);
    EXPECT_EQ(mBinder, binder);
}

TEST_F(ParcelObject, OurOwnComesBackAsTheVendorsOnly) {
    for (const char* stability : {"00 00 00 00", "01 00 00 00", "0C 00 00 00", "3F 00 00 00",
                                  "FF FF FF FF", "01 00 00 0C", "02 00 00 03"}) {
        const AParcel parcel = received(withStability(kLocal, stability), mBinder);
        EXPECT_EQ(STATUS_BAD_TYPE, readAt(parcel, 0).first) << stability;
        EXPECT_EQ(2, references(mBinder));
    }
    EXPECT_EQ(STATUS_OK, readAt(received(withStability(kLocal, "01 00 00 03"), mBinder), 0).first);
}

TEST_F(ParcelObject, NullHasNoStability) {
    EXPECT_EQ(STATUS_BAD_TYPE, readAt(received(withStability(kNull, "03 00 00 00")), 0).first);
    for (const char* stability : {"00 00 00 00", "01 00 00 00"}) {
        const auto [status, binder] = readAt(received(withStability(kNull, stability)), 0);
        EXPECT_EQ(STATUS_OK, status) << stability;
        EXPECT_EQ(nullptr, binder.get());
    }
}

TEST_F(ParcelObject, OthersKeepTheStabilityTheyFirstCameWith) {
    const char* const words[] = {"03 00 00 00", "0C 00 00 00", "3F 00 00 00",
                                 "01 00 00 03", "01 00 00 0C", "01 00 00 3F"};
    for (const char* stability : words) {
        const SpAIBinder proxy(new RemoteBinder(std::make_shared<NoLink>(), 77));
        const std::string entry = withStability(kRemote, stability);
        EXPECT_EQ(STATUS_OK, readAt(received(entry, proxy), 0).first) << stability;
        AParcel on;
        ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&on, proxy.get()));
        EXPECT_EQ(entry, toHex(on.bytes()));
        for (const char* other : words) {
            EXPECT_EQ(other == stability ? STATUS_OK : STATUS_BAD_TYPE,
                      readAt(received(withStability(kRemote, other), proxy), 0).first)
                << stability << ", then " << other;
        }
    }
    const SpAIBinder proxy(new RemoteBinder(std::make_shared<NoLink>(), 77));
    for (const char* stability : {"00 00 00 00", "01 00 00 00", "0F 00 00 00", "00 00 00 0C",
                                  "02 00 00 0C", "FF FF FF FF"}) {
        EXPECT_EQ(STATUS_BAD_TYPE,
                  readAt(received(withStability(kRemote, stability), proxy), 0).first)
            << stability;
    }
}

TEST_F(ParcelObject, WritingOverAnyPartOfItTakesItOut) {
    for (size_t position = 0; position < 44; position += 4) {
        AParcel parcel;
        ASSERT_EQ(STATUS_OK, AParcel_writeInt64(&parcel, 0));
        ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&parcel, mBinder.get()));
        ASSERT_EQ(STATUS_OK, AParcel_writeInt64(&parcel, 0));
        parcel.setPosition(position);
        ASSERT_EQ(STATUS_OK, AParcel_writeInt32(&parcel, -1));
        const bool within = position >= 8 && position < 36;
        EXPECT_EQ(within ? 1 : 2, references(mBinder)) << position;
        EXPECT_EQ(within ? STATUS_BAD_TYPE : STATUS_OK, readAt(parcel, 8).first) << position;
    }
}

TEST_F(ParcelObject, WritingAnotherInItsPlaceReplacesIt) {
    int otherEnded = 0;
    const SpAIBinder other = makeCounted(&otherEnded);
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&parcel, mBinder.get()));
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&parcel, mBinder.get()));
    parcel.setPosition(0);
    ASSERT_EQ(STATUS_OK, AParcel_writeStrongBinder(&parcel, other.get()));
    EXPECT_EQ(other, readAt(parcel, 0).second);
    EXPECT_EQ(mBinder, readAt(parcel, 28).second);
}

}  // namespace
