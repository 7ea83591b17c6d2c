// SPDX-License-Identifier: Apache-2.0
// The emulator under peers that take what they can get: whoever comes after them is served.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/platform/RawPeer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kService[] = "vendor.orn.data.lumservice.ILumService";
constexpr transaction_code_t kRegister = 1;

class HostilePeerTest : public testing::Test {
  protected:
    UniqueFd connectPolitely() const { return greet(connectTo(mDirectory.path(), kService)); }

    // Registers a callback object, whose interface the service then asks for.
    static Bytes registration(uint64_t id, uint32_t object) {
        Bytes data = tokenOf(kService);
        const auto offset = static_cast<uint32_t>(data.size());
        data.resize(data.size() + sizeof(ObjectEntry));
        constexpr int32_t kVendor = 3;
        Bytes frame;
        appendCall(&frame, id, 0, kRegister, 0, {id},
                   payloadOf(data, {offset}, {{kOwnedBySender, 0, object, 0, kVendor}}));
        return frame;
    }

    // Waits until the service has asked over a connection what so many objects are.
    static void waitForQuestions(const UniqueFd& fd, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            const Bytes frame = receive(fd, callFrameSize(2, 0, 0));
            ASSERT_EQ(frame.size(), callFrameSize(2, 0, 0));
            ASSERT_EQ(frame[4], static_cast<uint8_t>(FrameKind::kCall));
        }
    }

    // Another client, in a process of its own.
    static void expectClientIsServed() {
        ChildProcess client({LUM_CLIENT_PROGRAM});
        ASSERT_TRUE(client.waitForLine("registered"));
        // Levels L2 and L4 for the first slot, with the id 7, and the answer to that.
        client.writeLine("5 1 08 01 10 07 1A 08 1A 06 08 01 10 01 18 03");
        EXPECT_TRUE(client.waitForLine("got 08 01 10 07 1A 06 12 04 08 01 10 03"));
    }

    const TestDirectory mDirectory;
    EmulatorProcess mEmulator;
};

TEST_F(HostilePeerTest, SixteenRegistrationsThatHangLeaveThreadsToOthers) {
    std::vector<UniqueFd> hostile;
    for (uint32_t i = 0; i < 16; ++i) {
        hostile.push_back(connectPolitely());
        ASSERT_TRUE(sendAll(hostile.back(), registration(1, 5)));
        if (i < 8) waitForQuestions(hostile.back(), 1);
    }
    expectClientIsServed();
}

TEST_F(HostilePeerTest, FortyRegistrationsThatHangOnOneConnectionLeaveThreadsToOthers) {
    const UniqueFd hostile = connectPolitely();
    for (uint32_t i = 0; i < 40; ++i) ASSERT_TRUE(sendAll(hostile, registration(i + 1, i + 5)));
    waitForQuestions(hostile, 8);
    expectClientIsServed();
}

TEST_F(HostilePeerTest, ConnectionsWithoutEndLeaveMemoryAndDescriptorsToOthers) {
    Bytes half = registration(1, 5);
    half.pop_back();
    std::vector<UniqueFd> hostile;
    for (int i = 0; i < 300; ++i) {
        hostile.push_back(connectTo(mDirectory.path(), kService));
        (void)sendAll(hostile.back(), hello());
        (void)sendAll(hostile.back(), half);
    }
    EXPECT_TRUE(closedByOther(hostile.back()));
    EXPECT_LT(mEmulator.stats().descriptors, 300U);
    expectClientIsServed();
}

}  // namespace
