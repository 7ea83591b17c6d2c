// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "proto/SdfProto.pb.h"
#include "tools/emulator/Filters.h"
#include "tools/emulator/QueueReports.h"
#include "tools/emulator/Timeline.h"

// What a client has asked for that no filter and no report comes of. Kept, and shown when asked
// for.
struct LinkSettings {
    std::map<SdfProto::SlotId, SdfProto::SetLatencyLevel> levels;
    std::set<SdfProto::SlotId> prioritizedSlots;
    bool prioritizeDds = false;
    std::optional<SdfProto::SdfOod> ddsOod;
    std::optional<uint32_t> ddsPdcpTimer;
};

// What the service keeps for one feature of one client, from its first request until it leaves or
// dies. Belongs to the thread of its timeline.
class FeatureState {
  public:
    // What is around it, for as long as it lives.
    struct Surroundings {
        const Policy& policy;
        Timeline& timeline;
        // Sends what comes of time, not of a request.
        std::function<void(const SdfProto::ClientMsg&)> send;
        // Prints a notice of a request that changes nothing.
        std::function<void(const std::string&)> notice;
    };

    // The ids of automatic filters begin here. Those of the client's own stay below: the library
    // draws them from rand(), which gives no greater number than 2^31 - 1.
    static constexpr uint32_t kFirstAutoFilter = 0x80000001U;

    FeatureState(uid_t uid, Surroundings surroundings);

    Filters& filters() { return mFilters; }
    const Filters& filters() const { return mFilters; }
    QueueReports& reports() { return mReports; }
    LinkSettings& link() { return mLink; }
    void notice(const std::string& text) const { mSurroundings.notice(text); }

    // Whether the client is notified of the state of its filters.
    void registerFilterStatus(bool wanted) { mWantsFilterStatus = wanted; }
    // The message with the state of filters; none if the client has not registered for it, or there
    // are no filters.
    std::optional<SdfProto::ClientMsg> filterStatus(
        const std::vector<SdfProto::FilterData>& filters) const;

    // High-performance gaming: while it is on, there is an automatic filter. Returns what the
    // client is to be notified of that.
    std::vector<SdfProto::ClientMsg> setGaming(bool on);
    // The client registers for automatic filters. Returns the message with those there are.
    std::vector<SdfProto::ClientMsg> registerAutoFilterInfo();

    // All that is kept, for the user.
    nlohmann::ordered_json describe() const;

  private:
    std::vector<SdfProto::ClientMsg> autoFilters() const;

    const Surroundings mSurroundings;
    Filters mFilters;
    QueueReports mReports;
    LinkSettings mLink;
    bool mWantsFilterStatus = false;
    bool mWantsAutoFilterInfo = false;
    std::optional<uint32_t> mAutoFilter;
    uint32_t mNextAutoFilter = kFirstAutoFilter;
};
