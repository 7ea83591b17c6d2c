// SPDX-License-Identifier: Apache-2.0
#include "tests/session/Wanted.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "tests/session/FlowTo.h"
#include "tests/session/MayFollow.h"
#include "tests/session/ServiceState.h"
#include "tests/support/Eventually.h"

using nlohmann::json;

namespace {

using Clock = std::chrono::steady_clock;

// Between two looks at what the service has.
constexpr std::chrono::seconds kLongestPause{1};

constexpr std::array<const char*, 3> kSlots{"SLOT_ID_UNSPECIFIED", "SLOT_ID_FIRST",
                                            "SLOT_ID_SECOND"};

std::string levelName(SdfLatencyLvl level) {
    return "L" + std::to_string(level);
}

const char* oodName(SdfOod ood) {
    constexpr std::array<const char*, 3> kNames{"SDF_OOD_UNSPECIFIED", "SDF_OOD_ENABLED",
                                                "SDF_OOD_DISABLED"};
    return kNames.at(static_cast<size_t>(ood) - 1);
}

json orNull(const std::optional<unsigned int>& value) {
    return value ? json(*value) : json();
}

}  // namespace

Wanted::~Wanted() {
    close();
}

void Wanted::open(unsigned int firstPause, unsigned int longestPause, unsigned int deadline) {
    if (sdfSessionOpen(onState, this, &mSession) != 0) violated("open failed");
    sdfSessionSetPauses(mSession, firstPause, longestPause);
    sdfSessionSetAnswerDeadline(mSession, deadline);
}

void Wanted::close() {
    if (sdfSessionClose(std::exchange(mSession, nullptr), 60000) != 0)
        violated("close took too long");
}

void Wanted::wantEverything(size_t filters) {
    mFilters = filters;
    for (size_t count = 0; count < filters; ++count) addFlow();
    for (unsigned int which = 0; which < 7; ++which) changeSetting(which);
}

bool Wanted::trim() {
    do {
        mChanged = true;  // each time: the session may have begun to connect since
        while (living() > mFilters) removeFlow();
        while (living() < mFilters) addFlow();
        if (!dispatchUntil([this] { return isAnswered() && isServed(); })) return false;
        // Some are removed from inside their callbacks.
    } while (living() != mFilters);
    return true;
}

void Wanted::stopReports() {
    mChanged = true;
    mReports.reset();
    if (sdfSessionSetQueueReports(mSession, 0, nullptr, nullptr) != 0) violated("setting failed");
}

void Wanted::change() {
    mChanged = true;
    const size_t flows = living();
    const unsigned int what = pick(16);
    if (flows < mFilters || (what == 7 && flows < 2 * mFilters)) {
        addFlow();
    } else if (what < 7) {
        changeSetting(what);
    } else if (what == 8) {
        removeFlow();
    } else if (what == 9) {
        // An equal one right behind it.
        removeFlow();
        addFlow();
    } else if (flows > 0) {
        const auto isLiving = [](const Flow& flow) { return !flow.removed; };
        auto flow = std::find_if(mFlows.begin(), mFlows.end(), isLiving);
        for (unsigned int skip = pick(static_cast<unsigned int>(flows)); skip > 0; --skip) {
            flow = std::find_if(std::next(flow), mFlows.end(), isLiving);
        }
        changeFlow(*flow);
    }
}

size_t Wanted::living() const {
    return static_cast<size_t>(std::count_if(mFlows.begin(), mFlows.end(),
                                             [](const Flow& flow) { return !flow.removed; }));
}

unsigned int Wanted::pick(unsigned int limit) {
    return std::uniform_int_distribution<unsigned int>(0, limit - 1)(mRandom);
}

void Wanted::dispatch(int milliseconds) {
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
        if (poll(&waited, 1, static_cast<int>(std::max<long long>(left, 0))) > 0) {
            sdfSessionDispatch(mSession);
        }
    } while (Clock::now() < end);
    mFlows.remove_if([](const Flow& flow) { return flow.ended; });
}

bool Wanted::dispatchUntilServed() {
    return dispatchUntil([this] { return isServed(); });
}

bool Wanted::dispatchUntil(const std::function<bool()>& condition) {
    const auto end = Clock::now() + 4 * kLimit;
    for (;;) {
        const auto began = Clock::now();
        if (condition()) return true;
        const auto now = Clock::now();
        if (now > end) return false;
        // Others wait for a slow service, too: it is asked for a fifth of the time at most.
        const auto pause = std::min<Clock::duration>(4 * (now - began), kLongestPause);
        dispatch(static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(pause).count()));
    }
}

bool Wanted::isServed() const {
    return mState == SDF_SESSION_UP && serviceState() == expected();
}

bool Wanted::isAnswered() const {
    return std::all_of(mFlows.begin(), mFlows.end(),
                       [](const Flow& flow) {
                           return flow.removed ? flow.ended
                                               : flow.state == SDF_FILTER_STATE_PENDING ||
                                                     flow.state == SDF_FILTER_STATE_ACTIVE;
                       }) &&
           std::all_of(mLevels.begin(), mLevels.end(),
                       [](const auto& levels) { return !levels || levels->answered; });
}

json Wanted::expected() const {
    json filters = json::object();
    for (const Flow& flow : mFlows) {
        if (flow.removed) continue;
        filters[std::to_string(flow.port)] = {
            {"first_level", levelName(flow.info.first_level)},
            {"second_level", levelName(flow.info.second_level)},
            {"ood", oodName(flow.info.ood)},
            {"pdcp_timer", flow.info.pdcp_timer},
            {"filter_arg18", flow.extra ? json(*flow.extra) : json()},
            {"target_dscp", orNull(flow.dscp)}};
    }
    json levels = json::array();
    json slots = json::array();
    for (size_t index = 0; index < kSlots.size(); ++index) {
        if (mDataPriority[index]) slots.push_back(kSlots[index]);
        if (!mLevels[index]) continue;
        levels.push_back({{"slot_id", kSlots[index]},
                          {"first_level", levelName(mLevels[index]->first)},
                          {"second_level", levelName(mLevels[index]->second)},
                          {"level_flag", mLevels[index]->flag}});
    }
    return {{"filters", filters},
            {"levels", levels},
            {"prioritized_slots", slots},
            {"high_perf_gaming", mGaming},
            {"prioritize_dds", mDdsPriority},
            {"dds_ood", oodName(mDdsOod)},
            {"dds_pdcp_timer", orNull(mDdsPdcpTimer)},
            {"report_value", orNull(mReports)}};
}

void Wanted::onState(SdfSession*, SdfSessionState state, int reason, void* wanted) {
    auto& self = *static_cast<Wanted*>(wanted);
    if (self.mSession == nullptr || !mayFollow(self.mState, state)) {
        self.violated(std::string("session ") + sdfSessionStateText(state));
    }
    self.mState = state;
    if (state == SDF_SESSION_CONNECTING) self.mChanged = false;
    if (state == SDF_SESSION_DOWN) {
        self.mWhyLost = reason;
        for (auto& levels : self.mLevels) {
            if (levels) levels->answered = false;
        }
    }
    if (state != SDF_SESSION_UP) return;
    ++self.mUps;
    // Nothing is missing when the application is notified. The service may have died since.
    const json served = serviceState();
    if (!self.mChanged && !served.is_null() && served != self.expected()) {
        self.violated("up with " + served.dump() + " and not " + self.expected().dump());
    }
}

void Wanted::onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why, void* user) {
    auto& flow = *static_cast<Flow*>(user);
    const bool removal = state == SDF_FILTER_STATE_REMOVED;
    if (flow.ended || filter != flow.filter || removal != flow.removed ||
        !mayFollow(flow.state, state) || !goesWith(state, why)) {
        flow.wanted->violated("filter " + std::to_string(flow.port) + " " +
                              sdfFilterStateText(state) + " (" + sdfFilterStatusText(why) +
                              ") after " +
                              (flow.state ? sdfFilterStateText(*flow.state) : "nothing"));
    }
    flow.state = state;
    flow.ended = removal;
    if (!removal && flow.wanted->pick(100) == 0) {
        flow.wanted->mChanged = true;
        flow.wanted->remove(flow);
    }
}

void Wanted::onLevels(SdfSession*, SdfSlotID slot, int error, SdfLatencyLvl first,
                      SdfLatencyLvl second, void* wanted) {
    auto& self = *static_cast<Wanted*>(wanted);
    if (self.mSession == nullptr) self.violated("levels after close");
    auto& levels = self.mLevels.at(static_cast<size_t>(slot + 1));
    if (!levels) return self.violated("levels that are not wanted");
    levels->answered = error == 0 && first == levels->first && second == levels->second;
}

void Wanted::onReport(SdfSession*, unsigned int, uint64_t, uint64_t, void* wanted) {
    auto& self = *static_cast<Wanted*>(wanted);
    if (self.mSession == nullptr) self.violated("report after close");
}

void Wanted::violated(const std::string& what) {
    if (mViolation.empty()) mViolation = what;
}

void Wanted::addFlow() {
    mFlows.push_back({this});
    Flow& flow = mFlows.back();
    flow.port = mPort++;
    if (mPort == 60000) mPort = 1;
    flow.info = flowTo(flow.port);
    flow.info.first_level = level();
    if (pick(2) == 0) flow.extra = static_cast<unsigned char>(pick(256));
    const int result =
        flow.extra
            ? sdfFilterAddV2(mSession, &flow.info, *flow.extra, onFilter, &flow, &flow.filter)
            : sdfFilterAdd(mSession, &flow.info, onFilter, &flow, &flow.filter);
    if (result != 0) violated("add failed");
    if (pick(2) == 0) changeFlow(flow);
}

void Wanted::changeFlow(Flow& flow) {
    int result = 0;
    switch (pick(4)) {
        case 0:
            flow.info.first_level = level();
            flow.info.second_level = level();
            result = sdfFilterSetLevels(flow.filter, flow.info.first_level, flow.info.second_level);
            break;
        case 1:
            flow.info.ood = ood();
            result = sdfFilterSetOod(flow.filter, flow.info.ood);
            break;
        case 2:
            flow.info.pdcp_timer = pick(1000);
            result = sdfFilterSetPdcpTimer(flow.filter, flow.info.pdcp_timer);
            break;
        default:
            flow.dscp = pick(64);
            result = sdfFilterSetDscp(flow.filter, *flow.dscp);
            break;
    }
    if (result != 0) violated("change failed");
}

void Wanted::removeFlow() {
    const auto flow =
        std::find_if(mFlows.begin(), mFlows.end(), [](const Flow& one) { return !one.removed; });
    remove(*flow);
}

void Wanted::remove(Flow& flow) {
    flow.removed = true;
    sdfFilterRemove(flow.filter);
}

void Wanted::changeSetting(unsigned int which) {
    const size_t index = pick(3);
    const auto slot = static_cast<SdfSlotID>(static_cast<int>(index) - 1);
    const bool on = pick(4) != 0;
    int result = 0;
    switch (which) {
        case 0:
            mLevels.at(index) = {level(), level(), on, false};
            result = sdfSessionSetLevels(mSession, slot, mLevels.at(index)->first,
                                         mLevels.at(index)->second, on, onLevels, this);
            break;
        case 1:
            mDataPriority.at(index) = on;
            result = sdfSessionSetDataPriority(mSession, slot, on);
            break;
        case 2:
            mGaming = on;
            result = sdfSessionSetGaming(mSession, on);
            break;
        case 3:
            mDdsPriority = on;
            result = sdfSessionSetDdsPriority(mSession, on);
            break;
        case 4:
            mDdsOod = ood();
            result = sdfSessionSetDdsOod(mSession, mDdsOod);
            break;
        case 5:
            mDdsPdcpTimer = pick(1000);
            result = sdfSessionSetDdsPdcpTimer(mSession, *mDdsPdcpTimer);
            break;
        default:
            mReports.reset();
            if (on) mReports = 20 + pick(50);
            result = sdfSessionSetQueueReports(mSession, mReports.value_or(0),
                                               on ? onReport : nullptr, this);
            break;
    }
    if (result != 0) violated("setting failed");
}
