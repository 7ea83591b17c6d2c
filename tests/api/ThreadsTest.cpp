// SPDX-License-Identifier: Apache-2.0
// Application threads that create, destroy and ask at the same time.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/api/ClientFixture.h"
#include "tests/support/Hex.h"

namespace {

class ThreadsTest : public ClientTest {};

void ignoreStatus(int) {}

std::atomic<int> gStatuses{0};

void countStatus(int) {
    ++gStatuses;
}
void countLegacy(status_e) {
    ++gStatuses;
}

// Creating and destroying from several threads at once ends with a client or with none, never with
// a transport that nobody holds or an object that nobody can destroy.
TEST_F(ThreadsTest, LifecycleFromSeveralThreads) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    std::atomic<int> destroyed{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&destroyed, t] {
            for (int i = 0; i < 300; ++i) {
                if ((i + t) % 2 == 0) {
                    EXPECT_EQ(createSdfClient(ignoreStatus), 0);
                } else {
                    const long long result = destroySdfClient();
                    EXPECT_TRUE(result == 0 || result == -5) << result;
                    if (result == 0) ++destroyed;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    // The one that is left may have been made while a destroy was under way: it has no transport
    // before it is created again.
    EXPECT_EQ(createSdfClient(ignoreStatus), 0);
    EXPECT_EQ(destroySdfClient(), 0);
    ++destroyed;
    EXPECT_FALSE(Sdf::mInstance);
    EXPECT_EQ(sdk().obtained.size(), static_cast<size_t>(destroyed));
    EXPECT_EQ(sdk().destroyed.size(), static_cast<size_t>(destroyed));
    size_t releases = 0;
    for (const auto& event : sdk().transport->take()) releases += event->mRelease ? 1U : 0U;
    EXPECT_EQ(releases, static_cast<size_t>(destroyed));
    EXPECT_EQ(sdk().transport.use_count(), 1);
}

// Requests and deliveries while the client comes and goes: each call has one of the stated results.
TEST_F(ThreadsTest, RequestsWhileTheClientComesAndGoes) {
    std::atomic<bool> done{false};
    std::thread asking([&] {
        while (!done) {
            // Null callback: what must not be touched without the guard stays untouched.
            const long long result = sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1,
                                                      SDF_LATENCY_LVL_1, false, nullptr);
            EXPECT_TRUE(result == -5 || result == -2) << result;
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(createSdfClient(ignoreStatus), 0);
        EXPECT_EQ(destroySdfClient(), 0);
    }
    done = true;
    asking.join();
}

// Asking again, with any callback, while the service reports: needs no lock.
TEST_F(ThreadsTest, StatusWhileCallbacksAreReplaced) {
    ASSERT_EQ(createSdfClient(countStatus), 0);
    const SdkClientBase::Listener listener = sdk().listener;
    const std::vector<uint8_t> up = fromHex(service::statusInd("06"));
    std::thread delivering([&] {
        for (int i = 0; i < 500; ++i) {
            listener(SdkClientBase::SDK_BLOB_RECEIVED, up);
            listener(SdkClientBase::SDK_SERVICE_DOWN, {});
        }
    });
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(createSdfClient(countStatus), 0);
        EXPECT_EQ(lum_sdf_enable(countLegacy), 1);
    }
    delivering.join();
    EXPECT_GE(gStatuses, 1000);
    EXPECT_LE(gStatuses, 2000);
    EXPECT_EQ(sdk().transport->take().size(), 1001U);
}

}  // namespace
