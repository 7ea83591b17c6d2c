// SPDX-License-Identifier: Apache-2.0
// The client object between an application and the transport's queue: a request until it is posted,
// and what the service sends until the callback has been called. The transport is a stand-in, whose
// loop runs between what is timed.
#include <benchmark/benchmark.h>
#include <lum_sdf_sdk.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <utility>
#include <vector>

#include "api/StackArena.h"
#include "proto/SdfProto.pb.h"
#include "transport/SdkClient.h"
#include "utils/EventManager.h"
#include "utils/LumTimer.h"

namespace {

struct Loop {
    LumTimer loopTimer{nullptr};
    lum::utils::EventManager loopManager;
};

class Transport : private Loop, public SdkClientBase {
  public:
    Transport() : SdkClientBase(&loopTimer, &loopManager) {}

    // Drops what was posted.
    void drain() {
        loopManager.wake();
        loopManager.processEvents(&loopTimer);
    }

    void handleEvent(std::shared_ptr<SdkClientEvent> /*event*/) override {}
    void connectLumSdkClient(LumSdkClientType /*type*/) override {}
    bool isConnected(LumSdkClientType /*type*/) override { return true; }
    bool sendBlobToService(LumSdkClientType /*type*/, std::vector<uint8_t> /*blob*/) override {
        return true;
    }
    void notifyServiceDown(LumSdkClientType /*type*/) override {}
};

std::shared_ptr<Transport> gTransport;
SdkClientBase::Listener gListener;

std::vector<uint8_t> encode(const google::protobuf::MessageLite& message) {
    std::vector<uint8_t> bytes(message.ByteSizeLong());
    message.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

std::vector<uint8_t> serviceUp() {
    SdfProto::ClientMsg message;
    message.mutable_data()->mutable_status_msg()->set_status(SdfProto::SERVICE_UP);
    return encode(message);
}

std::vector<uint8_t> answerTo(int64_t id) {
    SdfProto::ClientMsg message;
    message.set_event_id(SdfProto::EFFECTIVE_LEVELS_CB);
    message.set_unique_id(static_cast<uint64_t>(id));
    auto& levels = *message.mutable_data()->mutable_effective_levels_cb();
    levels.set_first_level(SdfProto::L3);
    levels.set_second_level(SdfProto::L4);
    return encode(message);
}

std::vector<uint8_t> statesOf(int64_t filters) {
    SdfProto::ClientMsg message;
    message.set_event_id(SdfProto::FILTER_STATUS_INDICATION);
    auto& states = *message.mutable_data()->mutable_filter_status_indication();
    for (int64_t i = 0; i < filters; ++i) {
        SdfProto::FilterData& state = *states.add_filters();
        state.set_filter_id(static_cast<uint32_t>(1'000'000 + i));
        state.set_status(SdfProto::FILTER_ACTIVE);
    }
    return encode(message);
}

void onLevels(long long id, SdfLatencyLvl /*first*/, SdfLatencyLvl /*second*/) {
    benchmark::DoNotOptimize(id);
}

int64_t setLatency() {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, true,
                            onLevels);
}

// A client whose service is up, with so many requests on record.
class Client {
  public:
    explicit Client(int64_t onRecord = 0) {
        gTransport = std::make_shared<Transport>();
        createSdfClient([](int /*status*/) {});
        receive(serviceUp());
        for (int64_t i = 0; i < onRecord; ++i) setLatency();
        gTransport->drain();
    }
    ~Client() {
        destroySdfClient();
        gTransport.reset();
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    static void receive(const std::vector<uint8_t>& bytes) {
        gListener(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
    }
};

// What is too short to be timed alone and must be undone, untimed, is done in batches.
constexpr size_t kBatch = 16;

template <typename Body>
void timed(benchmark::State& state, const Body& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(taken.count());
}

#define LUM_BATCHES(function, name) BENCHMARK(function)->Name(name)->UseManualTime()

void countBatches(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBatch));
}

// sdfSetLatencyLvl() with so many requests on record.
void request(benchmark::State& state) {
    const Client client(state.range(0));
    std::array<int64_t, kBatch> ids{};
    while (state.KeepRunning()) {
        timed(state, [&ids] { std::generate(ids.begin(), ids.end(), setLatency); });
        gTransport->drain();
        for (const int64_t id : ids) Client::receive(answerTo(id));
    }
    countBatches(state);
}
LUM_BATCHES(request, "ours:request posted")->Arg(0)->Arg(100)->Arg(1000)->Arg(10'000);

// The message built and encoded, an unused id drawn and recorded with the callback, the event made
// and queued, the descriptor written; one lock for the record, one for the queue.
class FloorClient {
  public:
    FloorClient() : mEvent(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK)) {}
    ~FloorClient() { close(mEvent); }
    FloorClient(const FloorClient&) = delete;
    FloorClient& operator=(const FloorClient&) = delete;

    unsigned int request() {
        unsigned int id = 0;
        {
            const std::lock_guard<std::mutex> lock(mRecordLock);
            while (id == 0 || std::find(mIds.begin(), mIds.end(), id) != mIds.end()) {
                id = static_cast<unsigned int>(rand());
            }
            mIds.push_back(id);
            mCallbacks.emplace(id, onLevels);
        }
        sdf::StackArena<1024> arena;
        auto& message = arena.make<SdfProto::ServiceMsg>();
        message.set_event_id(SdfProto::SET_LATENCY_LEVEL);
        message.set_unique_id(id);
        auto& body = *message.mutable_data()->mutable_set_latency_level();
        body.set_slot_id(SdfProto::SLOT_ID_FIRST);
        body.set_first_level(SdfProto::L3);
        body.set_second_level(SdfProto::L4);
        body.set_level_flag(true);
        std::vector<uint8_t> bytes = encode(message);
        auto event = std::make_shared<SdkClientEvent>(LUM_SDK_CLIENT_SDF, bytes);
        const std::lock_guard<std::mutex> lock(mQueueLock);
        mQueue.push(std::move(event));
        const uint64_t one = 1;
        benchmark::DoNotOptimize(write(mEvent, &one, sizeof one));
        return id;
    }

    void forget(unsigned int id) {
        mIds.erase(std::find(mIds.begin(), mIds.end(), id));
        mCallbacks.erase(id);
    }
    void drain() {
        uint64_t count = 0;
        while (!mQueue.empty()) mQueue.pop();
        while (read(mEvent, &count, sizeof count) > 0) {
        }
    }

  private:
    const int mEvent;
    std::mutex mRecordLock;
    std::mutex mQueueLock;
    std::vector<unsigned int> mIds;
    std::map<unsigned int, SdfEffectiveLevelsCb> mCallbacks;
    std::queue<std::shared_ptr<SdkClientEvent>> mQueue;
};

void floorRequest(benchmark::State& state) {
    FloorClient client;
    for (int64_t i = 0; i < state.range(0); ++i) client.request();
    client.drain();
    std::array<unsigned int, kBatch> ids{};
    while (state.KeepRunning()) {
        timed(state, [&] {
            std::generate(ids.begin(), ids.end(), [&client] { return client.request(); });
        });
        client.drain();
        for (const unsigned int id : ids) client.forget(id);
    }
    countBatches(state);
}
LUM_BATCHES(floorRequest, "floor:request posted")->Arg(0)->Arg(100)->Arg(1000)->Arg(10'000);

// The answer to a request.
void answer(benchmark::State& state) {
    const Client client;
    std::array<std::vector<uint8_t>, kBatch> answers;
    while (state.KeepRunning()) {
        std::generate(answers.begin(), answers.end(), [] { return answerTo(setLatency()); });
        gTransport->drain();
        timed(state,
              [&answers] { std::for_each(answers.begin(), answers.end(), Client::receive); });
    }
    countBatches(state);
}
LUM_BATCHES(answer, "ours:answer dispatched");

// Nothing but reading the message, with memory from the stack.
void parse(const std::vector<uint8_t>& bytes) {
    sdf::StackArena<2048> arena;
    auto& message = arena.make<SdfProto::ClientMsg>();
    message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    benchmark::DoNotOptimize(message.unique_id());
}

void floorAnswer(benchmark::State& state) {
    std::array<std::vector<uint8_t>, kBatch> answers;
    while (state.KeepRunning()) {
        std::generate(answers.begin(), answers.end(), [] { return answerTo(rand()); });
        timed(state, [&answers] { std::for_each(answers.begin(), answers.end(), parse); });
    }
    countBatches(state);
}
LUM_BATCHES(floorAnswer, "floor:answer dispatched");

// So many filters' states in one message, each reported.
void filterStates(benchmark::State& state) {
    const Client client;
    sdfRegFilterStatus(
        [](unsigned int id, SdfFilterStatus /*status*/) { benchmark::DoNotOptimize(id); });
    const std::vector<uint8_t> bytes = statesOf(state.range(0));
    while (state.KeepRunning()) Client::receive(bytes);
}
BENCHMARK(filterStates)
    ->Name("ours:filter states dispatched")
    ->Arg(1)
    ->Arg(20)
    ->Arg(200)
    ->Arg(2000);

void floorFilterStates(benchmark::State& state) {
    const std::vector<uint8_t> bytes = statesOf(state.range(0));
    while (state.KeepRunning()) parse(bytes);
}
BENCHMARK(floorFilterStates)
    ->Name("floor:filter states dispatched")
    ->Arg(1)
    ->Arg(20)
    ->Arg(200)
    ->Arg(2000);

}  // namespace

// In the place of the transport's own.
std::shared_ptr<SdkClient> SdkClient::getInstance(LumSdkClientType /*type*/, Listener listener,
                                                  std::shared_ptr<SdkClientEvent> event,
                                                  std::shared_ptr<SdkClientBase>* published) {
    gTransport->postEvent(std::move(event));
    gListener = std::move(listener);
    *published = gTransport;  // nobody else looks at it yet
    // Only ever compared with null.
    return {gTransport, reinterpret_cast<SdkClient*>(gTransport.get())};
}

void SdkClient::destroyInstance(LumSdkClientType /*type*/) {
    gListener = nullptr;
}
