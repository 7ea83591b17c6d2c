// SPDX-License-Identifier: Apache-2.0
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/Hex.h"
#include "tools/emulator/BinderService.h"
#include "tools/emulator/RuleParser.h"

namespace {

class NoCallback : public aidl::vendor::orn::data::lumservice::BnLumServiceCallback {
  public:
    ndk::ScopedAStatus sendBlob(aidl::vendor::orn::data::lumservice::LumSdkType /*type*/,
                                const std::vector<uint8_t>& /*blob*/) override {
        return ndk::ScopedAStatus::ok();
    }
};

// A service whose way to die is to throw.
std::shared_ptr<BinderService> serviceBy(const char* rule) {
    ServiceLogic::Config config;
    config.rules = {parseRule(rule, "rule")};
    config.die = [] { throw std::runtime_error("no way to die"); };
    return ndk::SharedRefBase::make<BinderService>(std::move(config), ClientTable::instance(),
                                                   std::make_shared<MessageLog>(false));
}

TEST(BinderServiceTest, ExceptionInARegistrationFailsTheCall) {
    const auto service = serviceBy("on register nth 1: die before");
    const auto callback = ndk::SharedRefBase::make<NoCallback>();
    EXPECT_EQ(service->registerBlobCallback(callback).getStatus(), STATUS_UNKNOWN_ERROR);
    service->stop();
    EXPECT_EQ(service->registerBlobCallback(callback).getStatus(), STATUS_DEAD_OBJECT);
}

TEST(BinderServiceTest, ExceptionInARequestFailsTheCallAndTheServiceGoesOn) {
    const auto service = serviceBy("on any nth 1: die before");
    const auto type = aidl::vendor::orn::data::lumservice::LumSdkType::SDF;
    const std::vector<uint8_t> enable = fromHex("1A 04 0A 02 08 01");
    EXPECT_EQ(service->sendBlob(type, enable).getStatus(), STATUS_UNKNOWN_ERROR);
    EXPECT_TRUE(service->sendBlob(type, enable).isOk());
    service->stop();
    EXPECT_EQ(service->sendBlob(type, enable).getStatus(), STATUS_DEAD_OBJECT);
}

}  // namespace
