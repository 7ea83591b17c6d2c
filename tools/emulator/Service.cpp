// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/Service.h"

#include <android/binder_ibinder.h>

#include <utility>

struct Service::Core {
    Core(DataService::Config config, ClientTable& clients, std::shared_ptr<MessageLog> log)
        : work(std::move(config), clients, thread.timeline(), std::move(log)) {}
    ~Core() { thread.stop(); }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    ServiceThread thread;
    DataService work;
};

namespace {

Caller caller() {
    return {AIBinder_getCallingPid(), AIBinder_getCallingUid()};
}

ndk::ScopedAStatus stopped() {
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

}  // namespace

Service::Service(DataService::Config config, ClientTable& clients, std::shared_ptr<MessageLog> log)
    : mCore(std::make_shared<Core>(std::move(config), clients, std::move(log))) {
    clients.onDied([core = std::weak_ptr<Core>(mCore)](const ClientTable::ClientPtr& client) {
        const std::shared_ptr<Core> still = core.lock();
        if (still == nullptr) return;
        still->thread.post([work = &still->work, client] { work->died(*client); });
    });
}

ndk::ScopedAStatus Service::registerBlobCallback(const std::shared_ptr<Callback>& callback) {
    ndk::ScopedAStatus status = stopped();
    const Caller who = caller();
    mCore->thread.run([&] { status = mCore->work.admit(who, callback); });
    return status;
}

ndk::ScopedAStatus Service::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    ndk::ScopedAStatus status = stopped();
    const Caller who = caller();
    mCore->thread.run([&] { status = mCore->work.take(who, static_cast<int32_t>(type), blob); });
    return status;
}

void Service::inspect(std::function<void(const DataService&)> look) {
    mCore->thread.post([work = &mCore->work, look = std::move(look)] { look(*work); });
}

void Service::stop() {
    mCore->thread.stop();
}
