// SPDX-License-Identifier: Apache-2.0
#include "session/Session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "session/Connector.h"

namespace {

// An attempt of the library takes up to 3.15 seconds; then the service has to answer.
constexpr Milliseconds kAttempt{4000};

void watch(int epoll, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
}

}  // namespace

Descriptor::Descriptor(int fd) : mFd(fd) {
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "descriptor");
}

Descriptor::~Descriptor() {
    close(mFd);
}

SdfSession::SdfSession(SdfSessionStateCb cb, void* user)
    : mCb(cb),
      mUser(user),
      mEvents(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      mTimer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      mEpoll(epoll_create1(EPOLL_CLOEXEC)),
      mLists(*this,
             {[](const Lane& lane, unsigned int turn) { return sdfGetFilters(lane.list[turn]); },
              [this](SdfSessionFiltersCb answer, void* asker, const ListEntry& entry) {
                  answer(this, 1, mFilters.handleOf(entry.id), entry.id, entry.status, entry.first,
                         entry.second, entry.ood, entry.pdcpTimer, asker);
              },
              [this](SdfSessionFiltersCb answer, void* asker, int result) {
                  answer(this, result, nullptr, 0, {}, {}, {}, {}, 0, asker);
              }}),
      mReports(*this,
               {[](const Lane& lane, unsigned int turn) {
                    return sdfGetPriorityQueueReport(lane.oneReport[turn]);
                },
                [this](SdfSessionQueueReportCb answer, void* asker, const ReportEntry& entry) {
                    answer(this, 1, entry.key, entry.first, entry.second, asker);
                },
                [this](SdfSessionQueueReportCb answer, void* asker, int result) {
                    answer(this, result, 0, 0, 0, asker);
                }}) {
    watch(mEpoll.get(), mEvents.get());
    watch(mEpoll.get(), mTimer.get());
}

int SdfSession::open(SdfSessionStateCb cb, void* user, SdfSession** session) {
    // All that needs memory comes first.
    Connector& connector = Connector::instance();
    Inbox& inbox = Inbox::instance();
    auto* const made = new SdfSession(cb, user);
    const int result = connector.open();
    if (result != 0) {
        delete made;
        return result;
    }
    inbox.attach(made->mEvents.get());
    connector.connect();
    made->armTimer();
    *session = made;
    return 0;
}

void SdfSession::close() {
    mClosed = true;
    mLane = nullptr;
    Inbox::instance().detach();
    if (mDepth == 0) delete this;
}

int SdfSession::dispatch() {
    class Round {
      public:
        explicit Round(SdfSession& session) : mSession(session) { ++session.mDepth; }
        ~Round() {
            if (--mSession.mDepth == 0 && mSession.mClosed) {
                delete &mSession;
            } else if (!mSession.mClosed) {
                mSession.armTimer();
            }
        }
        Round(const Round&) = delete;
        Round& operator=(const Round&) = delete;

      private:
        SdfSession& mSession;
    };

    if (mClosed) return SDF_SESSION_CLOSED;
    const Round round(*this);
    bool taken = false;
    bool timed = false;
    while (!mClosed) {
        // Each state is reported before there can be another one, and an answer that has come is in
        // time.
        if (report() || nextEvent()) continue;
        if (!std::exchange(taken, true)) {
            takeEvents();
        } else if (!std::exchange(timed, true)) {
            onTime();
        } else {
            break;
        }
    }
    return mClosed ? SDF_SESSION_CLOSED : 0;
}

int SdfSession::run() {
    pollfd waited{mEpoll.get(), POLLIN, 0};
    while (!mStopped.exchange(false)) {
        (void)poll(&waited, 1, -1);
        if (dispatch() != 0) return SDF_SESSION_CLOSED;
    }
    return 0;
}

void SdfSession::stop() {
    const int before = errno;  // in a signal handler it is somebody's
    mStopped = true;
    (void)eventfd_write(mEvents.get(), 1);
    errno = before;
}

void SdfSession::lose(int reason) {
    if (mPhase == Phase::kPausing) return;
    mPhase = Phase::kPausing;
    mNextStep.set(Clock::now() + mPause);
    mPause = std::min(2 * mPause, mLongestPause);
    mLane = nullptr;
    // A service that was only slow may yet come up.
    if (reason != SDF_SESSION_NO_SERVICE) {
        Inbox::instance().accept(Inbox::kNoLane);
        mNext = mBatch.size();
    }
    setState(SDF_SESSION_DOWN, reason);
    mFilters.lost();
    mSettings.lost();
    mLists.lost();
    mReports.lost();
}

void SdfSession::setPauses(Milliseconds first, Milliseconds longest) {
    mFirstPause = first;
    mLongestPause = longest;
    mPause = first;
    if (mPhase == Phase::kPausing) mNextStep.set(Clock::now() + first);
}

bool SdfSession::report() {
    // A filter's end after the session's, and its state before the session is up.
    if (mStateDue && mState != SDF_SESSION_UP) {
        reportState();
        return true;
    }
    if (mFilters.report() || mSettings.report() || mLists.report() || mReports.report())
        return true;
    advance();
    if (!mStateDue) return false;
    reportState();
    return true;
}

void SdfSession::advance() {
    if (!isSynced()) return;
    mPhase = Phase::kConfirming;
    if (!mFilters.hasChanged()) {
        onConfirmed(this, 0, nullptr, 0, {}, {}, {}, {}, 0, nullptr);
        return;
    }
    try {
        mLists.add(answerDue(), onConfirmed, nullptr);
    } catch (const std::bad_alloc&) {
        lose(SDF_SESSION_NO_RESOURCES);
    }
}

void SdfSession::onConfirmed(SdfSession* session, int result, SdfFilter* /*filter*/,
                             unsigned int /*id*/, SdfFilterStatus /*status*/,
                             SdfLatencyLvl /*first*/, SdfLatencyLvl /*second*/, SdfOod /*ood*/,
                             unsigned int /*pdcpTimer*/, void* /*user*/) {
    if (result > 0 || session->mPhase != Phase::kConfirming) return;
    session->mPhase = Phase::kUp;
    session->mPause = session->mFirstPause;
    session->setState(SDF_SESSION_UP, 0);
}

void SdfSession::reportState() {
    mStateDue = false;
    // The service came and went before either could be reported.
    if (mState == SDF_SESSION_DOWN && mReported == SDF_SESSION_DOWN) return;
    mReported = mState;
    if (mCb == nullptr) return;
    beforeCallback();
    mCb(this, mState, mReason, mUser);
}

bool SdfSession::isSynced() const {
    return mPhase == Phase::kSyncing && mFilters.isSettled() && mSettings.isSettled();
}

bool SdfSession::isBusy() const {
    return mNext < mBatch.size() || mStateDue || isSynced() || mFilters.hasReports() ||
           mSettings.hasReports() || mLists.hasReports() || mReports.hasReports();
}

void SdfSession::takeEvents() {
    if (!Inbox::instance().take(mBatch)) lose(SDF_SESSION_NO_RESOURCES);
}

bool SdfSession::nextEvent() {
    if (mNext == mBatch.size()) {
        // With its memory: it may have been long, for once.
        mBatch = std::vector<Event>();
        mNext = 0;
        return false;
    }
    const Event event = std::move(mBatch[mNext++]);
    std::visit([this](const auto& one) { handle(one); }, event);
    return true;
}

void SdfSession::onTime() {
    uint64_t ignored = 0;
    if (read(mTimer.get(), &ignored, sizeof ignored) > 0) mArmed = Time::max();
    const Time now = Clock::now();
    if (mNextStep.take(now)) {
        if (mPhase == Phase::kPausing) {
            connect();
        } else {
            lose(SDF_SESSION_NO_SERVICE);
        }
    }
    mFilters.onTime(now);
    mSettings.onTime(now);
    mLists.onTime(now);
    mReports.onTime(now);
}

void SdfSession::connect() {
    mPhase = Phase::kConnecting;
    Inbox::instance().accept(Inbox::kNoLane);
    mNext = mBatch.size();
    setState(SDF_SESSION_CONNECTING, 0);
    Connector::instance().connect();
}

void SdfSession::bringUp() {
    mPhase = Phase::kSyncing;
    mNextStep.clear();
    mLane = &Lane::at(Connector::instance().lane());
    if (!sent(sdfRegFilterStatus(mLane->filter)) || !mSettings.request()) return;
    mFilters.request();
    if (!isOnline()) return;
    mLists.request();
    mReports.request();
}

void SdfSession::setState(SdfSessionState state, int reason) {
    mState = state;
    mReason = reason;
    mStateDue = true;
}

void SdfSession::armTimer() {
    Due due = mNextStep;
    due.orAt(mFilters.due());
    due.orAt(mSettings.due());
    due.orAt(mLists.due());
    due.orAt(mReports.due());
    constexpr Time kNow = Time::min();
    const Time when = isBusy() ? kNow : due.when().value_or(Time::max());
    // One that comes too early does no harm; most answers come long before it.
    if (when == mArmed || (when > mArmed && mArmed != kNow && when != Time::max())) return;
    mArmed = when;
    itimerspec timer{};
    if (when != Time::max()) {
        const auto since = std::max<std::chrono::nanoseconds>(when.time_since_epoch(),
                                                              std::chrono::nanoseconds(1));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
        timer.it_value.tv_sec = static_cast<time_t>(seconds.count());
        timer.it_value.tv_nsec = static_cast<long>((since - seconds).count());
    }
    (void)timerfd_settime(mTimer.get(), TFD_TIMER_ABSTIME, &timer, nullptr);
}

void SdfSession::handle(const StatusEvent& event) {
    const bool up = event.status == SDF_V2_SERVICE_UP;
    if (up && (mPhase == Phase::kPausing || mPhase == Phase::kConnecting)) {
        bringUp();
    } else if (!up) {
        lose(event.status == SDF_V2_SUCCESS ? SDF_V2_INVALID : event.status);
    }
}

void SdfSession::handle(const ClientMadeEvent& event) {
    if (event.result != SDF_V2_SUCCESS) {
        lose(static_cast<int>(event.result));
    } else if (mPhase == Phase::kConnecting) {
        mNextStep.set(Clock::now() + kAttempt);
    }
}
