// SPDX-License-Identifier: Apache-2.0
// No memory: every function says so, throws nothing, and leaves nothing behind.
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "tests/platform/CountedObject.h"
#include "tests/support/AllocationLimit.h"
#include "tests/support/Hex.h"

namespace {

// Calls `attempt` with no allocation allowed, then one, and so on until it succeeds; it must be
// refused with STATUS_NO_MEMORY until then. Returns how often it was refused.
int untilItWorks(const std::function<binder_status_t()>& attempt) {
    for (long allowed = 0; allowed < 1000; ++allowed) {
        binder_status_t status = STATUS_OK;
        {
            const AllocationLimit limit(allowed);
            status = attempt();
        }
        if (status == STATUS_OK) return static_cast<int>(allowed);
        EXPECT_EQ(STATUS_NO_MEMORY, status);
    }
    ADD_FAILURE() << "never works";
    return 0;
}

// Has `attempt` change a parcel that holds one number, which stays as it is while there is no
// memory for that, and keeps no reference to `binder`.
void expectUnchangedUntil(const std::function<binder_status_t(AParcel*)>& attempt,
                          const ndk::SpAIBinder& binder = nullptr) {
    AParcel parcel(fromHex("07 00 00 00"), {});
    parcel.setPosition(4);
    const int32_t references = AIBinder_debugGetRefCount(binder.get());
    const int refused = untilItWorks([&] {
        EXPECT_EQ("07 00 00 00", toHex(parcel.bytes()));
        EXPECT_EQ(references, AIBinder_debugGetRefCount(binder.get()));
        return attempt(&parcel);
    });
    EXPECT_GT(refused, binder.get() == nullptr ? 0 : 1);
    EXPECT_NE("07 00 00 00", toHex(parcel.bytes()));
    if (binder.get() != nullptr) {
        EXPECT_EQ(references + 1, AIBinder_debugGetRefCount(binder.get()));
    }
}

TEST(NoMemory, WhatCannotBeWrittenLeavesTheParcelAsItWas) {
    int ended = 0;
    const ndk::SpAIBinder binder = makeCounted(&ended);
    const std::vector<uint8_t> bytes(1000, 1);
    expectUnchangedUntil([](AParcel* parcel) { return AParcel_writeInt32(parcel, 7); });
    expectUnchangedUntil(
        [&](AParcel* parcel) { return AParcel_unmarshal(parcel, bytes.data(), bytes.size()); });
    expectUnchangedUntil(
        [&](AParcel* parcel) { return AParcel_writeStrongBinder(parcel, binder.get()); }, binder);
}

TEST(NoMemory, ReadingIntoCppTypes) {
    // A text longer than a string keeps within itself.
    const std::string text(100, 'x');
    AParcel parcel;
    ASSERT_EQ(STATUS_OK, parcel.writeString(text));
    std::string read;
    EXPECT_EQ(1, untilItWorks([&] {
                  parcel.setPosition(0);
                  return parcel.readString(&read);
              }));
    EXPECT_EQ(text, read);

    AParcel array;
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(&array, std::vector<uint8_t>(100, 1)));
    std::vector<uint8_t> bytes;
    EXPECT_EQ(1, untilItWorks([&] {
                  array.setPosition(0);
                  return ndk::AParcel_readData(&array, &bytes);
              }));
    EXPECT_EQ(std::vector<uint8_t>(100, 1), bytes);
}

TEST(NoMemory, ReadingAStatusAndMakingIt) {
    AParcel parcel;
    const std::string text(100, 'x');
    ASSERT_EQ(STATUS_OK,
              AParcel_writeStatusHeader(&parcel, ndk::ScopedAStatus::fromExceptionCodeWithMessage(
                                                     EX_ILLEGAL_STATE, text.c_str())
                                                     .get()));
    ndk::ScopedAStatus status;
    const int refused = untilItWorks([&] {
        parcel.setPosition(0);
        AStatus* read = nullptr;
        const binder_status_t result = AParcel_readStatusHeader(&parcel, &read);
        status.set(read);
        // Where there is memory for the parcel's part of it only, the status itself says so.
        return result == STATUS_OK ? status.getStatus() : result;
    });
    EXPECT_EQ(3, refused);  // what is read, the status and its text
    EXPECT_EQ(text, status.getMessage());
}

TEST(NoMemory, InterfaceTokenIsRecognisedAllTheSame) {
    AParcel parcel;
    const std::string descriptor(100, 'd');
    ASSERT_EQ(STATUS_OK, parcel.writeInterfaceToken(descriptor));
    parcel.setPosition(0);
    const AllocationLimit limit(0);
    const bool recognised = parcel.checkInterfaceToken(descriptor);
    EXPECT_TRUE(recognised);
}

}  // namespace
