// SPDX-License-Identifier: Apache-2.0
#include "tests/api/ClientFixture.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

const char kEnable[] = "5: 1A 04 0A 02 08 01";
const char kDisable[] = "5: 1A 02 0A 00 release";

namespace {

struct Record {
    std::mutex lock;
    std::vector<std::string> calls;
    std::map<std::string, std::function<void()>> actions;
    std::string autoInfo;
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

// The numbers, with commas between them.
template <typename... Numbers>
std::string text(long long first, Numbers... rest) {
    return (std::to_string(first) + ... + ("," + std::to_string(rest)));
}

void calledAuto(const std::string& callback, unsigned int id, const SdfAddFilterInfo& info) {
    {
        const std::lock_guard<std::mutex> lock(record().lock);
        record().autoInfo = bytesOf(info);
    }
    called(callback, text(id));
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

void onFilterStatus(unsigned int id, SdfFilterStatus status) {
    called("filterStatus", text(id, status));
}
void onOtherFilterStatus(unsigned int id, SdfFilterStatus status) {
    called("otherFilterStatus", text(id, status));
}
void onAdded(unsigned int id, SdfFilterStatus status) {
    called("added", text(id, status));
}
void onOtherAdded(unsigned int id, SdfFilterStatus status) {
    called("otherAdded", text(id, status));
}
void onFilter(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer) {
    called("filter", text(id, status, first, second, ood, pdcpTimer));
}
void onOtherFilter(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first,
                   SdfLatencyLvl second, SdfOod ood, unsigned int pdcpTimer) {
    called("otherFilter", text(id, status, first, second, ood, pdcpTimer));
}
void onReports(unsigned int key, uint64_t first, uint64_t second) {
    called("reports", text(key, first, second));
}
void onOtherReports(unsigned int key, uint64_t first, uint64_t second) {
    called("otherReports", text(key, first, second));
}
void onReport(unsigned int key, uint64_t first, uint64_t second) {
    called("report", text(key, first, second));
}
void onOtherReport(unsigned int key, uint64_t first, uint64_t second) {
    called("otherReport", text(key, first, second));
}
void onAuto(unsigned int id, SdfAddFilterInfo info) {
    calledAuto("auto", id, info);
}
void onOtherAuto(unsigned int id, SdfAddFilterInfo info) {
    calledAuto("otherAuto", id, info);
}

std::string autoInfo() {
    const std::lock_guard<std::mutex> lock(record().lock);
    return record().autoInfo;
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

std::string bytesOf(const SdfAddFilterInfo& info) {
    const auto* const first = reinterpret_cast<const uint8_t*>(&info);
    return toHex(std::vector<uint8_t>(first, first + sizeof info));
}

std::string service::effectiveLevels(const std::string& idVarint) {
    return "08 01 10 " + idVarint + " 1A 06 12 04 08 05 10 02";
}

std::string service::field(const std::string& tag, const std::string& contents) {
    const std::vector<uint8_t> bytes = fromHex(contents);
    if (bytes.size() > 127) throw std::invalid_argument("more than 127 bytes: " + contents);
    return tag + " " + toHex(std::vector<size_t>{bytes.size()}) + " " + contents;
}

std::string service::message(int event, int bodyOf, const std::string& body) {
    // The bodies' fields are 1 to 7, in the order of the events 0 to 6.
    const std::string tag = toHex(std::vector<int>{(bodyOf + 1) * 8 + 2});
    return "08 " + toHex(std::vector<int>{event}) + " " + field("1A", field(tag, body));
}

std::string service::message(int event, const std::string& body) {
    return message(event, event, body);
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

void ClientTest::startUpWithAll() {
    startUp();
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    client().mFilterIds = {kFilterId};
    scriptRand({7, 8});
    ASSERT_EQ(sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false,
                               app::onLevels),
              7);
    ASSERT_EQ(sdfAddFilter(makeFlow(), app::onAdded), 8);
    ASSERT_EQ(sdfRegFilterStatus(app::onFilterStatus), 0);
    ASSERT_EQ(sdfGetFilters(app::onFilter), 0);
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 1, app::onReports), 0);
    ASSERT_EQ(sdfGetPriorityQueueReport(app::onReport), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(app::onAuto), 0);
    sdk().transport->take();
}
