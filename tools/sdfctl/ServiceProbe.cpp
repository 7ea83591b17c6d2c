// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/ServiceProbe.h"

#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/ILumService.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "proto/SdfProto.pb.h"

namespace {

using aidl::vendor::orn::data::lumservice::BnLumServiceCallback;
using aidl::vendor::orn::data::lumservice::ILumService;
using aidl::vendor::orn::data::lumservice::LumSdkType;

// What the service has sent, from binder threads to the one that waits. Shared, since the service
// may hold the callback object for longer than the probe lives.
class Inbox {
  public:
    void put(const SdfProto::ClientMsg& message) {
        const std::lock_guard<std::mutex> guard(mLock);
        mMessages.push_back(message);
        mChanged.notify_all();
    }

    // The first message of that kind; none when there is none in time.
    std::optional<SdfProto::ClientMsg> waitFor(SdfProto::ClientEventId event,
                                               std::chrono::duration<double> limit) {
        std::unique_lock<std::mutex> guard(mLock);
        std::optional<SdfProto::ClientMsg> found;
        mChanged.wait_for(guard, limit, [&] {
            for (const SdfProto::ClientMsg& message : mMessages) {
                if (message.event_id() == event) found = message;
            }
            return found.has_value();
        });
        return found;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<SdfProto::ClientMsg> mMessages;
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

std::string textOf(const ndk::ScopedAStatus& status) {
    return status.isOk() ? "" : status.getDescription();
}

// A service may take a call and never return from it, so each call has a thread of its own.
// Returns what the call returned; none when that did not come in time.
std::optional<std::string> call(std::function<std::string()> body,
                                std::chrono::duration<double> limit) {
    std::packaged_task<std::string()> task(std::move(body));
    std::future<std::string> result = task.get_future();
    std::thread thread(std::move(task));
    if (result.wait_for(limit) != std::future_status::ready) {
        thread.detach();
        return std::nullopt;
    }
    thread.join();  // with everything that it holds of the service
    return result.get();
}

}  // namespace

struct ServiceProbe::Parts {
    std::shared_ptr<ILumService> service;
    const std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>();
    const std::shared_ptr<ProbeCallback> callback = ndk::SharedRefBase::make<ProbeCallback>(inbox);

    std::string find() {
        const ndk::SpAIBinder binder(AServiceManager_checkService(ILumService::descriptor));
        if (binder.get() == nullptr) {
            return std::string("nobody serves the name ") + ILumService::descriptor;
        }
        service = ILumService::fromBinder(binder);
        return service ? "" : "what has the service's name is something else";
    }
};

ServiceProbe::ServiceProbe(double limit) : mLimit(limit), mParts(std::make_shared<Parts>()) {}

ServiceProbe::~ServiceProbe() = default;

std::string ServiceProbe::find() {
    return resultOf(call([parts = mParts] { return parts->find(); }, mLimit));
}

std::string ServiceProbe::registerCallback() {
    ABinderProcess_startThreadPool();
    return resultOf(call(
        [parts = mParts] { return textOf(parts->service->registerBlobCallback(parts->callback)); },
        mLimit));
}

std::string ServiceProbe::sendEnable() {
    return send(enableMessage(true));
}

std::string ServiceProbe::waitForUp() {
    const auto message = mParts->inbox->waitFor(SdfProto::STATUS_IND, mLimit);
    if (!message) return "it says nothing";
    const SdfProto::Status status = message->data().status_msg().status();
    if (status == SdfProto::SERVICE_UP) return "";
    return "its status is " + (SdfProto::Status_IsValid(status) ? SdfProto::Status_Name(status)
                                                                : std::to_string(status));
}

std::string ServiceProbe::askForFilters() {
    SdfProto::ServiceMsg request;
    request.set_event_id(SdfProto::GET_FILTERS);
    std::string sent = send(encode(request));
    if (!sent.empty()) return sent;
    const auto message = mParts->inbox->waitFor(SdfProto::GET_FILTER_CB, mLimit);
    return message ? "" : "it says nothing";
}

std::string ServiceProbe::sendDisable() {
    return send(enableMessage(false));
}

std::string ServiceProbe::send(const std::vector<uint8_t>& bytes) {
    return resultOf(
        call([parts = mParts,
              bytes] { return textOf(parts->service->sendBlob(LumSdkType::SDF, bytes)); },
             mLimit));
}

std::string ServiceProbe::resultOf(const std::optional<std::string>& returned) {
    mStuck = !returned.has_value();
    return returned.value_or("the call does not return");
}
