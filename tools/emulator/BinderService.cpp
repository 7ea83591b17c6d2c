// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/BinderService.h"

#include <android/binder_ibinder.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "tools/emulator/LineWriter.h"
#include "tools/emulator/StateText.h"

struct BinderService::Work {
    Work(ServiceLogic::Config config, ClientTable& clients, std::shared_ptr<MessageLog> log)
        : logic(std::move(config), clients, thread.timeline(), std::move(log)) {}
    ~Work() { thread.stop(); }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    // Has the thread carry out a client's call, and waits for it. Lets no exception out: the binder
    // runtime, which calls, knows none.
    template <typename Call>
    ndk::ScopedAStatus call(const Call& call) try {
        ndk::ScopedAStatus status = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);  // stopped
        thread.run([&] { status = call(logic); });
        return status;
    } catch (...) {
        // Only the client learns of it: there may be no memory left for a line.
        return ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_ERROR);
    }

    ServiceThread thread;
    ServiceLogic logic;
};

namespace {

constexpr char kJson[] = "--json";

Caller caller() {
    return {AIBinder_getCallingPid(), AIBinder_getCallingUid()};
}

}  // namespace

BinderService::BinderService(ServiceLogic::Config config, ClientTable& clients,
                             std::shared_ptr<MessageLog> log)
    : mWork(std::make_shared<Work>(std::move(config), clients, std::move(log))) {
    clients.onDied([work = std::weak_ptr<Work>(mWork)](const ClientTable::ClientPtr& client) {
        const std::shared_ptr<Work> still = work.lock();
        if (still == nullptr) return;
        still->thread.post([logic = &still->logic, client] { logic->died(*client); });
    });
}

ndk::ScopedAStatus BinderService::registerBlobCallback(const std::shared_ptr<Callback>& callback) {
    const Caller who = caller();
    return mWork->call([&](ServiceLogic& logic) { return logic.admit(who, callback); });
}

ndk::ScopedAStatus BinderService::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    const Caller who = caller();
    return mWork->call(
        [&](ServiceLogic& logic) { return logic.take(who, static_cast<int32_t>(type), blob); });
}

binder_status_t BinderService::dump(int fd, const char** args, uint32_t numArgs) try {
    const std::vector<std::string> words(args, args + numArgs);
    const auto wrong = std::find_if(words.begin(), words.end(),
                                    [](const std::string& word) { return word != kJson; });
    std::string text;
    if (wrong != words.end()) {
        text = "unknown argument: " + *wrong + "\nusage: [" + kJson + "]";
    } else {
        nlohmann::ordered_json state;
        if (!mWork->thread.run([&] { state = mWork->logic.describe(); })) return STATUS_DEAD_OBJECT;
        text = words.empty() ? asText(state) : state.dump();
    }
    // On this thread, a pool thread, so that nobody else waits for the reader.
    if (LineWriter(fd, false).write(text)) return STATUS_OK;
    return errno == EAGAIN ? STATUS_TIMED_OUT : STATUS_UNKNOWN_ERROR;
} catch (const std::bad_alloc&) {
    return STATUS_NO_MEMORY;
}

void BinderService::inspect(std::function<void(const ServiceLogic&)> look) {
    mWork->thread.post([logic = &mWork->logic, look = std::move(look)] { look(*logic); });
}

void BinderService::stop() {
    mWork->thread.stop();
}
