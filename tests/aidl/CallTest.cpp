// SPDX-License-Identifier: Apache-2.0
// What every method of every interface sends, how it arrives, and what comes of broken calls.

#include <aidl/vendor/orn/data/lumservice/BnLumDppdServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BpLumDppdServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BpLumService.h>
#include <aidl/vendor/orn/data/lumservice/BpLumServiceCallback.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "tests/platform/Threads.h"
#include "tests/support/Hex.h"

using namespace aidl::vendor::orn::data::lumservice;
using ::ndk::ScopedAStatus;
using ::ndk::SharedRefBase;

namespace {

using Blob = std::vector<uint8_t>;

// FLAG_ONEWAY and FLAG_PRIVATE_VENDOR, as numbers.
constexpr binder_flags_t kTwoWay = 0x10000000;
constexpr binder_flags_t kOneWay = 0x10000001;

// One call as the generated code handed it over.
struct Transaction {
    AIBinder* binder;
    transaction_code_t code;
    binder_flags_t flags;
    Blob bytes;  // of the request, interface token included
};

// Records every call of this process while it lives, and lets it through unless there is another
// answer: that returns the status, and may set the reply. One spy at a time.
struct TransactSpy {
    TransactSpy() { sCurrent = this; }
    ~TransactSpy() { sCurrent = nullptr; }
    TransactSpy(const TransactSpy&) = delete;
    TransactSpy& operator=(const TransactSpy&) = delete;

    static inline TransactSpy* sCurrent = nullptr;
    std::vector<Transaction> calls;
    std::function<binder_status_t(AParcel** out)> answer;
};

// Does what libbinder_ndk's AIBinder_transact does.
binder_status_t realTransact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                             binder_flags_t flags) {
    static const auto real =
        reinterpret_cast<decltype(&AIBinder_transact)>(dlsym(RTLD_NEXT, "AIBinder_transact"));
    return real(binder, code, in, out, flags);
}

class Service : public BnLumService {
  public:
    ScopedAStatus registerBlobCallback(
        const std::shared_ptr<ILumServiceCallback>& in_callback) override {
        log.emplace_back("registerBlobCallback");
        callback = in_callback;
        return answer();
    }
    ScopedAStatus sendBlob(LumSdkType in_type, const Blob& in_blob) override {
        log.push_back("sendBlob " + toString(in_type) + " [" + toHex(in_blob) + "]");
        return answer();
    }

    std::vector<std::string> log;
    std::shared_ptr<ILumServiceCallback> callback;
    std::function<ScopedAStatus()> answer = ScopedAStatus::ok;
};

class Callback : public BnLumServiceCallback {
  public:
    ScopedAStatus sendBlob(LumSdkType in_type, const Blob& in_blob) override {
        log.push_back("sendBlob " + toString(in_type) + " [" + toHex(in_blob) + "]");
        return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);  // nobody hears of it
    }

    std::vector<std::string> log;
};

class DppdCallback : public BnLumDppdServiceCallback {
  public:
    ScopedAStatus notifyDppdCapability(bool in) override { return got("notifyDppdCapability", in); }
    ScopedAStatus getDppdCapabilityResponse(bool in) override {
        return got("getDppdCapabilityResponse", in);
    }
    ScopedAStatus notifyDppdRecommendation(const DataRecommendation& in) override {
        return got("notifyDppdRecommendation " + in.toString());
    }
    ScopedAStatus getDppdRecommendationResponse(const DataRecommendation& in) override {
        return got("getDppdRecommendationResponse " + in.toString());
    }
    ScopedAStatus updateDppdUiResponse(bool in) override { return got("updateDppdUiResponse", in); }
    ScopedAStatus notifyMultiSimSubModeInfo(const SubModeInfo& in) override {
        return got("notifyMultiSimSubModeInfo " + in.toString());
    }
    ScopedAStatus getMultiSimSubModeInfoResponse(Status in_status, const SubModeInfo& in) override {
        return got("getMultiSimSubModeInfoResponse " + toString(in_status) + " " + in.toString());
    }

    std::vector<std::string> log;

  private:
    ScopedAStatus got(std::string what) {
        log.push_back(std::move(what));
        return ScopedAStatus::ok();
    }
    ScopedAStatus got(const std::string& what, bool in) { return got(what + (in ? " 1" : " 0")); }
};

// What every request begins with: strict mode, no work source, the mark of vendor software and the
// descriptor with its length, in UTF-16 with a zero at the end, filled up to a multiple of four.
std::string token(const std::string& descriptor) {
    std::vector<uint8_t> bytes = fromHex("00000080 ffffffff 52444e56");
    bytes.push_back(static_cast<uint8_t>(descriptor.size()));
    bytes.insert(bytes.end(), 3, 0);
    for (const char c : descriptor + '\0') {
        bytes.push_back(static_cast<uint8_t>(c));
        bytes.push_back(0);
    }
    while (bytes.size() % 4 != 0) bytes.push_back(0);
    return toHex(bytes);
}

// The kernel's flat object (its type, flags, two empty 64-bit words), then vendor stability.
const std::string kObject = "852a6273 13010000 00000000 00000000 00000000 00000000 03000000";
const std::string kServiceToken = token("vendor.orn.data.lumservice.ILumService");
const std::string kCallbackToken = token("vendor.orn.data.lumservice.ILumServiceCallback");
const std::string kDppdToken = token("vendor.orn.data.lumservice.ILumDppdServiceCallback");

void expectCall(const Transaction& call, AIBinder* binder, transaction_code_t code,
                binder_flags_t flags, const std::string& token, const std::string& arguments) {
    EXPECT_EQ(binder, call.binder);
    EXPECT_EQ(code, call.code);
    EXPECT_EQ(flags, call.flags);
    EXPECT_EQ(toHex(fromHex(token + arguments)), toHex(call.bytes));
}

// Calls with a request of exactly these bytes.
binder_status_t callWithBytes(AIBinder* binder, transaction_code_t code, const Blob& bytes,
                              ::ndk::ScopedAParcel* reply) {
    ::ndk::ScopedAParcel request;
    EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(binder, request.getR()));
    EXPECT_EQ(STATUS_OK, AParcel_unmarshal(request.get(), bytes.data(), bytes.size()));
    return realTransact(binder, code, request.getR(), reply->getR(), 0);
}

binder_status_t callWithBytes(AIBinder* binder, transaction_code_t code, const std::string& text) {
    ::ndk::ScopedAParcel reply;
    return callWithBytes(binder, code, fromHex(text), &reply);
}

std::string replyTo(AIBinder* binder, transaction_code_t code, const std::string& text) {
    ::ndk::ScopedAParcel reply;
    EXPECT_EQ(STATUS_OK, callWithBytes(binder, code, fromHex(text), &reply));
    return toHex(reply.get()->bytes());
}

// A request cut off anywhere is refused, and nothing is called.
void expectRefusedWhenCut(AIBinder* binder, transaction_code_t code, const std::string& token,
                          const std::string& arguments) {
    const Blob whole = fromHex(token + arguments);
    const size_t tokenSize = fromHex(token).size();
    for (size_t size = 0; size < whole.size(); ++size) {
        ::ndk::ScopedAParcel reply;
        EXPECT_EQ(size < tokenSize ? STATUS_BAD_TYPE : STATUS_NOT_ENOUGH_DATA,
                  callWithBytes(binder, code, {whole.data(), whole.data() + size}, &reply))
            << "code " << code << ", " << size << " bytes";
        EXPECT_EQ(nullptr, reply.get());
    }
}

}  // namespace

// Goes before libbinder_ndk's for the calls that the generated code makes.
extern "C" __attribute__((visibility("default"))) binder_status_t AIBinder_transact(
    AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out, binder_flags_t flags) {
    TransactSpy* const spy = TransactSpy::sCurrent;
    if (spy != nullptr) spy->calls.push_back({binder, code, flags, (*in)->bytes()});
    if (spy == nullptr || !spy->answer) return realTransact(binder, code, in, out, flags);
    AParcel_delete(std::exchange(*in, nullptr));
    return spy->answer(out);
}

class ServiceCalls : public testing::Test {
  protected:
    TransactSpy spy;
    std::shared_ptr<Service> service = SharedRefBase::make<Service>();
    ::ndk::SpAIBinder binder = service->asBinder();
    std::shared_ptr<BpLumService> proxy = SharedRefBase::make<BpLumService>(binder);
};

TEST_F(ServiceCalls, SendBlob) {
    const struct {
        LumSdkType type;
        Blob blob;
        std::string arguments;
        std::string arrived;
    } rows[] = {
        {LumSdkType::SDF,
         {1, 2, 3, 4, 5},
         "05000000 05000000 01020304 05000000",
         "sendBlob SDF [01 02 03 04 05]"},
        {LumSdkType::NONE, {}, "00000000 00000000", "sendBlob NONE []"},
        {static_cast<LumSdkType>(-7), {}, "f9ffffff 00000000", "sendBlob -7 []"},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(proxy->sendBlob(row.type, row.blob).isOk());
        expectCall(spy.calls.back(), binder.get(), 2, kTwoWay, kServiceToken, row.arguments);
        EXPECT_EQ(row.arrived, service->log.back());
    }
    EXPECT_EQ(3U, spy.calls.size());
    EXPECT_EQ(3U, service->log.size());
}

TEST_F(ServiceCalls, RegisterBlobCallback) {
    const auto callback = SharedRefBase::make<Callback>();
    EXPECT_TRUE(proxy->registerBlobCallback(callback).isOk());
    ASSERT_EQ(1U, spy.calls.size());
    expectCall(spy.calls[0], binder.get(), 1, kTwoWay, kServiceToken, kObject);
    EXPECT_EQ(callback, service->callback);
}

TEST_F(ServiceCalls, NullIsHandedOver) {
    service->callback = SharedRefBase::make<Callback>();
    EXPECT_TRUE(proxy->registerBlobCallback(nullptr).isOk());
    ASSERT_EQ(1U, spy.calls.size());
    // The flat object of a null reference has undeclared stability.
    expectCall(spy.calls[0], binder.get(), 1, kTwoWay, kServiceToken,
               "852a6273 13000000 00000000 00000000 00000000 00000000 00000000");
    EXPECT_EQ(std::vector<std::string>{"registerBlobCallback"}, service->log);
    EXPECT_EQ(nullptr, service->callback);
}

TEST_F(ServiceCalls, AnotherInterfaceIsHandedOverAsNull) {
    service->callback = SharedRefBase::make<Callback>();
    ::ndk::ScopedAParcel request;
    ::ndk::ScopedAParcel reply;
    EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(binder.get(), request.getR()));
    EXPECT_EQ(STATUS_OK, AParcel_writeStrongBinder(request.get(), binder.get()));
    EXPECT_EQ(STATUS_OK, realTransact(binder.get(), 1, request.getR(), reply.getR(), 0));
    EXPECT_EQ(std::vector<std::string>{"registerBlobCallback"}, service->log);
    EXPECT_EQ(nullptr, service->callback);
}

TEST_F(ServiceCalls, Replies) {
    const std::string request = kServiceToken + "05000000 00000000";
    EXPECT_EQ("00 00 00 00", replyTo(binder.get(), 2, request));

    // Exception, message (in UTF-16), nothing about where it happened, the service's own code.
    service->answer = [] { return ScopedAStatus::fromServiceSpecificErrorWithMessage(7, "no"); };
    EXPECT_EQ(toHex(fromHex("f8ffffff 02000000 6e006f00 00000000 00000000 07000000")),
              replyTo(binder.get(), 2, request));
    const ScopedAStatus status = proxy->sendBlob(LumSdkType::SDF, {});
    EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode());
    EXPECT_EQ(7, status.getServiceSpecificError());
    EXPECT_STREQ("no", status.getMessage());

    service->answer = [] { return ScopedAStatus::fromStatus(STATUS_NO_INIT); };
    EXPECT_EQ(STATUS_NO_INIT, callWithBytes(binder.get(), 2, request));
    EXPECT_EQ(STATUS_NO_INIT, proxy->sendBlob(LumSdkType::SDF, {}).getStatus());
}

TEST_F(ServiceCalls, CutRequests) {
    expectRefusedWhenCut(binder.get(), 1, kServiceToken, kObject);
    expectRefusedWhenCut(binder.get(), 2, kServiceToken, "05000000 05000000 01020304 05000000");
    EXPECT_TRUE(service->log.empty());
}

TEST_F(ServiceCalls, RefusedRequests) {
    std::string otherLength = kServiceToken;
    otherLength.replace(36, 2, "25");  // byte 12, the descriptor's length: 37
    const std::string head = kServiceToken + "05000000";
    const struct {
        transaction_code_t code;
        std::string request;
        binder_status_t status;
    } rows[] = {
        // Bytes alone are no callback.
        {1, kServiceToken + kObject, STATUS_BAD_TYPE},
        // A blob that is none: there is no space for that.
        {2, head + "ffffffff", STATUS_NO_MEMORY},
        // The token of another interface, a wrong one, none.
        {2, kCallbackToken + "05000000 00000000", STATUS_BAD_TYPE},
        {2, otherLength + "05000000 00000000", STATUS_BAD_TYPE},
        {2, "05000000 00000000", STATUS_BAD_TYPE},
        // Codes that there are not.
        {3, head + "00000000", STATUS_UNKNOWN_TRANSACTION},
        {0x00ffffff, head + "00000000", STATUS_UNKNOWN_TRANSACTION},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.status, callWithBytes(binder.get(), row.code, row.request)) << row.request;
    }
    EXPECT_TRUE(service->log.empty());
}

TEST_F(ServiceCalls, MoreThanTheArgumentsIsIgnored) {
    EXPECT_EQ(STATUS_OK, callWithBytes(binder.get(), 2,
                                       kServiceToken + "05000000 01000000 2a000000 99999999"));
    EXPECT_EQ(std::vector<std::string>{"sendBlob SDF [2A]"}, service->log);
}

TEST_F(ServiceCalls, FailedTransaction) {
    for (const binder_status_t failed : {STATUS_DEAD_OBJECT, STATUS_UNKNOWN_TRANSACTION}) {
        spy.answer = [failed](AParcel**) { return failed; };
        const ScopedAStatus status = proxy->sendBlob(LumSdkType::SDF, {});
        EXPECT_EQ(EX_TRANSACTION_FAILED, status.getExceptionCode());
        EXPECT_EQ(failed, status.getStatus());
    }
    spy.answer = [](AParcel** out) {
        *out = AParcel_create();  // an empty reply
        return STATUS_OK;
    };
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, proxy->sendBlob(LumSdkType::SDF, {}).getStatus());
}

TEST_F(ServiceCalls, UnknownTransactionGoesToTheDefault) {
    EXPECT_FALSE(ILumService::setDefaultImpl(nullptr));
    EXPECT_EQ(nullptr, ILumService::getDefaultImpl());
    const auto fallback = SharedRefBase::make<Service>();
    EXPECT_TRUE(ILumService::setDefaultImpl(fallback));
    EXPECT_EQ(fallback, ILumService::getDefaultImpl());

    EXPECT_TRUE(proxy->sendBlob(LumSdkType::SDF, {1}).isOk());
    EXPECT_TRUE(fallback->log.empty()) << "the service knows this one";
    spy.answer = [](AParcel**) { return STATUS_UNKNOWN_TRANSACTION; };
    EXPECT_TRUE(proxy->sendBlob(LumSdkType::SDF, {2}).isOk());
    EXPECT_TRUE(proxy->registerBlobCallback(SharedRefBase::make<Callback>()).isOk());
    EXPECT_EQ((std::vector<std::string>{"sendBlob SDF [02]", "registerBlobCallback"}),
              fallback->log);
}

class CallbackCalls : public testing::Test {
  protected:
    TransactSpy spy;
    std::shared_ptr<Callback> callback = SharedRefBase::make<Callback>();
    ::ndk::SpAIBinder binder = callback->asBinder();
    std::shared_ptr<BpLumServiceCallback> proxy = SharedRefBase::make<BpLumServiceCallback>(binder);
};

TEST_F(CallbackCalls, SendBlob) {
    EXPECT_TRUE(proxy->sendBlob(LumSdkType::FEATURE_11, {0xfe}).isOk());
    ASSERT_EQ(1U, spy.calls.size());
    expectCall(spy.calls[0], binder.get(), 1, kOneWay, kCallbackToken,
               "0b000000 01000000 fe000000");
    EXPECT_EQ(std::vector<std::string>{"sendBlob FEATURE_11 [FE]"}, callback->log);
}

TEST_F(CallbackCalls, ThereIsNoReply) {
    EXPECT_EQ("", replyTo(binder.get(), 1, kCallbackToken + "05000000 00000000"));
    EXPECT_EQ(1U, callback->log.size());
}

TEST(DppdCalls, EveryMethod) {
    TransactSpy spy;
    const auto served = SharedRefBase::make<DppdCallback>();
    const ::ndk::SpAIBinder binder = served->asBinder();
    const auto proxy = SharedRefBase::make<BpLumDppdServiceCallback>(binder);
    const DataRecommendation recommendation{1, 2};
    const SubModeInfo info{3, 4};
    const std::string recommendationText = "DataRecommendation{subscription: 1, action: 2}";
    const std::string infoText = "SubModeInfo{subscription: 3, mode: 4}";
    // Structures: a word that they are there, their size, their fields.
    const std::string recommendationBytes = "01000000 0c000000 01000000 02000000";
    const std::string infoBytes = "01000000 0c000000 03000000 04000000";

    const struct {
        std::function<ScopedAStatus()> call;
        std::string arguments;
        std::string arrived;
    } cases[] = {
        {[&] { return proxy->notifyDppdCapability(true); }, "01000000", "notifyDppdCapability 1"},
        {[&] { return proxy->getDppdCapabilityResponse(false); }, "00000000",
         "getDppdCapabilityResponse 0"},
        {[&] { return proxy->notifyDppdRecommendation(recommendation); }, recommendationBytes,
         "notifyDppdRecommendation " + recommendationText},
        {[&] { return proxy->getDppdRecommendationResponse(recommendation); }, recommendationBytes,
         "getDppdRecommendationResponse " + recommendationText},
        {[&] { return proxy->updateDppdUiResponse(true); }, "01000000", "updateDppdUiResponse 1"},
        {[&] { return proxy->notifyMultiSimSubModeInfo(info); }, infoBytes,
         "notifyMultiSimSubModeInfo " + infoText},
        {[&] { return proxy->getMultiSimSubModeInfoResponse(Status::FAILURE, info); },
         "01000000" + infoBytes, "getMultiSimSubModeInfoResponse FAILURE " + infoText},
    };
    transaction_code_t code = 0;
    for (const auto& one : cases) {
        ++code;
        served->log.clear();
        EXPECT_TRUE(one.call().isOk());
        ASSERT_EQ(code, spy.calls.size());
        expectCall(spy.calls.back(), binder.get(), code, kOneWay, kDppdToken, one.arguments);
        EXPECT_EQ(std::vector<std::string>{one.arrived}, served->log);

        served->log.clear();
        expectRefusedWhenCut(binder.get(), code, kDppdToken, one.arguments);
        EXPECT_TRUE(served->log.empty());
    }
    EXPECT_EQ(7U, code);
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, callWithBytes(binder.get(), 8, kDppdToken));
}

TEST(Interfaces, BinderKeepsItsObjectAndIsOneWhileSomebodyHoldsIt) {
    auto service = SharedRefBase::make<Service>();
    const std::weak_ptr<Service> seen = service;
    std::vector<::ndk::SpAIBinder> binders(8);
    Threads(8, [&](int i) { binders[static_cast<size_t>(i)] = service->asBinder(); }).join();
    EXPECT_EQ(std::vector<::ndk::SpAIBinder>(8, service->asBinder()), binders);
    EXPECT_FALSE(service->isRemote());
    binders.clear();
    ::ndk::SpAIBinder another = service->asBinder();
    EXPECT_EQ(another, service->asBinder());
    service.reset();
    EXPECT_EQ(STATUS_OK, AIBinder_ping(another.get()));
    EXPECT_FALSE(seen.expired());
    another.set(nullptr);
    EXPECT_TRUE(seen.expired());
}

TEST(Interfaces, FromBinder) {
    const auto service = SharedRefBase::make<Service>();
    EXPECT_EQ(service, ILumService::fromBinder(service->asBinder()));
    EXPECT_EQ(nullptr, ILumService::fromBinder(::ndk::SpAIBinder()));
    EXPECT_EQ(nullptr, ILumServiceCallback::fromBinder(service->asBinder()));
}

TEST(Interfaces, DefaultKnowsNoTransaction) {
    const auto service = SharedRefBase::make<ILumServiceDefault>();
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, service->sendBlob(LumSdkType::SDF, {}).getStatus());
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, service->registerBlobCallback(nullptr).getStatus());
    EXPECT_EQ(nullptr, service->asBinder().get());
    EXPECT_FALSE(service->isRemote());
}
