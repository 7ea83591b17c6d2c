// SPDX-License-Identifier: Apache-2.0
#include "session/Settings.h"

#include <algorithm>

void Settings::setLevels(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                         SdfSessionLevelsCb cb, void* user) {
    const size_t index = indexOf(slot);
    mLevels[index] = {true, first, second, flag, cb, user, 0, {}, false};
    if (mLink.isOnline()) (void)sendLevels(index);
}

void Settings::clearLevels(SdfSlotID slot) {
    mLevels[indexOf(slot)] = {};
}

void Settings::setGaming(bool enable) {
    mGaming = enable;
    if (mLink.isOnline()) (void)mLink.sent(sdfEnHighPerfGaming(enable));
}

void Settings::setDataPriority(SdfSlotID slot, bool enable) {
    mDataPriority[indexOf(slot)] = enable;
    if (mLink.isOnline()) (void)mLink.sent(sdfPrioritizeData(slot, enable));
}

void Settings::setDdsPriority(bool enable) {
    mDdsPriority = enable;
    if (mLink.isOnline()) (void)mLink.sent(sdfPrioritizeDds(enable));
}

void Settings::setDdsOod(SdfOod ood) {
    mDdsOod = ood;
    if (mLink.isOnline()) (void)mLink.sent(sdfUpdateDdsOod(ood));
}

void Settings::setDdsPdcpTimer(std::optional<unsigned int> timer) {
    mDdsPdcpTimer = timer;
    if (timer && mLink.isOnline()) (void)mLink.sent(sdfUpdateDdsPdcpTimer(*timer));
}

void Settings::setQueueReports(unsigned int value, SdfSessionReportCb cb, void* user) {
    const bool wanted = mReportCb != nullptr;
    mReportValue = value;
    mReportCb = cb;
    mReportUser = user;
    if (mLink.isOnline() && (wanted || cb != nullptr)) (void)sendQueueReports();
}

void Settings::setAutoFilters(SdfSessionAutoFilterCb cb, void* user) {
    const bool wanted = mAutoFilterCb != nullptr;
    mAutoFilterCb = cb;
    mAutoFilterUser = user;
    // There is no request that ends it.
    if (mLink.isOnline() && !wanted && cb != nullptr) {
        (void)mLink.sent(sdfRegAutoFilterInfo(mLink.lane().autoFilter));
    }
}

bool Settings::request() {
    const auto sent = [this](bool wanted, auto request) {
        return !wanted || mLink.sent(request());
    };
    bool all = sent(mAutoFilterCb != nullptr,
                    [this] { return sdfRegAutoFilterInfo(mLink.lane().autoFilter); }) &&
               (mReportCb == nullptr || sendQueueReports()) &&
               sent(mGaming, [] { return sdfEnHighPerfGaming(true); });
    for (size_t index = 0; all && index < kSlots; ++index) {
        all =
            sent(mDataPriority[index], [index] { return sdfPrioritizeData(slotAt(index), true); });
    }
    all = all && sent(mDdsPriority, [] { return sdfPrioritizeDds(true); }) &&
          sent(mDdsOod != SDF_OOD_UNSPECIFIED_LVL, [this] { return sdfUpdateDdsOod(mDdsOod); }) &&
          sent(mDdsPdcpTimer.has_value(), [this] { return sdfUpdateDdsPdcpTimer(*mDdsPdcpTimer); });
    // Last, as the service answers them: then it has the others, too.
    for (size_t index = 0; all && index < kSlots; ++index) {
        all = !mLevels[index].wanted || sendLevels(index);
    }
    return all;
}

void Settings::lost() {
    for (Levels& levels : mLevels) {
        levels.awaited = 0;
        levels.answerDue.clear();
        levels.late = false;
    }
}

void Settings::onLevels(const LevelsEvent& event) {
    for (size_t index = 0; index < kSlots; ++index) {
        Levels& levels = mLevels[index];
        if (levels.awaited != event.id) continue;
        levels.awaited = 0;
        levels.answerDue.clear();
        callLevels(index, 0, event.first, event.second);
        return;
    }
}

void Settings::onReport(const ReportEntry& entry) const {
    if (mReportCb == nullptr) return;
    mLink.beforeCallback();
    mReportCb(mSession, entry.key, entry.first, entry.second, mReportUser);
}

void Settings::onAutoFilter(const AutoFilterEvent& event) const {
    if (mAutoFilterCb == nullptr) return;
    mLink.beforeCallback();
    mAutoFilterCb(mSession, event.id, event.info.get(), mAutoFilterUser);
}

bool Settings::report() {
    for (size_t index = 0; index < kSlots; ++index) {
        Levels& levels = mLevels[index];
        if (!levels.late) continue;
        levels.late = false;
        callLevels(index, SDF_SESSION_NO_ANSWER, levels.first, levels.second);
        return true;
    }
    return false;
}

bool Settings::hasReports() const {
    return std::any_of(mLevels.begin(), mLevels.end(), [](const Levels& one) { return one.late; });
}

void Settings::onTime(Time now) {
    // The answer may yet come, and is reported then.
    for (Levels& levels : mLevels) levels.late = levels.late || levels.answerDue.take(now);
}

Due Settings::due() const {
    Due due;
    for (const Levels& levels : mLevels) due.orAt(levels.answerDue);
    return due;
}

bool Settings::sendLevels(size_t index) {
    Levels& levels = mLevels[index];
    const long long id = sdfSetLatencyLvl(slotAt(index), levels.first, levels.second, levels.flag,
                                          mLink.lane().levels);
    if (!mLink.sent(id)) return false;
    levels.awaited = id;
    levels.answerDue.set(mLink.answerDue());
    return true;
}

bool Settings::sendQueueReports() {
    return mLink.sent(
        sdfRegPriorityQueueReports(mReportCb != nullptr, mReportValue, mLink.lane().report));
}

void Settings::callLevels(size_t index, int error, SdfLatencyLvl first,
                          SdfLatencyLvl second) const {
    const Levels& levels = mLevels[index];
    if (levels.cb == nullptr) return;
    mLink.beforeCallback();
    levels.cb(mSession, slotAt(index), error, first, second, levels.user);
}
