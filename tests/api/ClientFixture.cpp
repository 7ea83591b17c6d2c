// SPDX-License-Identifier: Apache-2.0
#include "tests/api/ClientFixture.h"

#include <mutex>
#include <utility>

#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

const char kEnable[] = "5: 1A 04 0A 02 08 01";
const char kDisable[] = "5: 1A 02 0A 00 release";

namespace {

struct Record {
    std::mutex lock;
    std::vector<std::string> calls;
    std::map<std::string, std::function<void()>> actions;
};

Record& record() {
    static auto* const instance = new Record;
    return *instance;
}

void called(const std::string& callback, const std::string& arguments) {
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(record().lock);
        record().calls.push_back(callback + "(" + arguments + ")");
        const auto found = record().actions.find(callback);
        if (found != record().actions.end()) action = found->second;
    }
    if (action) action();
}

std::string text(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    return std::to_string(id) + "," + std::to_string(first) + "," + std::to_string(second);
}

}  // namespace

namespace app {

void onV2(int status) {
    called("v2", std::to_string(status));
}
void onOtherV2(int status) {
    called("otherV2", std::to_string(status));
}
void onLegacy(status_e status) {
    called("legacy", std::to_string(status));
}
void onOtherLegacy(status_e status) {
    called("otherLegacy", std::to_string(status));
}
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    called("levels", text(id, first, second));
}
void onOtherLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    called("otherLevels", text(id, first, second));
}

std::vector<std::string> takeCalls() {
    const std::lock_guard<std::mutex> lock(record().lock);
    return std::exchange(record().calls, {});
}

void inside(const std::string& callback, std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(record().lock);
    record().actions[callback] = std::move(action);
}

void note(const std::string& line) {
    const std::lock_guard<std::mutex> lock(record().lock);
    record().calls.push_back(line);
}

void reset() {
    const std::lock_guard<std::mutex> lock(record().lock);
    record().calls.clear();
    record().actions.clear();
}

}  // namespace app

std::string service::effectiveLevels(const std::string& idVarint) {
    return "08 01 10 " + idVarint + " 1A 06 12 04 08 05 10 02";
}

ClientTest::ClientTest() {
    FakeSdkClient::reset();
    app::reset();
    scriptRand({});
}

ClientTest::~ClientTest() {
    app::reset();
    sdk().duringGet = nullptr;
    sdk().duringDestroy = nullptr;
    destroySdfClient();
    std::atomic_store(&Sdf::mInstance, std::shared_ptr<Sdf>());
    FakeSdkClient::reset();
}

void ClientTest::report(SdkClientBase::SdkStatus status, const std::string& hex) {
    // The transport calls a copy, which may be the last to hold the client.
    const SdkClientBase::Listener listener = sdk().listener;
    ASSERT_TRUE(listener);
    listener(status, fromHex(hex));
}

void ClientTest::startUp() {
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    receive(service::statusInd("06"));
    ASSERT_TRUE(client().mServiceUp);
    sdk().transport->take();
    app::takeCalls();
}
