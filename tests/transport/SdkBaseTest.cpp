// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/ThreadRefusal.h"
#include "tests/transport/FakeBinder.h"
#include "tests/transport/ListenerRecord.h"
#include "transport/SdkBase.h"
#include "transport/SdkClient.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<int> gV2Codes;
std::vector<int> gLegacyCodes;

// A feature client of its own, of client type 9.
class Feature : public SdkBase {
  public:
    static constexpr auto kType = static_cast<LumSdkClientType>(9);

    void blobListener(SdkClientBase::SdkStatus status, const Bytes& bytes) override {
        heard(status, bytes);
    }
    void create(Bytes first) {
        createSdkInstance(
            kType,
            [this](SdkClientBase::SdkStatus status, const Bytes& bytes) {
                blobListener(status, bytes);
            },
            makeEvent(kType, std::move(first)));
    }
    void destroy() {
        transport()->postEvent(makeEvent(kType, {0xEE}, true));
        destroySdkInstance(kType);
    }

    ListenerRecord heard;
};

class SdkBaseTest : public testing::Test {
  protected:
    SdkBaseTest() {
        gV2Codes.clear();
        gLegacyCodes.clear();
        binder.serve(service);
        feature.mLegacyStatusCb = [](status_e status) { gLegacyCodes.push_back(status); };
    }
    ~SdkBaseTest() override { service->dropCallback(); }

    std::shared_ptr<FakeService> service = ndk::SharedRefBase::make<FakeService>();
    FakeBinder binder;
    Feature feature;
};

TEST_F(SdkBaseTest, StartsWithNothing) {
    const Feature fresh;
    EXPECT_EQ(fresh.mLegacyStatusCb, nullptr);
    EXPECT_EQ(fresh.mBaseStatusCbV2, nullptr);
    EXPECT_EQ(fresh.mSdkClient, nullptr);
    EXPECT_TRUE(fresh.mTxnContext.empty());
}

TEST_F(SdkBaseTest, ObtainsTheTransportWithItsFirstEvent) {
    feature.create({1});
    EXPECT_EQ(feature.transport(), SdkClient::mInstance);
    ASSERT_TRUE(feature.heard.waitForCalls(1));
    feature.destroy();
    EXPECT_EQ(feature.transport(), nullptr);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
    ASSERT_EQ(service->messages().size(), 2U);
    EXPECT_EQ(service->messages()[0].type, 8);  // the service's number for client type 9
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {0xEE}}));
}

TEST_F(SdkBaseTest, WithATransportOnlyTheEventIsQueued) {
    feature.create({1});
    ASSERT_TRUE(feature.heard.waitForCalls(1));
    const ListenerRecord ignored;
    feature.createSdkInstance(Feature::kType, ignored, makeEvent(Feature::kType, {2}));
    feature.createSdkInstance(Feature::kType, ignored, nullptr);
    EXPECT_EQ(ignored.copies(), 0);
    feature.destroy();
    EXPECT_EQ(service->blobs(), (std::vector<Bytes>{{1}, {2}, {0xEE}}));
    EXPECT_EQ(feature.heard.calls().size(), 1U);
}

TEST_F(SdkBaseTest, LackOfATransportIsReportedToTheV2CallbackOrElseTheLegacyOne) {
    const ThreadRefusal refused;
    feature.create({1});
    EXPECT_EQ(gLegacyCodes, std::vector<int>{2});
    feature.mBaseStatusCbV2 = [](int status) { gV2Codes.push_back(status); };
    feature.create({1});
    EXPECT_EQ(feature.transport(), nullptr);
    EXPECT_EQ(gV2Codes, std::vector<int>{-3});
    feature.mBaseStatusCbV2 = nullptr;
    feature.mLegacyStatusCb = nullptr;
    feature.create({1});
    EXPECT_EQ(gLegacyCodes, std::vector<int>{2});
}

TEST_F(SdkBaseTest, DestroyWithoutATransportDoesNothing) {
    feature.destroySdkInstance(Feature::kType);
    EXPECT_EQ(SdkClient::mInstance, nullptr);
}

}  // namespace
