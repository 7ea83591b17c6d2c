// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <mutex>
#include <random>
#include <thread>

#include "tests/transport/FakeBinder.h"
#include "tests/transport/ListenerRecord.h"
#include "transport/SdkClient.h"

// Two feature clients use the transport from two threads in random orders. The model: whatever a
// client posts between joining the transport and its release event, that one included, is sent,
// once and in order; the transport is there exactly while somebody uses it.

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kRounds = 60;
constexpr int kStepsPerClient = 150;

class FeatureClient {
  public:
    FeatureClient(LumSdkClientType type, LumSdkClientType other, std::mutex& lifecycle,
                  unsigned seed)
        : mType(type), mOther(other), mLifecycle(lifecycle), mRandom(seed) {}

    void run() {
        for (int step = 0; step < kStepsPerClient; ++step) {
            if (!mTransport) {
                take();
                continue;
            }
            const auto dice = mRandom() % 10;
            if (dice < 6) {
                mTransport->postEvent(next());
            } else if (dice == 6) {
                take();  // a second time
            } else if (dice == 7) {
                release();
                takeAgain();
            } else {
                release();
                leave();
            }
        }
        if (mTransport) {
            release();
            leave();
        }
    }

    LumSdkClientType type() const { return mType; }
    const std::vector<Bytes>& posted() const { return mPosted; }

  private:
    std::shared_ptr<SdkClientEvent> next(bool release = false) {
        const size_t number = mPosted.size();
        mPosted.push_back({static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8U)});
        return makeEvent(mType, mPosted.back(), release);
    }

    // These hold mLifecycle: getting and destroying never happen at the same time.
    void take() {
        const std::lock_guard<std::mutex> lock(mLifecycle);
        mTransport = SdkClient::getInstance(mType, ListenerRecord(), next());
        ASSERT_NE(mTransport, nullptr);
        ASSERT_EQ(mTransport, SdkClient::mInstance);
        ASSERT_TRUE(mTransport->isActive(mType));
    }
    // After release(), which may not have been handled yet. If it has, and nobody else is there,
    // the transport is shutting down.
    void takeAgain() {
        const auto again = SdkClient::getInstance(mType, ListenerRecord(), next());
        if (again) {
            ASSERT_EQ(again, mTransport);
            mReleased.unlock();
            return;
        }
        mPosted.pop_back();
        ASSERT_FALSE(mTransport->isRunning());
        leave();
    }
    void release() {
        mReleased = std::unique_lock<std::mutex>(mLifecycle);
        mTransport->postEvent(next(true));
    }
    // While the other client stays, not before the release has been handled: if the other left in
    // between, this release would end the loop, and drop what the other has queued behind it.
    void leave() {
        while (mTransport->isActive(mOther) && mTransport->isActive(mType)) {
            std::this_thread::yield();
        }
        SdkClient::destroyInstance(mType);
        if (SdkClient::mInstance) {
            ASSERT_FALSE(SdkClient::mInstance->isActive(mType));
        }
        mTransport.reset();
        mReleased.unlock();
    }

    const LumSdkClientType mType;
    const LumSdkClientType mOther;
    std::mutex& mLifecycle;
    std::unique_lock<std::mutex> mReleased;  // held between release() and what follows it
    std::mt19937 mRandom;
    std::shared_ptr<SdkClient> mTransport;
    std::vector<Bytes> mPosted;
};

class TwoClientsTest : public testing::TestWithParam<unsigned> {};

TEST_P(TwoClientsTest, EverythingPostedIsSentInOrder) {
    for (unsigned round = 0; round < kRounds; ++round) {
        const auto service = ndk::SharedRefBase::make<FakeService>();
        FakeBinder binder;
        binder.serve(service);
        std::mutex lifecycle;
        const unsigned seed = GetParam() * 100000 + round * 2;
        constexpr auto kSdf = LUM_SDK_CLIENT_SDF;
        constexpr auto kOther = static_cast<LumSdkClientType>(6);
        std::array<FeatureClient, 2> clients{FeatureClient(kSdf, kOther, lifecycle, seed),
                                             FeatureClient(kOther, kSdf, lifecycle, seed + 1)};
        std::thread other([&] { clients[1].run(); });
        clients[0].run();
        other.join();

        ASSERT_EQ(SdkClient::mInstance, nullptr) << "seed " << seed;
        for (const FeatureClient& client : clients) {
            std::vector<Bytes> sent;
            for (const FakeService::Message& message : service->messages()) {
                if (message.type == client.type()) sent.push_back(message.blob);
            }
            ASSERT_EQ(sent, client.posted()) << "seed " << seed << ", type " << client.type();
        }
        service->dropCallback();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, TwoClientsTest, testing::Range(1U, 5U));

}  // namespace
