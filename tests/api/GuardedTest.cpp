// SPDX-License-Identifier: Apache-2.0
// Application threads against the threads that deliver: what only LUM_SDF_GUARDED makes safe.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "tests/api/ClientFixture.h"
#include "tests/support/Hex.h"

namespace {

class GuardedTest : public ClientTest {};

std::atomic<int> gLevels{0};

void countLevels(long long, SdfLatencyLvl, SdfLatencyLvl) {
    ++gLevels;
}

std::vector<uint8_t> levelsFor(long long id) {
    std::string varint;
    auto rest = static_cast<uint64_t>(id);
    for (; rest >= 0x80; rest >>= 7) {
        varint += toHex(std::vector<uint64_t>{(rest & 0x7F) | 0x80}) + " ";
    }
    return fromHex(service::effectiveLevels(varint + toHex(std::vector<uint64_t>{rest})));
}

TEST_F(GuardedTest, RequestsWhileRepliesAreDispatched) {
    constexpr int kThreads = 4;
    constexpr int kRequests = 300;
    startUp();
    const SdkClientBase::Listener listener = sdk().listener;
    std::vector<std::vector<long long>> ids(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (auto& mine : ids) {
        threads.emplace_back([&mine, &listener] {
            for (int i = 0; i < kRequests; ++i) {
                mine.push_back(sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1,
                                                SDF_LATENCY_LVL_1, false, countLevels));
                if (i % 2 == 0) listener(SdkClientBase::SDK_BLOB_RECEIVED, levelsFor(mine.back()));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::set<long long> all;
    for (const auto& mine : ids) all.insert(mine.begin(), mine.end());
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kRequests));
    EXPECT_GT(*all.begin(), 0);
    EXPECT_EQ(gLevels, kThreads * kRequests / 2);
    EXPECT_EQ(client().mUsedIds.size(), static_cast<size_t>(kThreads * kRequests / 2));
    EXPECT_EQ(client().mLatencyCbs.size(), static_cast<size_t>(kThreads * kRequests / 2));
    EXPECT_EQ(sdk().transport->take().size(), static_cast<size_t>(kThreads * kRequests));
}

// Another thread tells the client that filter 8 is added, while `post` of a deletion runs.
class GuardedDeletionTest : public GuardedTest {
  protected:
    void SetUp() override {
        GuardedTest::SetUp();
        startUpWithAll();
    }

    void TearDown() override {
        ASSERT_TRUE(mConfirmation.joinable());
        mConfirmation.join();
        EXPECT_EQ(client().mFilterIds, mLeft);
        GuardedTest::TearDown();
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

}  // namespace
