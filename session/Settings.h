// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <array>
#include <cstddef>
#include <optional>

#include "session/Due.h"
#include "session/Inbox.h"
#include "session/Link.h"

// What a session wants besides filters. Values are valid.
class Settings {
  public:
    Settings(Link& link, SdfSession* session) : mLink(link), mSession(session) {}

    void setLevels(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                   SdfSessionLevelsCb cb, void* user);
    void clearLevels(SdfSlotID slot);
    void setGaming(bool enable);
    void setDataPriority(SdfSlotID slot, bool enable);
    void setDdsPriority(bool enable);
    void setDdsOod(SdfOod ood);
    void setDdsPdcpTimer(std::optional<unsigned int> timer);
    void setQueueReports(unsigned int value, SdfSessionReportCb cb, void* user);
    void setAutoFilters(SdfSessionAutoFilterCb cb, void* user);

    // The service is up: everything is wanted of it. False when it was lost again meanwhile.
    bool request();
    void lost();
    // All levels have been answered, or are not answered in time.
    bool isSettled() const { return !due().when(); }

    // Each calls a callback.
    void onLevels(const LevelsEvent& event);
    void onReport(const ReportEntry& entry) const;
    void onAutoFilter(const AutoFilterEvent& event) const;

    // Reports levels that were not answered in time. Returns false when there are none.
    bool report();
    bool hasReports() const;

    void onTime(Time now);
    Due due() const;

  private:
    static constexpr size_t kSlots = 3;

    struct Levels {
        bool wanted = false;
        SdfLatencyLvl first{};
        SdfLatencyLvl second{};
        bool flag = false;
        SdfSessionLevelsCb cb = nullptr;
        void* user = nullptr;
        long long awaited = 0;  // the id of the request; 0 for none
        Due answerDue;
        bool late = false;
    };

    static size_t indexOf(SdfSlotID slot) {
        const int index = slot - SDF_SLOT_ID_UNSPECIFIED;
        return static_cast<size_t>(index);
    }
    static SdfSlotID slotAt(size_t index) {
        return static_cast<SdfSlotID>(static_cast<int>(index) - 1);
    }

    bool sendLevels(size_t index);
    bool sendQueueReports();
    void callLevels(size_t index, int error, SdfLatencyLvl first, SdfLatencyLvl second) const;

    Link& mLink;
    SdfSession* const mSession;
    std::array<Levels, kSlots> mLevels;
    bool mGaming = false;
    std::array<bool, kSlots> mDataPriority{};
    bool mDdsPriority = false;
    SdfOod mDdsOod = SDF_OOD_UNSPECIFIED_LVL;
    std::optional<unsigned int> mDdsPdcpTimer;
    unsigned int mReportValue = 0;
    SdfSessionReportCb mReportCb = nullptr;
    void* mReportUser = nullptr;
    SdfSessionAutoFilterCb mAutoFilterCb = nullptr;
    void* mAutoFilterUser = nullptr;
};
