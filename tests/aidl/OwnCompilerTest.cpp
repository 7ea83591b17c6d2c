// SPDX-License-Identifier: Apache-2.0
// What only this tree's interface compiler generates, or generates so on any C library. The other
// tests here hold for the platform's, too.

#include <aidl/vendor/orn/data/lumservice/BnLumDppdServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BpLumService.h>
#include <aidl/vendor/orn/data/lumservice/DubiousCellInfo.h>
#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Hex.h"

using namespace aidl::vendor::orn::data::lumservice;
using ::ndk::ScopedAStatus;
using ::ndk::SharedRefBase;
using Scs = DubiousCellInfo::Nr5gScsParams;

namespace {

// The name of a method for tracing, as the interface's class has it.
template <typename Interface>
std::string methodName(transaction_code_t code) {
    const auto stub = SharedRefBase::make<typename Interface::DefaultDelegator>(nullptr);
    const ::ndk::SpAIBinder binder = stub->asBinder();
    auto* const clazz = const_cast<AIBinder_Class*>(AIBinder_getClass(binder.get()));
    const char* const found = AIBinder_Class_getFunctionName(clazz, code);
    return found == nullptr ? "(none)" : found;
}

}  // namespace

TEST(OwnCompiler, MethodsHaveNamesForTracing) {
    EXPECT_EQ("(none)", methodName<ILumService>(0));
    EXPECT_EQ("registerBlobCallback", methodName<ILumService>(1));
    EXPECT_EQ("sendBlob", methodName<ILumService>(2));
    EXPECT_EQ("(none)", methodName<ILumService>(3));
    EXPECT_EQ("(none)", methodName<ILumServiceCallback>(0));
    EXPECT_EQ("sendBlob", methodName<ILumServiceCallback>(1));
    EXPECT_EQ("(none)", methodName<ILumServiceCallback>(2));
    EXPECT_EQ("notifyDppdCapability", methodName<ILumDppdServiceCallback>(1));
    EXPECT_EQ("getMultiSimSubModeInfoResponse", methodName<ILumDppdServiceCallback>(7));
    EXPECT_EQ("(none)", methodName<ILumDppdServiceCallback>(8));
}

TEST(OwnCompiler, DelegatorPassesCallsOn) {
    struct Served : ILumServiceDefault {
        ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override {
            arrived = toString(type) + " " + toHex(blob);
            return ScopedAStatus::ok();
        }
        std::string arrived;
    };
    const auto served = SharedRefBase::make<Served>();
    const auto delegator = SharedRefBase::make<ILumService::DefaultDelegator>(served);
    const auto proxy = SharedRefBase::make<BpLumService>(delegator->asBinder());
    EXPECT_TRUE(proxy->sendBlob(LumSdkType::SDF, {9}).isOk());
    EXPECT_EQ("SDF 09", served->arrived);
}

// As when two libraries of one process carry the generated code, each with a class of its own.
TEST(OwnCompiler, ObjectOfAnotherCopyOfTheClassIsReachedByAProxy) {
    static std::vector<transaction_code_t> codes;
    static AIBinder_Class* const other = AIBinder_Class_define(
        ILumService::descriptor, [](void*) -> void* { return nullptr; }, [](void*) {},
        [](AIBinder*, transaction_code_t code, const AParcel*, AParcel* out) -> binder_status_t {
            codes.push_back(code);
            return AParcel_writeInt32(out, EX_NONE);
        });
    const ::ndk::SpAIBinder binder(AIBinder_new(other, nullptr));
    const std::shared_ptr<ILumService> reached = ILumService::fromBinder(binder);
    ASSERT_NE(nullptr, reached);
    EXPECT_TRUE(reached->sendBlob(LumSdkType::SDF, {}).isOk());
    EXPECT_EQ(std::vector<transaction_code_t>{2}, codes);
}

// The platform's generated code ends the process by bionic's __assert2, and elsewhere by nothing.
TEST(OwnCompilerDeathTest, TheWrongMemberOfAUnionIsNotGiven) {
    const Scs value = Scs::make<Scs::spacing>(15);
    EXPECT_DEATH(static_cast<void>(value.get<Scs::unknown>()), "bad access: a wrong tag");
}

TEST(OwnCompilerDeathTest, ImpossibleTagOfAUnionIsNotWritten) {
    Scs value;
    std::memset(static_cast<void*>(&value), 0x7f, sizeof value);
    const ::ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_DEATH(static_cast<void>(value.writeToParcel(parcel.get())), "can't reach here");
    EXPECT_DEATH(static_cast<void>(value.toString()), "can't reach here");
}
