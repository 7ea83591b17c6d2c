// SPDX-License-Identifier: Apache-2.0
#include "tests/session/FakeSdk.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>
#include <utility>

#include "tests/session/FlowTo.h"
#include "tests/support/Eventually.h"

namespace {

FakeSdk& sdk() {
    return FakeSdk::instance();
}

std::string describe(const SdfAddFilterInfo& info) {
    sockaddr_in address{};
    memcpy(&address, &info.dest_addr, sizeof address);
    return callText("AddFilter", ntohs(address.sin_port), info.first_level, info.second_level,
                    info.ood, info.pdcp_timer);
}

}  // namespace

FakeSdk& FakeSdk::instance() {
    static FakeSdk fake;
    return fake;
}

void FakeSdk::reset() {
    const std::lock_guard<std::mutex> guard(mLock);
    mCalls.clear();
    mClients.clear();
    mLastId = 0;
    mFailures.clear();
    filterCb = nullptr;
    listCb = nullptr;
    reportCb = nullptr;
    oneReportCb = nullptr;
    autoFilterCb = nullptr;
}

FakeSdk::Lines FakeSdk::take() {
    const std::lock_guard<std::mutex> guard(mLock);
    return std::exchange(mCalls, {});
}

bool FakeSdk::waitForClients(size_t count) {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, kLimit, [&] { return mClients.size() >= count; });
}

size_t FakeSdk::clients() {
    const std::lock_guard<std::mutex> guard(mLock);
    return mClients.size();
}

void FakeSdk::status(int status, size_t client) {
    SdfStatusV2Cb cb = nullptr;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        cb = mClients.at(client - 1);
        if (client == mClients.size()) mUp = status == SDF_V2_SERVICE_UP;
    }
    cb(status);
}

void FakeSdk::answer(unsigned int id, SdfFilterStatus status) {
    SdfFilterStatusCb cb = nullptr;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        cb = mAdds.at(id);
        if (status <= SDF_FILTER_ACTIVE) mFilters.insert(id);
    }
    cb(id, status);
}

void FakeSdk::answerUnsettled(unsigned int id) {
    answer(id);
    const std::lock_guard<std::mutex> guard(mLock);
    mFilters.erase(id);
}

void FakeSdk::settle(unsigned int id) {
    const std::lock_guard<std::mutex> guard(mLock);
    mFilters.insert(id);
}

void FakeSdk::indicate(unsigned int id, SdfFilterStatus status) {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        if (status > SDF_FILTER_ACTIVE) mFilters.erase(id);
    }
    filterCb(id, status);
}

void FakeSdk::levels(unsigned int id, SdfLatencyLvl first, SdfLatencyLvl second) {
    mLevels.at(id)(id, first, second);
}

void FakeSdk::list(const std::vector<unsigned int>& ids) {
    const SdfGetFiltersCb cb = std::exchange(listCb, nullptr);
    for (const unsigned int id : ids) {
        cb(id, SDF_FILTER_ACTIVE, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2, SDF_OOD_ENABLED_LVL, 7);
    }
}

void FakeSdk::report(const std::vector<unsigned int>& keys) {
    const SdfPriorityQueueReportCb once = std::exchange(oneReportCb, nullptr);
    for (const unsigned int key : keys) {
        if (reportCb != nullptr) reportCb(key, 10, 20);
        if (once != nullptr) once(key, 10, 20);
    }
}

void FakeSdk::autoFilter(unsigned int id) {
    autoFilterCb(id, flowTo(static_cast<uint16_t>(id)));
}

void FakeSdk::failNext(const std::string& line, long long result) {
    const std::lock_guard<std::mutex> guard(mLock);
    mFailures.emplace_back(line, result);
}

void FakeSdk::forgetFailures() {
    const std::lock_guard<std::mutex> guard(mLock);
    mFailures.clear();
}

void FakeSdk::hold(bool on) {
    const std::lock_guard<std::mutex> guard(mLock);
    mHeld = on;
    mChanged.notify_all();
}

long long FakeSdk::create(SdfStatusV2Cb cb) {
    std::unique_lock<std::mutex> guard(mLock);
    mCalls.push_back("Create");
    pthread_sigmask(SIG_BLOCK, nullptr, &mBlocked);
    mChanged.wait(guard, [this] { return !mHeld; });
    mClients.push_back(cb);
    mClient = true;
    mUp = false;
    mChanged.notify_all();
    return 0;
}

long long FakeSdk::destroy() {
    std::unique_lock<std::mutex> guard(mLock);
    mCalls.push_back("Destroy");
    mChanged.wait(guard, [this] { return !mHeld; });
    const bool fails = !mFailures.empty() && mFailures.front().first == "Destroy";
    if (fails) {
        const long long result = mFailures.front().second;
        mFailures.pop_front();
        return result;
    }
    mClient = false;
    mUp = false;
    mAdds.clear();
    mLevels.clear();
    mFilters.clear();
    return 0;
}

long long FakeSdk::call(const std::string& line, bool valid) {
    const std::lock_guard<std::mutex> guard(mLock);
    return noted(line, resultOf(line, valid));
}

long long FakeSdk::noted(const std::string& line, long long result) const {
    if (onCall) onCall(line, result);
    return result;
}

long long FakeSdk::resultOf(const std::string& line, bool valid) {
    if (!mClient) return SDF_V2_INVALID_OPERATION;
    mCalls.push_back(line);
    if (!valid) return SDF_V2_INVALID_ARG;
    if (!mFailures.empty() && line.rfind(mFailures.front().first, 0) == 0) {
        const long long result = mFailures.front().second;
        mFailures.pop_front();
        return result;
    }
    return mUp ? SDF_V2_SUCCESS : SDF_V2_SERVICE_DOWN;
}

long long FakeSdk::add(const SdfAddFilterInfo& info, std::optional<unsigned char> extra,
                       SdfFilterStatusCb cb) {
    const std::string line = describe(info) + (extra ? callText(" extra", *extra) : "");
    const std::lock_guard<std::mutex> guard(mLock);
    added = {info, extra};
    const long long result = resultOf(line, true);
    if (result < 0) return noted(line, result);
    mAdds[++mLastId] = cb;
    return noted(line, mLastId);
}

long long FakeSdk::setLevels(const std::string& line, SdfEffectiveLevelsCb cb) {
    const std::lock_guard<std::mutex> guard(mLock);
    const long long result = resultOf(line, true);
    if (result < 0) return noted(line, result);
    mLevels[++mLastId] = cb;
    return noted(line, mLastId);
}

long long FakeSdk::onFilter(const std::string& line, unsigned int id, bool erase) {
    const std::lock_guard<std::mutex> guard(mLock);
    const long long result = resultOf(line, mFilters.count(id) != 0);
    if (result == 0 && erase) mFilters.erase(id);
    return noted(line, result);
}

long long createSdfClient(SdfStatusV2Cb cb) {
    return sdk().create(cb);
}

long long destroySdfClient() {
    return sdk().destroy();
}

long long sdfSetLatencyLvl(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                           SdfEffectiveLevelsCb cb) {
    return sdk().setLevels(callText("SetLatencyLvl", slot, first, second, flag), cb);
}

long long sdfUpdateLatencyLvl(unsigned int id, SdfLatencyLvl first, SdfLatencyLvl second) {
    return sdk().onFilter(callText("UpdateLatencyLvl", id, first, second), id);
}

long long sdfUpdateOod(unsigned int id, SdfOod ood) {
    return sdk().onFilter(callText("UpdateOod", id, ood), id);
}

long long sdfUpdatePdcpTimer(unsigned int id, unsigned int timer) {
    return sdk().onFilter(callText("UpdatePdcpTimer", id, timer), id);
}

long long sdfUpdateTargetDscp(unsigned int id, unsigned int dscp) {
    return sdk().onFilter(callText("UpdateTargetDscp", id, dscp), id);
}

long long sdfUpdateDdsOod(SdfOod ood) {
    return sdk().call(callText("UpdateDdsOod", ood));
}

long long sdfUpdateDdsPdcpTimer(unsigned int timer) {
    return sdk().call(callText("UpdateDdsPdcpTimer", timer));
}

long long sdfEnHighPerfGaming(bool enable) {
    return sdk().call(callText("EnHighPerfGaming", enable));
}

long long sdfPrioritizeData(SdfSlotID slot, bool enable) {
    return sdk().call(callText("PrioritizeData", slot, enable));
}

long long sdfPrioritizeDds(bool enable) {
    return sdk().call(callText("PrioritizeDds", enable));
}

long long sdfRegPriorityQueueReports(bool enable, unsigned int value, SdfPriorityQueueReportCb cb) {
    return sdk().keep(callText("RegPriorityQueueReports", enable, value), sdk().reportCb, cb);
}

long long sdfGetPriorityQueueReport(SdfPriorityQueueReportCb cb) {
    return sdk().keep("GetPriorityQueueReport", sdk().oneReportCb, cb);
}

long long sdfRegAutoFilterInfo(SdfAutoFilterInfoCb cb) {
    return sdk().keep("RegAutoFilterInfo", sdk().autoFilterCb, cb);
}

long long sdfRegFilterStatus(SdfFilterStatusCb cb) {
    return sdk().keep("RegFilterStatus", sdk().filterCb, cb);
}

long long sdfAddFilter(SdfAddFilterInfo info, SdfFilterStatusCb cb) {
    return sdk().add(info, std::nullopt, cb);
}

long long sdfAddFilterV2(SdfAddFilterInfo info, unsigned char extra, SdfFilterStatusCb cb) {
    return sdk().add(info, extra, cb);
}

long long sdfGetFilters(SdfGetFiltersCb cb) {
    return sdk().keep("GetFilters", sdk().listCb, cb);
}

long long sdfDeleteFilter(unsigned int id) {
    return sdk().onFilter(callText("DeleteFilter", id), id, true);
}
