// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <atomic>
#include <cstddef>
#include <vector>

#include "session/Due.h"
#include "session/Filters.h"
#include "session/Inbox.h"
#include "session/Link.h"
#include "session/Questions.h"
#include "session/Settings.h"

// An open file descriptor, closed with this object.
class Descriptor {
  public:
    // Throws std::system_error if it is negative.
    explicit Descriptor(int fd);
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return mFd; }

  private:
    const int mFd;
};

// A session: the life of the connection, and what is due. Used by one thread at a time, but for
// stop().
//
// The library's callbacks put what they get into the inbox, which makes mEvents readable.
// dispatch() reports first what is to be reported, then takes one event, and so on: of each state
// that a filter or the session has, the application hears before the next one.
struct SdfSession final : public Link {
  public:
    SdfSession(const SdfSession&) = delete;
    SdfSession& operator=(const SdfSession&) = delete;

    // Makes the process's session, which begins to connect. Returns 0, or what Connector::open()
    // does. Throws std::bad_alloc and std::system_error.
    static int open(SdfSessionStateCb cb, void* user, SdfSession** session);
    // The object is freed when the last dispatch() under way returns, or at once.
    void close();
    bool isClosed() const { return mClosed; }

    int dispatch();
    int run();
    void stop();

    void lose(int reason) override;
    void beforeCallback() override { armTimer(); }

    void setAnswerDeadline(Milliseconds deadline) { mAnswerDeadline = deadline; }
    void setPauses(Milliseconds first, Milliseconds longest);

    int fd() const { return mEpoll.get(); }
    SdfSessionState state() const { return mReported; }
    Filters& filters() { return mFilters; }
    Settings& settings() { return mSettings; }
    Questions<ListEntry, SdfSessionFiltersCb>& lists() { return mLists; }
    Questions<ReportEntry, SdfSessionQueueReportCb>& reports() { return mReports; }

    // Makes the descriptor readable when something is due: now, or when the timer expires.
    void armTimer();

  private:
    enum class Phase {
        kPausing,     // until mNextStep
        kConnecting,  // until the service is up; until mNextStep once the client has been made
        kSyncing,     // until the service has answered everything that was sent again
        kConfirming,  // until it has answered a question behind what it does not answer
        kUp,
    };

    SdfSession(SdfSessionStateCb cb, void* user);
    ~SdfSession() = default;

    // Reports one thing. Returns false when there is nothing to report.
    bool report();
    void reportState();
    // Whether the service has answered what it answers of what was sent again.
    bool isSynced() const;
    // Whether dispatch() has something to do, whatever the inbox has.
    bool isBusy() const;
    // Brings the session up when everything has been answered.
    void advance();
    static void onConfirmed(SdfSession* session, int result, SdfFilter*, unsigned int,
                            SdfFilterStatus, SdfLatencyLvl, SdfLatencyLvl, SdfOod, unsigned int,
                            void*);
    void takeEvents();
    // Handles one event. Returns false when there is none.
    bool nextEvent();
    void onTime();
    void connect();
    void bringUp();
    void setState(SdfSessionState state, int reason);

    void handle(const StatusEvent& event);
    void handle(const AddedEvent& event) { mFilters.onAdded(event); }
    void handle(const FilterEvent& event) { mFilters.onState(event); }
    void handle(const LevelsEvent& event) { mSettings.onLevels(event); }
    void handle(const ReportEvent& event) { mSettings.onReport(event.entry); }
    void handle(const AutoFilterEvent& event) { mSettings.onAutoFilter(event); }
    void handle(const AnswerEvent<ListEntry>& event) { mLists.onEntry(event); }
    void handle(const AnswerEvent<ReportEntry>& event) { mReports.onEntry(event); }
    void handle(const ClientMadeEvent& event);

    const SdfSessionStateCb mCb;
    void* const mUser;
    const Descriptor mEvents;
    const Descriptor mTimer;
    const Descriptor mEpoll;
    Time mArmed = Time::max();

    Filters mFilters{*this};
    Settings mSettings{*this, this};
    Questions<ListEntry, SdfSessionFiltersCb> mLists;
    Questions<ReportEntry, SdfSessionQueueReportCb> mReports;

    Phase mPhase = Phase::kConnecting;
    Due mNextStep;
    Milliseconds mFirstPause{250};
    Milliseconds mLongestPause{8000};
    Milliseconds mPause{250};

    SdfSessionState mState = SDF_SESSION_CONNECTING;
    int mReason = 0;
    bool mStateDue = true;
    SdfSessionState mReported = SDF_SESSION_CONNECTING;

    // Events that are being dispatched, from mNext on; of the client that is there.
    std::vector<Event> mBatch;
    size_t mNext = 0;

    int mDepth = 0;  // of dispatch() calls
    bool mClosed = false;
    std::atomic<bool> mStopped{false};
};
