// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/platform/PeerInterface.h"
#include "tests/platform/PeerProcess.h"

namespace {

constexpr char kName[] = "lum.test.peer";

class CallsTest : public testing::Test {
  protected:
    const SocketFolder mFolder;
    PeerProcess mPeer{kName};
    ndk::SpAIBinder mService{AServiceManager_waitForService(kName)};
};

TEST_F(CallsTest, TwoWayCall) {
    ASSERT_EQ(mPeer.said(), "ready");
    ASSERT_NE(mService.get(), nullptr);
    int32_t sum = 0;
    EXPECT_EQ(callPeer(
                  mService, kAdd,
                  [](AParcel* in) {
                      AParcel_writeInt32(in, 40);
                      AParcel_writeInt32(in, 2);
                  },
                  readInt(&sum)),
              STATUS_OK);
    EXPECT_EQ(sum, 42);
}

}  // namespace
