// SPDX-License-Identifier: Apache-2.0
#include "tests/stress/Worker.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>
#include <utility>

namespace {

constexpr size_t kMostFilters = 64;  // that the emulator allows a client
// The interval of reports: none comes unasked.
constexpr unsigned int kOneDay = 24 * 60 * 60 * 1000;

sockaddr_storage address(uint32_t host, uint16_t port) {
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    four.sin_addr.s_addr = htonl(0x0A000000U | host);  // 10.0.0.0/8
    sockaddr_storage storage{};
    memcpy(&storage, &four, sizeof four);
    return storage;
}

// Best effort, so that each report has one entry.
SdfAddFilterInfo numberedFilter(uint32_t number) {
    SdfAddFilterInfo info{};
    info.src_addr = address(number & 0xFFFFFFU, 1000);
    info.dest_addr = address(1, 443);
    info.first_level = info.second_level = SDF_LATENCY_LVL_3;
    info.ood = SDF_OOD_ENABLED_LVL;
    info.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_BE;
    return info;
}

std::string stateText(const char* what, long long id, SdfFilterStatus state) {
    return what + std::to_string(id) + ": " + std::to_string(state);
}

}  // namespace

Worker::Worker(Account& account, int number, bool alone, unsigned int seed)
    : mAccount(account),
      mNumber(number),
      mAlone(alone),
      mMostFilters(alone ? kMostFilters : kMostFilters / kThreads),
      mRandom(seed),
      // A range of its own, so that no two threads ask for the same filter.
      mFilterNumber(static_cast<uint32_t>(number) << 20U) {}

void Worker::registerForAll(Account& account) {
    account.accepted(sdfRegFilterStatus(onFilterStatus));
    account.accepted(sdfRegAutoFilterInfo(onAutoFilter));
    account.accepted(sdfRegPriorityQueueReports(true, kOneDay, onReport));
}

std::string Worker::batch() {
    mAwaited.clear();
    for (int i = random(16); i > 0; --i) requestAnything();
    return setLevels();
}

std::string Worker::endingBatch() {
    mAwaited.clear();
    if (mGaming) setGaming();
    if (mAlone && !mFilters.empty()) mAccount.accepted(sdfDeleteAllFilter());
    while (!mFilters.empty()) forgetOne(!mAlone);
    return setLevels();
}

void Worker::answered() {
    mFilters.insert(mFilters.end(), mAdded.begin(), mAdded.end());
    mAdded.clear();
    mReports = false;
}

void Worker::forget() {
    mFilters.clear();
    mAdded.clear();
    mReports = false;
    mGaming = false;
    mAutoFilter = 0x80000000U;
}

void Worker::requestAnything() {
    const bool first = mAlone || mNumber == 0;
    const bool second = mAlone || mNumber == 1;
    switch (random(12)) {
        case 0:
        case 1:
        case 2: return add();
        case 3:
        case 4: return update();
        case 5:
        case 6: return mFilters.size() >= mMostFilters ? forgetOne(true) : setLink();
        case 7:
            if (!first) return setLink();
            mAccount.accepted(sdfGetFilters(onListed));
            return;
        case 8: return first ? report() : setLink();
        case 9: return second ? setGaming() : setLink();
        case 10:
            mAccount.rejected(sdfDeleteFilter(0));
            mAccount.rejected(sdfAddFilter(SdfAddFilterInfo{}, onAdded));
            mAccount.accepted(sdfRegFilterStatus(onFilterStatus));
            return;
        default: setLevels();
    }
}

std::string Worker::setLevels() {
    const auto first = static_cast<SdfLatencyLvl>(1 + random(6));
    const auto second = static_cast<SdfLatencyLvl>(1 + random(6));
    const unsigned int losses = mAccount.losses();
    const long long id = sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, true, onLevels);
    if (!mAccount.drawn(id)) return "";
    mAwaited.push_back(mAccount.expectAnswer("levels " + std::to_string(id) + ": " +
                                                 std::to_string(first) + " " +
                                                 std::to_string(second),
                                             losses));
    return mAwaited.back();
}

void Worker::add() {
    const bool full = mFilters.size() + mAdded.size() >= mMostFilters;
    if (full && !mAlone) return;
    const SdfAddFilterInfo info = numberedFilter(++mFilterNumber);
    const unsigned int losses = mAccount.losses();
    const long long id =
        mFilterNumber % 2 == 0 ? sdfAddFilter(info, onAdded) : sdfAddFilterV2(info, 7, onAdded);
    if (!mAccount.drawn(id)) return;
    mAwaited.push_back(mAccount.expectAnswer(
        stateText("added ", id, full ? SDF_FILTER_ERROR_LIMIT_REACHED : SDF_FILTER_ACTIVE),
        losses));
    if (!full) mAdded.push_back(static_cast<unsigned int>(id));
}

void Worker::update() {
    if (mFilters.empty()) return;
    const auto id = mFilters[static_cast<size_t>(random(static_cast<int>(mFilters.size())))];
    const auto change = [this, id] {
        switch (random(4)) {
            case 0: return sdfUpdateLatencyLvl(id, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5);
            case 1: return sdfUpdateOod(id, SDF_OOD_DISABLED_LVL);
            case 2: return sdfUpdatePdcpTimer(id, 100);
            default: return sdfUpdateTargetDscp(id, 46);
        }
    };
    if (mAccount.accepted(change())) {
        mAccount.expect(stateText("filter ", id, SDF_FILTER_ACTIVE));
    }
}

// Deletes the oldest filter, unless all have been deleted.
void Worker::forgetOne(bool deletes) {
    const unsigned int id = mFilters.front();
    mFilters.erase(mFilters.begin());
    // Another thread may draw the id as soon as it is free.
    mAccount.idIsFree(id);
    if (deletes) mAccount.accepted(sdfDeleteFilter(id));
    mAccount.expect(stateText("filter ", id, SDF_FILTER_DELETED));
}

// The callback for all reports is called, and the one for this report.
void Worker::report() {
    if (std::exchange(mReports, true)) return;
    for (int callback = 0; callback < 2; ++callback) mAccount.expect("report 32");
    mAccount.accepted(sdfGetPriorityQueueReport(onReport));
}

void Worker::setGaming() {
    mGaming = !mGaming;
    if (mGaming) ++mAutoFilter;
    mAccount.expect("auto filter " + std::to_string(mAutoFilter) +
                    (mGaming ? ": 192.0.2.10#50000 > 198.51.100.20#27015 0 0 0 1 2"
                             : ": none#0 > none#0 0 0 0 0 0"));
    mAccount.accepted(sdfEnHighPerfGaming(mGaming));
}

void Worker::setLink() {
    const auto set = [this] {
        switch (random(4)) {
            case 0: return sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL);
            case 1: return sdfUpdateDdsPdcpTimer(20);
            case 2: return sdfPrioritizeData(SDF_SLOT_ID_SECOND, true);
            default: return sdfPrioritizeDds(true);
        }
    };
    mAccount.accepted(set());
}
