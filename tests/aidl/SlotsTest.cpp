// SPDX-License-Identifier: Apache-2.0
// Where each virtual operation stands in its table: code compiled elsewhere calls by place.

#include <aidl/vendor/orn/data/lumservice/BnLumDppdServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/VirtualSlot.h"

using namespace aidl::vendor::orn::data::lumservice;

namespace {

// createBinder is protected.
template <typename Stub>
struct Opened : Stub {
    static size_t slotOfCreateBinder() { return slot(&Opened::createBinder); }
};

template <typename Interface>
void expectBase() {
    // The destructor has places 0 and 1.
    EXPECT_EQ(2U, slot(&Interface::asBinder));
    EXPECT_EQ(3U, slot(&Interface::isRemote));
    EXPECT_EQ(4U, slot(&Interface::dump));
    EXPECT_EQ(5U, slot(&Interface::handleShellCommand));
}

}  // namespace

TEST(Slots, Service) {
    expectBase<ILumService>();
    EXPECT_EQ(6U, slot(&ILumService::registerBlobCallback));
    EXPECT_EQ(7U, slot(&ILumService::sendBlob));
    EXPECT_EQ(8U, Opened<BnLumService>::slotOfCreateBinder());
}

TEST(Slots, ServiceCallback) {
    expectBase<ILumServiceCallback>();
    EXPECT_EQ(6U, slot(&ILumServiceCallback::sendBlob));
    EXPECT_EQ(7U, Opened<BnLumServiceCallback>::slotOfCreateBinder());
}

TEST(Slots, DppdServiceCallback) {
    expectBase<ILumDppdServiceCallback>();
    EXPECT_EQ(6U, slot(&ILumDppdServiceCallback::notifyDppdCapability));
    EXPECT_EQ(7U, slot(&ILumDppdServiceCallback::getDppdCapabilityResponse));
    EXPECT_EQ(8U, slot(&ILumDppdServiceCallback::notifyDppdRecommendation));
    EXPECT_EQ(9U, slot(&ILumDppdServiceCallback::getDppdRecommendationResponse));
    EXPECT_EQ(10U, slot(&ILumDppdServiceCallback::updateDppdUiResponse));
    EXPECT_EQ(11U, slot(&ILumDppdServiceCallback::notifyMultiSimSubModeInfo));
    EXPECT_EQ(12U, slot(&ILumDppdServiceCallback::getMultiSimSubModeInfoResponse));
    EXPECT_EQ(13U, Opened<BnLumDppdServiceCallback>::slotOfCreateBinder());
}
