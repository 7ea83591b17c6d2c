// SPDX-License-Identifier: Apache-2.0
// The generated code and the transport, compiled with binder's headers as of Android 13: before
// methods had names.

#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <aidl/vendor/orn/data/lumservice/BpLumService.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "transport/SdkClient.h"

// Not in these headers.
extern "C" const char* AIBinder_Class_getFunctionName(AIBinder_Class* clazz,
                                                      transaction_code_t code);

namespace {

using aidl::vendor::orn::data::lumservice::BnLumService;
using aidl::vendor::orn::data::lumservice::BpLumService;
using aidl::vendor::orn::data::lumservice::ILumServiceCallback;
using aidl::vendor::orn::data::lumservice::LumSdkType;

template <typename Base, typename = void>
struct TakesNames : std::false_type {};
template <typename Base>
struct TakesNames<Base, std::void_t<decltype(Base::defineClass("", nullptr, nullptr, 0))>>
    : std::true_type {};
static_assert(!TakesNames<ndk::ICInterface>::value, "these headers are newer");

class Service : public BnLumService {
  public:
    ndk::ScopedAStatus registerBlobCallback(
        const std::shared_ptr<ILumServiceCallback>& /*callback*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override {
        arrived = toString(type) + " " + std::to_string(blob.size());
        return ndk::ScopedAStatus::fromServiceSpecificError(7);
    }

    std::string arrived;
};

TEST(OldHeadersTest, CallIsCarriedOut) {
    const auto service = ndk::SharedRefBase::make<Service>();
    const auto proxy = ndk::SharedRefBase::make<BpLumService>(service->asBinder());
    const LumSdkType type = SdkClient::convertLumSdkTypeToAidl(LUM_SDK_CLIENT_SDF);
    EXPECT_EQ(proxy->sendBlob(type, {1, 2, 3}).getServiceSpecificError(), 7);
    EXPECT_EQ(service->arrived, "SDF 3");
}

TEST(OldHeadersTest, MethodsHaveNoNames) {
    const auto service = ndk::SharedRefBase::make<Service>();
    const ndk::SpAIBinder binder = service->asBinder();
    auto* const clazz = const_cast<AIBinder_Class*>(AIBinder_getClass(binder.get()));
    EXPECT_STREQ(AIBinder_Class_getDescriptor(clazz), BnLumService::descriptor);
    EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, 1), nullptr);
}

}  // namespace
