// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Keeper.h"

#include <algorithm>
#include <utility>

namespace {

Field stateField(int state, const char* text) {
    return {"state", static_cast<long long>(state), text, text};
}

// A code that people need not see when it is 0.
Field quietCode(const char* key, long long code, const std::string& text) {
    Field field = coded(key, code, text);
    field.quiet = code == 0;
    return field;
}

Event sessionEvent(SdfSessionState state, int reason) {
    return {"session",
            {stateField(state, sdfSessionStateText(state)),
             quietCode("reason", reason, sdfSessionText(reason))}};
}

// What cannot be changed of a filter.
std::string identityOf(const Flow& flow) {
    SdfAddFilterInfo info = flow.info;
    info.first_level = {};
    info.second_level = {};
    info.ood = {};
    info.pdcp_timer = 0;
    return shown(describe(info), " ") + (flow.extra ? " extra=" + std::to_string(*flow.extra) : "");
}

// A DSCP cannot be taken back.
bool canBecome(const Flow& flow, const Flow& other) {
    return identityOf(flow) == identityOf(other) && (other.dscp || !flow.dscp);
}

// Does it when the values differ. Returns how many do.
template <typename Value, typename Set>
unsigned int setIfOther(const Value& old, const Value& value, const Set& set) {
    if (old == value) return 0;
    set();
    return 1;
}

}  // namespace

Keeper::Keeper(Report report)
    : mReport(std::move(report)), mSession([this](SdfSessionState state, int reason) {
          mReport(sessionEvent(state, reason));
      }) {}

Keeper::Difference Keeper::want(Wishes wishes) {
    Difference difference;
    wantFilters(std::exchange(wishes.filters, {}), difference);
    difference.changed += wantLevels(wishes) + wantDataPriority(wishes) + wantOthers(wishes);
    mWishes = std::move(wishes);
    return difference;
}

void Keeper::wantFilters(const std::vector<Flow>& flows, Difference& difference) {
    std::list<Kept> old;
    old.swap(mFilters);
    std::vector<const Flow*> changed;
    std::vector<const Flow*> added;
    for (const Flow& flow : flows) {
        const auto same = std::find_if(
            old.begin(), old.end(), [&](const Kept& kept) { return canBecome(kept.flow, flow); });
        if (same == old.end()) {
            added.push_back(&flow);
            continue;
        }
        changed.push_back(&flow);
        mFilters.splice(mFilters.end(), old, same);
        if (same->flow.name != flow.name) reportRemoved(*same);
    }
    // First: names may change places, and the service may take a filter for a duplicate of one that
    // goes.
    difference.removed = static_cast<unsigned int>(old.size());
    for (Kept& kept : old) reportRemoved(kept);
    old.clear();
    auto kept = mFilters.begin();
    for (const Flow* const flow : changed) difference.changed += change(*kept++, *flow) ? 1 : 0;
    difference.added = static_cast<unsigned int>(added.size());
    for (const Flow* const flow : added) add(*flow);
}

void Keeper::add(const Flow& flow) {
    Kept& kept = mFilters.emplace_back(Kept{flow});
    kept.handle = mSession.add(
        flow.info,
        [this, &kept](SdfFilterState state, SdfFilterStatus why) {
            kept.why = why;
            report(kept, state);
        },
        flow.extra);
    if (flow.dscp) kept.handle.setDscp(*flow.dscp);
    kept.handle.setRenewed(flow.renewed);
}

void Keeper::reportRemoved(const Kept& kept) const {
    report(kept, SDF_FILTER_STATE_REMOVED);
}

bool Keeper::change(Kept& kept, const Flow& flow) {
    const Flow old = kept.flow;
    lum::sdf::Filter& filter = kept.handle;
    const SdfAddFilterInfo& info = flow.info;
    kept.flow = flow;
    unsigned int changes = setIfOther(old.name, flow.name, [&] { report(kept, filter.state()); });
    const auto levelsOf = [](const Flow& one) {
        return std::make_pair(one.info.first_level, one.info.second_level);
    };
    changes += setIfOther(levelsOf(old), levelsOf(flow),
                          [&] { filter.setLevels(info.first_level, info.second_level); });
    changes += setIfOther(old.info.ood, info.ood, [&] { filter.setOod(info.ood); });
    changes += setIfOther(old.info.pdcp_timer, info.pdcp_timer,
                          [&] { filter.setPdcpTimer(info.pdcp_timer); });
    changes += setIfOther(old.dscp, flow.dscp, [&] { filter.setDscp(*flow.dscp); });
    changes += setIfOther(old.renewed, flow.renewed, [&] { filter.setRenewed(flow.renewed); });
    return changes > 0;
}

unsigned int Keeper::wantLevels(const Wishes& wishes) {
    unsigned int changes = 0;
    for (const auto& old : mWishes.levels) {
        if (wishes.levels.count(old.first) != 0) continue;
        mSession.clearLevels(old.first);
        ++changes;
    }
    for (const auto& [slot, levels] : wishes.levels) {
        const auto old = mWishes.levels.find(slot);
        if (old != mWishes.levels.end() && old->second == levels) continue;
        const auto cb = [this, slot = slot](int error, SdfLatencyLvl first, SdfLatencyLvl second) {
            mReport({"levels",
                     {worded("slot", slot, slotWords()), worded("first", first, levelWords()),
                      worded("second", second, levelWords()),
                      quietCode("error", error, sdfSessionText(error))}});
        };
        mSession.setLevels(slot, levels.first, levels.second, levels.flag, cb);
        ++changes;
    }
    return changes;
}

unsigned int Keeper::wantDataPriority(const Wishes& wishes) {
    unsigned int changes = 0;
    for (const Word& word : slotWords()) {
        const auto slot = static_cast<SdfSlotID>(word.value);
        const bool wanted = wishes.dataPriority.count(slot) != 0;
        changes += setIfOther(mWishes.dataPriority.count(slot) != 0, wanted,
                              [&] { mSession.setDataPriority(slot, wanted); });
    }
    return changes;
}

unsigned int Keeper::wantOthers(const Wishes& wishes) {
    const Wishes& old = mWishes;
    return setIfOther(old.gaming, wishes.gaming, [&] { mSession.setGaming(wishes.gaming); }) +
           setIfOther(old.ddsPriority, wishes.ddsPriority,
                      [&] { mSession.setDdsPriority(wishes.ddsPriority); }) +
           setIfOther(old.ddsOod, wishes.ddsOod, [&] { mSession.setDdsOod(wishes.ddsOod); }) +
           setIfOther(old.ddsPdcpTimer, wishes.ddsPdcpTimer,
                      [&] {
                          if (wishes.ddsPdcpTimer) {
                              mSession.setDdsPdcpTimer(*wishes.ddsPdcpTimer);
                          } else {
                              mSession.clearDdsPdcpTimer();
                          }
                      }) +
           setIfOther(old.queueReports, wishes.queueReports,
                      [&] { wantQueueReports(wishes.queueReports); }) +
           setIfOther(old.autoFilters, wishes.autoFilters,
                      [&] { wantAutoFilters(wishes.autoFilters); });
}

void Keeper::wantQueueReports(std::optional<unsigned int> value) {
    if (!value) return mSession.setQueueReports(0, {});
    mSession.setQueueReports(*value, [this](const lum::sdf::QueueReportEntry& entry) {
        mReport({"queue-report", describeEntry(entry.key, entry.first, entry.second)});
    });
}

void Keeper::wantAutoFilters(bool wanted) {
    if (!wanted) return mSession.setAutoFilters({});
    mSession.setAutoFilters([this](unsigned int filter, const SdfAddFilterInfo& info) {
        mReport({"auto-filter", describeAutoFilter(filter, info)});
    });
}

void Keeper::report(const Kept& kept, SdfFilterState state) const {
    Field id = plain("filter", kept.handle.id());
    id.quiet = kept.handle.id() == 0;
    Field reason = worded("why", kept.why, filterStatusWords());
    reason.quiet = state != SDF_FILTER_STATE_REJECTED;
    mReport({"filter",
             {plain("name", kept.flow.name), stateField(state, sdfFilterStateText(state)),
              std::move(id), std::move(reason)}});
}
