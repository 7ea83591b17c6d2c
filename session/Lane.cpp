// SPDX-License-Identifier: Apache-2.0
#include "session/Lane.h"

#include <memory>
#include <new>

#include "session/Inbox.h"

namespace {

template <int kLane>
void onStatus(int status) {
    Inbox::instance().push(kLane, StatusEvent{status});
}

template <int kLane>
void onAdded(unsigned int id, SdfFilterStatus status) {
    Inbox::instance().push(kLane, AddedEvent{id, status});
}

template <int kLane>
void onFilter(unsigned int id, SdfFilterStatus status) {
    Inbox::instance().push(kLane, FilterEvent{id, status});
}

template <int kLane>
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    Inbox::instance().push(kLane, LevelsEvent{id, first, second});
}

template <int kLane>
void onReport(unsigned int key, uint64_t first, uint64_t second) {
    Inbox::instance().push(kLane, ReportEvent{{key, first, second}});
}

template <int kLane>
void onAutoFilter(unsigned int id, SdfAddFilterInfo info) {
    // Without memory it is dropped, as one that comes too fast is.
    std::unique_ptr<SdfAddFilterInfo> kept(new (std::nothrow) SdfAddFilterInfo(info));
    if (kept) Inbox::instance().push(kLane, AutoFilterEvent{id, std::move(kept)});
}

template <int kLane, unsigned int kTurn>
void onList(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
            SdfOod ood, unsigned int pdcpTimer) {
    const ListEntry entry{id, status, first, second, ood, pdcpTimer};
    Inbox::instance().push(kLane, AnswerEvent<ListEntry>{kTurn, entry});
}

template <int kLane, unsigned int kTurn>
void onOneReport(unsigned int key, uint64_t first, uint64_t second) {
    Inbox::instance().push(kLane, AnswerEvent<ReportEntry>{kTurn, {key, first, second}});
}

template <int kLane>
constexpr Lane kCallbacks{onStatus<kLane>,
                          onAdded<kLane>,
                          onFilter<kLane>,
                          onLevels<kLane>,
                          onReport<kLane>,
                          onAutoFilter<kLane>,
                          {onList<kLane, 0>, onList<kLane, 1>},
                          {onOneReport<kLane, 0>, onOneReport<kLane, 1>}};

constexpr std::array<Lane, Lane::kLanes> kAll{kCallbacks<0>, kCallbacks<1>, kCallbacks<2>,
                                              kCallbacks<3>};

}  // namespace

const Lane& Lane::at(int index) {
    return kAll[static_cast<size_t>(index)];
}
