// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>

#include "session/Due.h"
#include "session/Inbox.h"
#include "session/Link.h"

class Filters;

// A filter that the application wants, and what the service has of it.
struct SdfFilter {
    using List = std::list<std::shared_ptr<SdfFilter>>;
    using ById = std::map<unsigned int, SdfFilter*>;
    // Which values the service has yet to be sent, of those that can be changed.
    enum Change : uint8_t { kLevels = 1, kOod = 2, kPdcpTimer = 4, kDscp = 8 };

    Filters& owner;
    SdfAddFilterInfo info;
    const std::optional<unsigned char> extra;
    const SdfFilterStateCb cb;
    void* const user;
    const uint64_t serial;
    std::optional<unsigned int> dscp{};
    bool renewed = true;

    SdfFilterState state = SDF_FILTER_STATE_REQUESTED;
    SdfFilterStatus why = SDF_FILTER_PENDING;
    SdfFilterState reported = SDF_FILTER_STATE_REQUESTED;
    unsigned int id = 0;  // of the request that adds it; 0: none is under way or has been answered
    bool answered = false;
    uint8_t changes = 0;
    bool early = false;  // the library did not yet know the id when a change was to be sent
    Time added{};

    // Its places in Filters' containers; the node while it is in none. Nothing here needs memory
    // once the filter exists.
    List::iterator place{};
    ById::node_type node{};
    bool waiting = false;  // in mWaiting
    bool due = false;      // among those with something to report or to do
    SdfFilter* nextDue = nullptr;
};

// The filters of a session.
class Filters {
  public:
    explicit Filters(Link& link) : mLink(link) {}
    Filters(const Filters&) = delete;
    Filters& operator=(const Filters&) = delete;
    ~Filters() = default;

    // Throws std::bad_alloc, with nothing changed.
    SdfFilter* add(const SdfAddFilterInfo& info, std::optional<unsigned char> extra,
                   SdfFilterStateCb cb, void* user);
    // A value in the filter has been changed.
    void change(SdfFilter& filter, SdfFilter::Change change);
    void setRenewed(SdfFilter& filter, bool renewed);
    void remove(SdfFilter& filter);

    // The service is up: all filters are wanted of it.
    void request();
    // The service is lost, and every filter with it.
    void lost();
    // Nothing is left to be sent or answered.
    bool isSettled() const { return mWaiting.empty() && mAwaited == 0 && !mEarly.when(); }
    // Whether changes, which the service does not answer, have been sent since request().
    bool hasChanged() const { return mChanged; }

    void onAdded(const AddedEvent& event);
    void onState(const FilterEvent& event);

    // Reports one state. Returns false when there is nothing to report.
    bool report();
    bool hasReports() const { return mFirstDue != nullptr; }

    void onTime(Time now);
    Due due() const;

    // The application's handle of the filter that the service has under this number; null if it has
    // none.
    SdfFilter* handleOf(unsigned int id) const;

    Link& link() const { return mLink; }

  private:
    // The filter whose add has this id; null if there is none.
    SdfFilter* find(unsigned int id) const;
    // The service has reported this of a filter that it has answered; it may be freed then.
    void follow(SdfFilter& filter, SdfFilterStatus status);
    void setState(SdfFilter& filter, SdfFilterState state, SdfFilterStatus why);
    void makeDue(SdfFilter& filter);
    void want(SdfFilter& filter);
    void unwant(SdfFilter& filter);
    void sendWaiting();
    void sendAdd(SdfFilter& filter);
    // Sends what the service has yet to learn of a filter that it has.
    void settle(SdfFilter& filter);
    bool sendNext(SdfFilter& filter, long long& result);
    void forgetId(SdfFilter& filter);
    void freeIfDone(SdfFilter& filter);
    void renew(SdfFilter& filter);

    Link& mLink;
    // In the order of their addition, but for those that were renewed.
    SdfFilter::List mWaiting;  // to be added at the service
    SdfFilter::List mOthers;
    SdfFilter::ById mById;
    SdfFilter* mFirstDue = nullptr;
    SdfFilter* mLastDue = nullptr;
    uint64_t mSerial = 0;
    unsigned int mAwaited = 0;   // adds without an answer
    unsigned int mUnwanted = 0;  // of filters that were removed and that the service still has
    bool mChanged = false;
    Due mAnswerDue;
    Due mEarly;
    Milliseconds mEarlyPause{1};
    Due mRenewal;
};
