// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/ServiceProbe.h"

#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/ILumService.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "proto/SdfProto.pb.h"
#include "tools/LimitedCall.h"
#include "tools/place/Place.h"
#include "tools/sdfctl/Waiter.h"
#include "utils/Mutex.h"

namespace {

using aidl::vendor::orn::data::lumservice::BnLumServiceCallback;
using aidl::vendor::orn::data::lumservice::ILumService;
using aidl::vendor::orn::data::lumservice::LumSdkType;

// What the service has sent, from binder threads to the one that waits. Shared, since the service
// may hold the callback object for longer than the probe lives.
class Inbox {
  public:
    void put(const SdfProto::ClientMsg& message) {
        const lum::utils::MutexLock guard(mLock);
        mMessages.push_back(message);
        mChanged.notifyAll();
    }

    // The first message of that kind; none when there is none in time.
    std::optional<SdfProto::ClientMsg> waitFor(SdfProto::ClientEventId event, Time end) {
        const lum::utils::MutexLock guard(mLock);
        for (bool inTime = true;; inTime = mChanged.waitUntil(mLock, end)) {
            auto found = firstOf(mMessages.begin(), mMessages.end(), event);
            if (found || !inTime) return found;
        }
    }

    // The latest message of that kind so far; none when there is none.
    std::optional<SdfProto::ClientMsg> latest(SdfProto::ClientEventId event) {
        const lum::utils::MutexLock guard(mLock);
        return firstOf(mMessages.rbegin(), mMessages.rend(), event);
    }

  private:
    template <typename Iterator>
    static std::optional<SdfProto::ClientMsg> firstOf(Iterator begin, Iterator end,
                                                      SdfProto::ClientEventId event) {
        const auto found = std::find_if(begin, end, [event](const SdfProto::ClientMsg& message) {
            return message.event_id() == event;
        });
        return found == end ? std::nullopt : std::optional<SdfProto::ClientMsg>(*found);
    }

    lum::utils::Mutex mLock;
    lum::utils::Condition mChanged;
    std::vector<SdfProto::ClientMsg> mMessages LUM_GUARDED_BY(mLock);
};

class ProbeCallback : public BnLumServiceCallback {
  public:
    explicit ProbeCallback(std::shared_ptr<Inbox> inbox) : mInbox(std::move(inbox)) {}

    ndk::ScopedAStatus sendBlob(LumSdkType, const std::vector<uint8_t>& blob) override {
        SdfProto::ClientMsg message;
        if (message.ParseFromArray(blob.data(), static_cast<int>(blob.size()))) {
            mInbox->put(message);
        }
        return ndk::ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Inbox> mInbox;
};

std::vector<uint8_t> encode(const SdfProto::ServiceMsg& message) {
    std::vector<uint8_t> bytes(message.ByteSizeLong());
    message.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

std::vector<uint8_t> enableMessage(bool enable) {
    SdfProto::ServiceMsg message;
    message.set_event_id(SdfProto::ENABLE);
    message.mutable_data()->mutable_enable_msg()->set_enable(enable);
    return encode(message);
}

constexpr char kOtherInterfaceAdvice[] =
    "Another program has taken the service's name: end it, and start the service. Where they "
    "meet in a directory, the name is a link in it, "
    "vendor.orn.data.lumservice.ILumService.service, to that program's socket (fuser with the link "
    "names the program).";

Trouble troubleOf(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return {};
    Trouble::Kind kind = Trouble::Kind::kRefused;
    if (status.getExceptionCode() == EX_TRANSACTION_FAILED) {
        const bool died = status.getStatus() == STATUS_DEAD_OBJECT;
        kind = died ? Trouble::Kind::kDied : Trouble::Kind::kBroken;
    }
    return {kind, status.getDescription()};
}

std::string nameOf(SdfProto::Status status) {
    return SdfProto::Status_IsValid(status) ? SdfProto::Status_Name(status)
                                            : std::to_string(status);
}

}  // namespace

struct ServiceProbe::Parts {
    std::shared_ptr<ILumService> service;
    const std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>();
    const std::shared_ptr<ProbeCallback> callback = ndk::SharedRefBase::make<ProbeCallback>(inbox);

    Trouble find() {
        const ndk::SpAIBinder binder(AServiceManager_checkService(ILumService::descriptor));
        if (binder.get() == nullptr) {
            const Obstacle refused = lookUpObstacle(ILumService::descriptor);
            if (!refused.trouble.empty()) {
                return {Trouble::Kind::kOther, refused.trouble, refused.advice};
            }
            return {Trouble::Kind::kOther,
                    std::string("nobody serves the name ") + ILumService::descriptor};
        }
        service = ILumService::fromBinder(binder);
        if (service) return {};
        if (!AIBinder_isAlive(binder.get())) {
            return {Trouble::Kind::kDied, "it died while it was looked up"};
        }
        return {Trouble::Kind::kOther, "what has the service's name is of another interface",
                kOtherInterfaceAdvice};
    }
};

ServiceProbe::ServiceProbe(double limit) : mLimit(limit), mParts(std::make_shared<Parts>()) {}

ServiceProbe::~ServiceProbe() = default;

Trouble ServiceProbe::find() {
    return call([parts = mParts] { return parts->find(); });
}

Trouble ServiceProbe::registerCallback() {
    ABinderProcess_startThreadPool();
    return call([parts = mParts] {
        return troubleOf(parts->service->registerBlobCallback(parts->callback));
    });
}

Trouble ServiceProbe::sendEnable() {
    return send(enableMessage(true));
}

Trouble ServiceProbe::waitForUp() {
    const auto message = mParts->inbox->waitFor(SdfProto::STATUS_IND, inSeconds(mLimit));
    if (!message) return silence();
    const SdfProto::Status status = message->data().status_msg().status();
    if (status == SdfProto::SERVICE_UP) return {};
    return {Trouble::Kind::kOther, "its status is " + nameOf(status)};
}

Trouble ServiceProbe::askForFilters() {
    SdfProto::ServiceMsg request;
    request.set_event_id(SdfProto::GET_FILTERS);
    Trouble sent = send(encode(request));
    if (sent.kind != Trouble::Kind::kNone) return sent;
    const auto answer = mParts->inbox->waitFor(SdfProto::GET_FILTER_CB, inSeconds(mLimit));
    const auto status = mParts->inbox->latest(SdfProto::STATUS_IND);
    if (status && status->data().status_msg().status() != SdfProto::SERVICE_UP) {
        return {Trouble::Kind::kLeft,
                "it then said " + nameOf(status->data().status_msg().status())};
    }
    return answer ? Trouble{} : silence();
}

Trouble ServiceProbe::sendDisable() {
    return send(enableMessage(false));
}

Trouble ServiceProbe::send(const std::vector<uint8_t>& bytes) {
    return call([parts = mParts, bytes] {
        return troubleOf(parts->service->sendBlob(LumSdkType::SDF, bytes));
    });
}

Trouble ServiceProbe::silence() const {
    const bool alive = AIBinder_isAlive(mParts->service->asBinder().get());
    return {alive ? Trouble::Kind::kOther : Trouble::Kind::kDied, "it says nothing"};
}

Trouble ServiceProbe::call(std::function<Trouble()> body) {
    const std::optional<Trouble> trouble = callUntil(inSeconds(mLimit), std::move(body));
    mStuck = !trouble;
    return trouble.value_or(Trouble{Trouble::Kind::kStuck, "the call does not return"});
}
