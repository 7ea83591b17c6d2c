// SPDX-License-Identifier: Apache-2.0
// Application threads against the threads that deliver: what only LUM_SDF_GUARDED makes safe.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/api/ClientFixture.h"

namespace {

// Another thread tells the client that filter 8 is added, while `post` of a deletion runs.
class GuardedDeletionTest : public ClientTest {
  protected:
    void SetUp() override { startUpWithAll(); }

    void TearDown() override {
        ASSERT_TRUE(mConfirmation.joinable());
        mConfirmation.join();
        EXPECT_EQ(client().mFilterIds, mLeft);
    }

    void confirm() {
        mConfirmation = std::thread([this] {
            receive(service::message(3, service::field("0A", "08 08 10 01")));
            mConfirmed = true;
        });
        // The record is locked, so this is in vain; without the lock it would take no time.
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
        while (!mConfirmed && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    }

    std::vector<unsigned int> mLeft;  // the live filters at the end

  private:
    std::thread mConfirmation;
    std::atomic<bool> mConfirmed{false};
};

TEST_F(GuardedDeletionTest, FilterConfirmedWhileAllAreBeingDeletedIsKept) {
    client().removeAllFilterIds([this] { confirm(); });
    mLeft = {8};
}

// The service has ended the old filter by itself, and the id has been drawn again.
TEST_F(GuardedDeletionTest, FilterConfirmedWhileAnEarlierOneOfItsIdIsBeingDeletedIsKept) {
    client().mFilterIds = {5};
    client().removeFilterId(8, [this] { confirm(); });
    mLeft = {5, 8};
}

// Where the thread sanitizer sees it.
TEST(GuardedSlotTest, CallbackFindsWhatWasWrittenBeforeItWasSet) {
    static unsigned int written = 0;
    Sdf client;
    std::thread application([&client] {
        written = 7;
        client.replaceSlot<SdfFilterStatusCb>(
            &Sdf::mFilterStatusCb,
            [](unsigned int id, SdfFilterStatus /*status*/) { EXPECT_EQ(written, id); });
    });
    SdfFilterStatusCb cb = nullptr;
    while (cb == nullptr) {
        cb = client.readSlot(&Sdf::mFilterStatusCb);
        std::this_thread::yield();
    }
    cb(7, SDF_FILTER_ACTIVE);
    application.join();
}

}  // namespace
