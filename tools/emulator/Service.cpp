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

    // Has the thread carry out a client's call, and waits for it. Lets no exception out: the binder
    // runtime, which calls, knows none.
    template <typename Call>
    ndk::ScopedAStatus call(const Call& call) try {
        ndk::ScopedAStatus status = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);  // stopped
        thread.run([&] { status = call(work); });
        return status;
    } catch (...) {
        // The client is told, and nobody else: there may be no memory left for words.
        return ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_ERROR);
    }

    ServiceThread thread;
    DataService work;
};

namespace {

Caller caller() {
    return {AIBinder_getCallingPid(), AIBinder_getCallingUid()};
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
    const Caller who = caller();
    return mCore->call([&](DataService& work) { return work.admit(who, callback); });
}

ndk::ScopedAStatus Service::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    const Caller who = caller();
    return mCore->call(
        [&](DataService& work) { return work.take(who, static_cast<int32_t>(type), blob); });
}

void Service::inspect(std::function<void(const DataService&)> look) {
    mCore->thread.post([work = &mCore->work, look = std::move(look)] { look(*work); });
}

void Service::stop() {
    mCore->thread.stop();
}
