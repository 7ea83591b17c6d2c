// SPDX-License-Identifier: Apache-2.0
#include "tests/api/ClientFixture.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"
#include "tests/support/LogCapture.h"

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

template <typename First, typename... Rest>
void calledWith(const char* callback, First first, Rest... rest) {
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(record().lock);
        const std::string with = (std::to_string(first) + ... + ("," + std::to_string(rest)));
        record().calls.push_back(std::string(callback) + "(" + with + ")");
        const auto found = record().actions.find(callback);
        if (found != record().actions.end()) action = found->second;
    }
    if (action) action();
}

void calledAuto(const char* callback, unsigned int id, const SdfAddFilterInfo& info) {
    {
        const std::lock_guard<std::mutex> lock(record().lock);
        record().autoInfo = bytesOf(info);
    }
    calledWith(callback, id);
}

}  // namespace

namespace app {

const SdfStatusV2Cb onV2 = [](auto... with) { calledWith("v2", with...); };
const SdfStatusV2Cb onOtherV2 = [](auto... with) { calledWith("otherV2", with...); };
const SdfLegacyStatusCb onLegacy = [](auto... with) { calledWith("legacy", with...); };
const SdfLegacyStatusCb onOtherLegacy = [](auto... with) { calledWith("otherLegacy", with...); };
const SdfEffectiveLevelsCb onLevels = [](auto... with) { calledWith("levels", with...); };
const SdfEffectiveLevelsCb onOtherLevels = [](auto... with) { calledWith("otherLevels", with...); };
const SdfFilterStatusCb onFilterStatus = [](auto... with) { calledWith("filterStatus", with...); };
const SdfFilterStatusCb onOtherFilterStatus = [](auto... with) {
    calledWith("otherFilterStatus", with...);
};
const SdfFilterStatusCb onAdded = [](auto... with) { calledWith("added", with...); };
const SdfFilterStatusCb onOtherAdded = [](auto... with) { calledWith("otherAdded", with...); };
const SdfGetFiltersCb onFilter = [](auto... with) { calledWith("filter", with...); };
const SdfGetFiltersCb onOtherFilter = [](auto... with) { calledWith("otherFilter", with...); };
const SdfPriorityQueueReportCb onReports = [](auto... with) { calledWith("reports", with...); };
const SdfPriorityQueueReportCb onOtherReports = [](auto... with) {
    calledWith("otherReports", with...);
};
const SdfPriorityQueueReportCb onReport = [](auto... with) { calledWith("report", with...); };
const SdfPriorityQueueReportCb onOtherReport = [](auto... with) {
    calledWith("otherReport", with...);
};
const SdfAutoFilterInfoCb onAuto = [](auto... with) { calledAuto("auto", with...); };
const SdfAutoFilterInfoCb onOtherAuto = [](auto... with) { calledAuto("otherAuto", with...); };

std::string autoInfo() {
    const std::lock_guard<std::mutex> lock(record().lock);
    return record().autoInfo;
}

Calls takeCalls() {
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
    Sdf::setCurrent(nullptr);
    FakeSdkClient::reset();
}

void ClientTest::report(SdkClientBase::SdkStatus status, const std::string& hex) {
    // The transport calls a copy, which may be the last to hold the client.
    const SdkClientBase::Listener listener = sdk().listener;
    ASSERT_TRUE(listener);
    listener(status, fromHex(hex));
}

Texts ClientTest::effectOf(const std::vector<uint8_t>& bytes) {
    const LogCapture log([](const LogLine& line) {
        app::note((line.nullTag ? "log " : "tagged log ") + std::to_string(line.priority) + ": " +
                  line.text);
    });
    const ClientState before;
    sdk().listener(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
    Texts effect = app::takeCalls();
    const std::string changed = ClientState().differences(before);
    if (!changed.empty()) effect.push_back("changed " + changed);
    return effect;
}

Texts ClientTest::effectOf(const std::string& hex) {
    return effectOf(fromHex(hex));
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
    ASSERT_EQ(setLatency(), 7);
    ASSERT_EQ(sdfAddFilter(makeFlow(), app::onAdded), 8);
    ASSERT_EQ(sdfRegFilterStatus(app::onFilterStatus), 0);
    ASSERT_EQ(sdfGetFilters(app::onFilter), 0);
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 1, app::onReports), 0);
    ASSERT_EQ(sdfGetPriorityQueueReport(app::onReport), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(app::onAuto), 0);
    sdk().transport->take();
}
