// SPDX-License-Identifier: Apache-2.0
// A request through the library, and through a session, to a service in another process that
// answers at once; the first creation of a client; and a client at rest.
#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <lum_sdf_sdk.h>
#include <lum_sdf_session.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bench/requests.h"
#include "proto/SdfProto.pb.h"

namespace {

using Clock = std::chrono::steady_clock;
using aidl::vendor::orn::data::lumservice::BnLumService;
using aidl::vendor::orn::data::lumservice::ILumServiceCallback;
using aidl::vendor::orn::data::lumservice::LumSdkType;

class Service : public BnLumService {
  public:
    ndk::ScopedAStatus registerBlobCallback(
        const std::shared_ptr<ILumServiceCallback>& callback) override {
        const std::lock_guard<std::mutex> lock(mLock);
        mCallback = callback;
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override {
        SdfProto::ServiceMsg request;
        request.ParseFromArray(blob.data(), static_cast<int>(blob.size()));
        SdfProto::ClientMsg answer;
        SdfProto::ClientData& body = *answer.mutable_data();
        if (request.event_id() == SdfProto::ENABLE) {
            if (!request.data().enable_msg().enable()) return ndk::ScopedAStatus::ok();
            body.mutable_status_msg()->set_status(SdfProto::SERVICE_UP);
        } else {
            answer.set_event_id(SdfProto::EFFECTIVE_LEVELS_CB);
            answer.set_unique_id(request.unique_id());
            const SdfProto::SetLatencyLevel& wanted = request.data().set_latency_level();
            body.mutable_effective_levels_cb()->set_first_level(wanted.first_level());
            body.mutable_effective_levels_cb()->set_second_level(wanted.second_level());
        }
        std::vector<uint8_t> bytes(answer.ByteSizeLong());
        answer.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
        std::shared_ptr<ILumServiceCallback> callback;
        {
            const std::lock_guard<std::mutex> lock(mLock);
            callback = mCallback;
        }
        return callback->sendBlob(type, bytes);
    }

  private:
    std::mutex mLock;
    std::shared_ptr<ILumServiceCallback> mCallback;
};

void serve(const std::string& /*argument*/) {
    const auto service = ndk::SharedRefBase::make<Service>();
    ABinderProcess_startThreadPool();
    if (AServiceManager_addService(service->asBinder().get(), Service::descriptor) != STATUS_OK) {
        abort();
    }
    Helper::report(0);
    pause();
}

// Client and service meet in the benchmarks' own directory.
Helper startService() {
    setenv("LUM_BINDER_DIR", (socketDirectory() + "/binder").c_str(), 1);
    return Helper("service");
}

const Answers& statuses() {
    static const Answers answers;
    return answers;
}
const Answers& levels() {
    static const Answers answers;
    return answers;
}

void onStatus(int status) {
    if (status == SDF_V2_SERVICE_UP) statuses().add();
}
void onLevels(long long /*id*/, SdfLatencyLvl /*first*/, SdfLatencyLvl /*second*/) {
    levels().add();
}

// Creates the client and returns when the service is up; the time that took in nanoseconds.
int64_t create() {
    statuses();
    const Clock::time_point start = Clock::now();
    createSdfClient(onStatus);
    statuses().wait(1);
    return std::chrono::nanoseconds(Clock::now() - start).count();
}

void reportCreate(const std::string& /*argument*/) {
    Helper::report(create());
    pause();
}
const bool gRoles = Helper::addRole("service", serve) && Helper::addRole("create", reportCreate);

class Library {
  public:
    Library() { create(); }
    ~Library() { destroySdfClient(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    std::vector<pid_t> others() const { return {mService.pid()}; }
    void send() {
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, true, onLevels);
    }
    void wait(int count) { levels().wait(count); }

  private:
    const Helper mService = startService();
};
const bool gLibrary = registerRequests<Library>("ours", {1, 64});

// Levels that are requested anew: one request at a time, as a session replaces what it has not
// sent.
class Session {
  public:
    Session() {
        sdfSessionOpen(nullptr, nullptr, &mSession);
        dispatchUntil([this] { return sdfSessionGetState(mSession) == SDF_SESSION_UP; });
    }
    ~Session() { sdfSessionClose(mSession, 10'000); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    std::vector<pid_t> others() const { return {mService.pid()}; }
    void send() {
        mLevel = mLevel == SDF_LATENCY_LVL_3 ? SDF_LATENCY_LVL_4 : SDF_LATENCY_LVL_3;
        const auto count = [](SdfSession*, SdfSlotID, int, SdfLatencyLvl, SdfLatencyLvl,
                              void* self) { ++static_cast<Session*>(self)->mAnswered; };
        sdfSessionSetLevels(mSession, SDF_SLOT_ID_FIRST, mLevel, mLevel, true, count, this);
    }
    void wait(int count) {
        dispatchUntil([this, count] { return mAnswered == count; });
        mAnswered = 0;
    }

  private:
    template <typename Condition>
    void dispatchUntil(const Condition& condition) {
        pollfd readable{sdfSessionFd(mSession), POLLIN, 0};
        while (!condition()) {
            poll(&readable, 1, -1);
            sdfSessionDispatch(mSession);
        }
    }

    const Helper mService = startService();
    SdfSession* mSession = nullptr;
    SdfLatencyLvl mLevel = SDF_LATENCY_LVL_3;
    int mAnswered = 0;
};
const bool gSession = registerRequests<Session>("session", {1});

void firstCreate(benchmark::State& state) {
    const Helper service = startService();
    while (state.KeepRunning()) {
        const Helper client("create");
        state.SetIterationTime(static_cast<double>(client.report()) * 1e-9);
    }
}
BENCHMARK(firstCreate)->Name("ours:first create until up")->Iterations(5)->UseManualTime();

// How often the threads of a process have been switched to, but the one of main().
int64_t switches(pid_t pid) {
    int64_t sum = 0;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        if (task.path().filename() == std::to_string(pid)) continue;
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word.find("voluntary_ctxt_switches:") == std::string::npos) continue;
            int64_t count = 0;
            status >> count;
            sum += count;
        }
    }
    return sum;
}

void idle(benchmark::State& state) {
    const Library client;
    const pid_t service = client.others().front();
    // What has been answered is acknowledged behind it.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    while (state.KeepRunning()) {
        const int64_t before = switches(getpid()) + switches(service);
        std::this_thread::sleep_for(std::chrono::seconds(20));
        const int64_t after = switches(getpid()) + switches(service);
        state.counters["count"] = static_cast<double>(after - before);
    }
}
BENCHMARK(idle)->Name("ours:wake-ups in 20 s at rest")->Iterations(1)->UseRealTime();

}  // namespace
