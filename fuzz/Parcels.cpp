// SPDX-License-Identifier: Apache-2.0
// Parcels of any content, read by every generated reader, by the stubs of every interface, and
// value by value. What is read can be written, and reads equal then.
#include <aidl/vendor/orn/data/lumservice/BnLumDppdServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/DataRecommendation.h>
#include <aidl/vendor/orn/data/lumservice/DataStallParams.h>
#include <aidl/vendor/orn/data/lumservice/DubiousCellInfo.h>
#include <aidl/vendor/orn/data/lumservice/Nr5gNflEntryType.h>
#include <aidl/vendor/orn/data/lumservice/PlmnId.h>
#include <aidl/vendor/orn/data/lumservice/SubModeInfo.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/Input.h"

namespace types = aidl::vendor::orn::data::lumservice;

namespace {

using Status = ndk::ScopedAStatus;

// Methods that take what they are given.
class Service : public types::BnLumService {
    Status registerBlobCallback(
        const std::shared_ptr<types::ILumServiceCallback>& callback) override {
        // From this process, or a proxy of nobody's.
        if (callback != nullptr) (void)callback->asBinder();
        return Status::ok();
    }
    Status sendBlob(types::LumSdkType, const std::vector<uint8_t>& blob) override {
        return blob.empty() ? Status::fromServiceSpecificErrorWithMessage(1, "empty")
                            : Status::ok();
    }
};
class Callback : public types::BnLumServiceCallback {
    Status sendBlob(types::LumSdkType, const std::vector<uint8_t>&) override {
        return Status::ok();
    }
};
class Dppd : public types::BnLumDppdServiceCallback {
    Status notifyDppdCapability(bool) override { return Status::ok(); }
    Status getDppdCapabilityResponse(bool) override { return Status::ok(); }
    Status notifyDppdRecommendation(const types::DataRecommendation& value) override {
        return shown(value);
    }
    Status getDppdRecommendationResponse(const types::DataRecommendation& value) override {
        return shown(value);
    }
    Status updateDppdUiResponse(bool) override { return Status::ok(); }
    Status notifyMultiSimSubModeInfo(const types::SubModeInfo& value) override {
        return shown(value);
    }
    Status getMultiSimSubModeInfoResponse(types::Status, const types::SubModeInfo& value) override {
        return shown(value);
    }
    template <typename Value>
    static Status shown(const Value& value) {
        check(!value.toString().empty(), "shows nothing");
        return Status::ok();
    }
};

template <typename Value>
void readAndWrite(const AParcel* parcel) {
    Value value;
    const binder_status_t status = value.readFromParcel(parcel);
    // As far as it came: what was not read keeps its default.
    (void)value.toString();
    if (status != STATUS_OK) return;
    const ndk::ScopedAParcel written(AParcel_create());
    check(value.writeToParcel(written.get()) == STATUS_OK, "cannot write what was read");
    const int32_t end = AParcel_getDataPosition(written.get());
    check(AParcel_setDataPosition(written.get(), 0) == STATUS_OK, "cannot go back");
    Value again;
    check(again.readFromParcel(written.get()) == STATUS_OK, "cannot read what was written");
    check(again == value, "read something else than was written");
    check(AParcel_getDataPosition(written.get()) == end, "read less than was written");
}

// Calls a method of an object of this process with those arguments.
void call(const ndk::SpAIBinder& object, Input& input) {
    ndk::ScopedAParcel in;
    const uint32_t code = input.pick(10);
    check(AIBinder_prepareTransaction(object.get(), in.getR()) == STATUS_OK, "cannot prepare");
    while (!input.empty()) {
        switch (input.pick(6)) {
            case 0:
                AParcel_writeStrongBinder(in.get(), input.flag() ? object.get() : nullptr);
                break;
            case 1: {
                const std::vector<uint8_t> bytes = input.bytes(input.byte());
                AParcel_writeByteArray(in.get(), reinterpret_cast<const int8_t*>(bytes.data()),
                                       static_cast<int32_t>(bytes.size()));
                break;
            }
            case 2: AParcel_writeInt64(in.get(), input.number<int64_t>()); break;
            default: AParcel_writeInt32(in.get(), input.number<int32_t>()); break;
        }
    }
    ndk::ScopedAParcel out;
    const binder_status_t status = AIBinder_transact(object.get(), code, in.getR(), out.getR(),
                                                     input.flag() ? FLAG_ONEWAY : 0);
    if (status != STATUS_OK || AParcel_getDataSize(out.get()) == 0) return;
    Status header;
    AParcel_readStatusHeader(out.get(), header.getR());
}

// Reads value by value, of whatever kind the input says.
void readValues(const AParcel* parcel, const std::vector<uint8_t>& kinds) {
    for (const uint8_t kind : kinds) {
        const int32_t before = AParcel_getDataPosition(parcel);
        binder_status_t status = STATUS_OK;
        int32_t number = 0;
        int64_t large = 0;
        bool flag = false;
        std::vector<uint8_t> bytes;
        ndk::SpAIBinder binder;
        Status header;
        std::vector<types::PlmnId> list;
        switch (kind % 9) {
            case 0: status = AParcel_readInt32(parcel, &number); break;
            case 1: status = AParcel_readInt64(parcel, &large); break;
            case 2: status = AParcel_readBool(parcel, &flag); break;
            case 3: status = ndk::AParcel_readVector(parcel, &bytes); break;
            case 4: status = AParcel_readStrongBinder(parcel, binder.getR()); break;
            case 5: status = AParcel_readStatusHeader(parcel, header.getR()); break;
            case 6: status = ndk::AParcel_readVector(parcel, &list); break;
            case 7: status = AParcel_setDataPosition(parcel, kind / 2); break;
            default: status = AParcel_setDataPosition(parcel, before); break;
        }
        // Perhaps behind the end, where a size word or the caller has put it.
        const int32_t position = AParcel_getDataPosition(parcel);
        check(position >= 0, "stands in front of the parcel");
        check(status != STATUS_OK || kind % 9 > 6 || position >= before, "read backwards");
        check(binder.get() == nullptr, "made an object of bytes");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const ndk::SpAIBinder kService = ndk::SharedRefBase::make<Service>()->asBinder();
    static const ndk::SpAIBinder kCallback = ndk::SharedRefBase::make<Callback>()->asBinder();
    static const ndk::SpAIBinder kDppd = ndk::SharedRefBase::make<Dppd>()->asBinder();

    Input input(bytes, size);
    const unsigned int what = input.pick(11);
    if (what == 0) call(kService, input);
    if (what == 1) call(kCallback, input);
    if (what == 2) call(kDppd, input);
    if (what < 3) return 0;
    std::vector<uint8_t> kinds;
    if (what == 3) kinds = input.bytes(input.pick(16));
    const ndk::ScopedAParcel parcel(AParcel_create());
    const std::vector<uint8_t> content = input.rest();
    AParcel_unmarshal(parcel.get(), content.data(), content.size());
    AParcel_setDataPosition(parcel.get(), 0);
    switch (what) {
        case 3: readValues(parcel.get(), kinds); break;
        case 4: readAndWrite<types::DataRecommendation>(parcel.get()); break;
        case 5: readAndWrite<types::DataStallParams>(parcel.get()); break;
        case 6: readAndWrite<types::PlmnId>(parcel.get()); break;
        case 7: readAndWrite<types::SubModeInfo>(parcel.get()); break;
        case 8: readAndWrite<types::Nr5gNflEntryType>(parcel.get()); break;
        case 9: readAndWrite<types::DubiousCellInfo>(parcel.get()); break;
        default: readAndWrite<types::DubiousCellInfo::Nr5gScsParams>(parcel.get()); break;
    }
    return 0;
}
