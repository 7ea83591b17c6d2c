// SPDX-License-Identifier: Apache-2.0
// The life of a session: its connection, its loss, its end, and its loop.

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <thread>

#include "session/Inbox.h"
#include "tests/session/SessionFixture.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Eventually.h"
#include "tests/support/ThreadRefusal.h"

namespace {

class LifeTest : public SessionTest {
  protected:
    // Everything that a session can want, with names for its callbacks.
    void wantEverything() {
        static char levels[] = "levels";
        ASSERT_EQ(sdfSessionSetDdsPdcpTimer(mSession, 70), 0);
        ASSERT_EQ(sdfSessionSetDdsOod(mSession, SDF_OOD_DISABLED_LVL), 0);
        ASSERT_EQ(sdfSessionSetDdsPriority(mSession, true), 0);
        for (const SdfSlotID slot :
             {SDF_SLOT_ID_SECOND, SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_FIRST}) {
            ASSERT_EQ(sdfSessionSetDataPriority(mSession, slot, true), 0);
            ASSERT_EQ(sdfSessionSetLevels(mSession, slot, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4,
                                          true, onLevels, levels),
                      0);
        }
        ASSERT_EQ(sdfSessionSetGaming(mSession, true), 0);
        ASSERT_EQ(sdfSessionSetQueueReports(mSession, 500, onReport, nullptr), 0);
        ASSERT_EQ(sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr), 0);
        add("one", 1);
        add("two", 2);
    }
    int isReadable() {
        pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
        return poll(&waited, 1, 0);
    }
    // In the order in which it is sent.
    const Lines mEverything{
        "RegFilterStatus",       "RegAutoFilterInfo",      "RegPriorityQueueReports 1 500",
        "EnHighPerfGaming 1",    "PrioritizeData -1 1",    "PrioritizeData 0 1",
        "PrioritizeData 1 1",    "PrioritizeDds 1",        "UpdateDdsOod 3",
        "UpdateDdsPdcpTimer 70", "SetLatencyLvl -1 3 4 1", "SetLatencyLvl 0 3 4 1",
        "SetLatencyLvl 1 3 4 1", "AddFilter 1 1 2 2 50",   "AddFilter 2 1 2 2 50"};
    // Answers the three requests for levels, of which this is the first.
    void answerLevels(unsigned int id) {
        for (const unsigned int one : {id, id + 1, id + 2}) {
            mSdk.levels(one, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4);
        }
        EXPECT_EQ(reported(), (Lines{"levels unspecified success 3 4", "levels first success 3 4",
                                     "levels second success 3 4"}));
    }
};

TEST_F(LifeTest, SendsWhatWasWantedBeforeTheServiceWasUpInOneOrder) {
    open();
    wantEverything();
    EXPECT_EQ(reported(), (Lines{"session connecting", "one requested", "two requested"}));
    EXPECT_EQ(mSdk.take(), (Lines{"Create"}));
    mSdk.up();
    EXPECT_EQ(reported(), Lines{});  // not up before the filters are answered
    EXPECT_EQ(mSdk.take(), mEverything);
    answerLevels(1);
    mSdk.answer(4);
    EXPECT_EQ(reported(), (Lines{"one active"}));
    mSdk.answer(5, SDF_FILTER_ERROR_LIMIT_REACHED);
    EXPECT_EQ(reported(), (Lines{"two rejected: filter limit reached", "session up"}));
    EXPECT_EQ(mSdk.take(), Lines{});
}

TEST_F(LifeTest, SendsEverythingAgainToTheNextClient) {
    open();
    wantEverything();
    mSdk.up();
    reported();
    mSdk.answer(4);
    mSdk.answer(5);
    EXPECT_EQ(reported(), (Lines{"one active", "two active"}));  // not before the levels are
    mSdk.levels(1, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4);
    mSdk.levels(2, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4);
    mSdk.levels(3, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4);
    EXPECT_EQ(reported().back(), "session up");
    mSdk.take();
    mSdk.status(SDF_V2_SERVICE_DOWN);
    EXPECT_EQ(reported(3), (Lines{"session down: service down", "one lost", "two lost"}));
    waitForNextClient();
    EXPECT_EQ(reported(), (Lines{"session connecting"}));
    EXPECT_EQ(mSdk.take(), (Lines{"Destroy", "Create"}));
    mSdk.up();
    EXPECT_EQ(reported(), (Lines{"one requested", "two requested"}));
    EXPECT_EQ(mSdk.take(), mEverything);
    answerLevels(6);
    mSdk.answer(9);
    mSdk.answer(10);
    EXPECT_EQ(reported(), (Lines{"one active", "two active", "session up"}));
}

TEST_F(LifeTest, EachStatusButUpIsALoss) {
    for (const int status : {-1, -2, -3, -4, -5, 0, -8}) {
        open();
        mSdk.up();
        reported();
        mSdk.status(status);
        EXPECT_EQ(reported(), (Lines{std::string("session down: ") +
                                     sdfSessionText(status == 0 ? SDF_V2_INVALID : status)}));
        close();
        mSdk.reset();
    }
}

TEST_F(LifeTest, StatusesThatSayNothingNewAreIgnored) {
    openUp();
    mSdk.up();
    EXPECT_EQ(reported(), Lines{});
    EXPECT_EQ(mSdk.take(), Lines{});
    mSdk.status(SDF_V2_SERVICE_DOWN);
    mSdk.status(SDF_V2_INTERNAL_ERROR);
    EXPECT_EQ(reported(), (Lines{"session down: service down"}));
}

TEST_F(LifeTest, FailedAttemptIsALossToo) {
    open();
    mSdk.status(SDF_V2_NOT_SUPPORTED);
    EXPECT_EQ(reported(), (Lines{"session connecting", "session down: not supported"}));
    waitForNextClient();
    mSdk.up();
    EXPECT_EQ(reported(2), (Lines{"session connecting", "session up"}));
}

TEST_F(LifeTest, RefusedRequestIsALoss) {
    for (const std::string& request : mEverything) {
        for (const int code : {SDF_V2_SERVICE_DOWN, SDF_V2_INTERNAL_ERROR}) {
            open();
            wantEverything();
            mSdk.failNext(request, code);
            reported();
            mSdk.up();
            EXPECT_EQ(reported(), (Lines{std::string("session down: ") + sdfSessionText(code)}));
            waitForNextClient();
            mSdk.take();
            mSdk.up();
            reported();
            EXPECT_EQ(mSdk.take(), mEverything) << request;
            close();
            mSdk.reset();
        }
    }
}

TEST_F(LifeTest, WhatEarlierClientsBringIsDropped) {
    openUp();
    SdfFilter* const filter = addActive("one", 1, 1);
    const SdfFilterStatusCb before = mSdk.filterCb;
    mSdk.status(SDF_V2_SERVICE_DOWN);
    EXPECT_EQ(reported(), (Lines{"session down: service down", "one lost"}));
    mSdk.status(SDF_V2_SERVICE_UP, 1);
    waitForNextClient();
    mSdk.status(SDF_V2_SERVICE_UP, 1);
    mSdk.status(SDF_V2_INTERNAL_ERROR, 1);
    EXPECT_EQ(reported(), (Lines{"session connecting"}));
    mSdk.up();
    EXPECT_EQ(reported(), (Lines{"one requested"}));
    before(2, SDF_FILTER_INACTIVITY_TIMEOUT);
    mSdk.answer(2);
    before(2, SDF_FILTER_INACTIVITY_TIMEOUT);
    EXPECT_EQ(reported(), (Lines{"one active", "session up"}));
    EXPECT_EQ(sdfFilterGetId(filter), 2U);
}

TEST_F(LifeTest, ServiceThatIsNotThereIsAskedForOncePerPause) {
    open();
    ASSERT_EQ(sdfSessionSetPauses(mSession, 1, 1), 0);
    EXPECT_EQ(reported(4), (Lines{"session connecting", "session down: no service",
                                  "session connecting", "session down: no service"}));
    EXPECT_EQ(mSdk.take(), (Lines{"Create", "Destroy", "Create"}));
}

TEST_F(LifeTest, ServiceThatComesUpLateIsTaken) {
    open();
    EXPECT_EQ(reported(2), (Lines{"session connecting", "session down: no service"}));
    mSdk.status(SDF_V2_INTERNAL_ERROR);
    EXPECT_EQ(reported(), Lines{});
    mSdk.up();
    EXPECT_EQ(reported(), (Lines{"session up"}));
    EXPECT_EQ(mSdk.take(), (Lines{"Create", "RegFilterStatus"}));
}

// Nothing comes from the service any more that would have it look.
TEST_F(LifeTest, IsUpWhenTheLastUnansweredSettingIsCleared) {
    open();
    ASSERT_EQ(sdfSessionSetLevels(mSession, SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1,
                                  false, nullptr, nullptr),
              0);
    mSdk.up();
    EXPECT_EQ(reported(), (Lines{"session connecting"}));
    ASSERT_EQ(sdfSessionClearLevels(mSession, SDF_SLOT_ID_FIRST), 0);
    EXPECT_EQ(reported(1), (Lines{"session up"}));
}

// It is down all the time, as far as the application is concerned.
TEST_F(LifeTest, ServiceThatComesUpLateAndGoesAtOnceIsNotReported) {
    open();
    EXPECT_EQ(reported(2), (Lines{"session connecting", "session down: no service"}));
    mSdk.up();
    mSdk.status(SDF_V2_SERVICE_DOWN);
    EXPECT_EQ(reported(), Lines{});
    waitForNextClient();
    mSdk.up();
    EXPECT_EQ(reported(2), (Lines{"session connecting", "session up"}));
}

TEST_F(LifeTest, NoAttemptWhileTheLastClientIsBeingDestroyed) {
    openUp();
    mSdk.hold(true);
    ASSERT_EQ(sdfSessionSetPauses(mSession, 1, 1), 0);
    mSdk.status(SDF_V2_SERVICE_DOWN);
    EXPECT_EQ(reported(2), (Lines{"session down: service down", "session connecting"}));
    ASSERT_TRUE(eventually([this] { return mSdk.take() == Lines{"Destroy"}; }));
    pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 100), 0);
    EXPECT_EQ(mSdk.take(), Lines{});
    mSdk.hold(false);
    EXPECT_TRUE(dispatchUntil([this] { return mSdk.clients() == 2; }));
    EXPECT_EQ(mSdk.take(), (Lines{"Create"}));
}

TEST_F(LifeTest, ClientThatCannotBeDestroyedIsTriedAgain) {
    openUp();
    mSdk.failNext("Destroy", SDF_V2_INTERNAL_ERROR);
    mSdk.status(SDF_V2_SERVICE_DOWN);
    reported();
    waitForNextClient();
    EXPECT_EQ(mSdk.take(), (Lines{"Destroy", "Destroy", "Create"}));
}

TEST_F(LifeTest, AttemptWithoutDescriptorsFails) {
    openUp();
    ASSERT_EQ(sdfSessionSetPauses(mSession, 1, 1), 0);
    mSdk.status(SDF_V2_SERVICE_DOWN);
    {
        const DescriptorLimit limit(7);
        EXPECT_EQ(reported(2), (Lines{"session down: service down", "session connecting"}));
        ASSERT_EQ(sdfSessionSetPauses(mSession, 86400000, 86400000), 0);
        EXPECT_EQ(reported(1), (Lines{"session down: internal error"}));
    }
    waitForNextClient();
    mSdk.up();
    EXPECT_TRUE(dispatchUntil([this] { return sdfSessionGetState(mSession) == SDF_SESSION_UP; }));
}

TEST_F(LifeTest, OneSessionAndNoClientBesideIt) {
    EXPECT_EQ(sdfSessionOpen(onState, this, nullptr), SDF_SESSION_INVALID_ARG);
    open();
    SdfSession* other = mSession;
    EXPECT_EQ(sdfSessionOpen(onState, this, &other), SDF_SESSION_EXISTS);
    EXPECT_EQ(other, nullptr);
    close();
    createSdfClient([](int) {});
    EXPECT_EQ(sdfSessionOpen(onState, this, &other), SDF_SESSION_CLIENT_EXISTS);
    destroySdfClient();
    open();
}

TEST_F(LifeTest, CloseWaitsAsLongAsItIsToAndTheNextOpenForTheRest) {
    openUp();
    mSdk.hold(true);
    EXPECT_EQ(sdfSessionClose(std::exchange(mSession, nullptr), 1), SDF_SESSION_CLOSING);
    SdfSession* session = nullptr;
    EXPECT_EQ(sdfSessionOpen(onState, this, &session), SDF_SESSION_CLOSING);
    mSdk.hold(false);
    ASSERT_TRUE(eventually(
        [&] { return sdfSessionOpen(onState, this, &mSession) != SDF_SESSION_CLOSING; }));
    EXPECT_EQ(reported(1), (Lines{"session connecting"}));
}

TEST_F(LifeTest, CloseBeforeTheClientIsMade) {
    mSdk.hold(true);
    ASSERT_EQ(sdfSessionOpen(onState, this, &mSession), 0);
    ASSERT_TRUE(eventually([this] { return mSdk.take() == Lines{"Create"}; }));
    EXPECT_EQ(sdfSessionClose(std::exchange(mSession, nullptr), 0), SDF_SESSION_CLOSING);
    mSdk.hold(false);
    EXPECT_TRUE(eventually([this] { return mSdk.take() == Lines{"Destroy"}; }));
    EXPECT_TRUE(eventually(
        [&] { return sdfSessionOpen(onState, this, &mSession) != SDF_SESSION_CLOSING; }));
}

TEST_F(LifeTest, NothingIsReportedAfterClose) {
    openUp();
    addActive("one", 1, 1);
    mSdk.status(SDF_V2_SERVICE_DOWN);
    const SdfFilterStatusCb late = mSdk.filterCb;
    close();
    late(1, SDF_FILTER_ACTIVE);
    mSdk.status(SDF_V2_SERVICE_UP);
    EXPECT_EQ(sdfSessionClose(nullptr, 0), 0);
}

TEST_F(LifeTest, RefusedThreadOrDescriptorFailsOpen) {
    SdfSession* session = nullptr;
    {
        const ThreadRefusal refusal;
        EXPECT_EQ(sdfSessionOpen(onState, this, &session), SDF_SESSION_NO_RESOURCES);
    }
    for (int free = 0; free < 3; ++free) {
        const DescriptorLimit limit(free);
        EXPECT_EQ(sdfSessionOpen(onState, this, &session), SDF_SESSION_NO_RESOURCES);
        EXPECT_EQ(session, nullptr);
    }
    open();
}

TEST_F(LifeTest, ClosesFromInsideEachCallback) {
    static char name[] = "one";
    const struct {
        const char* line;
        std::function<void()> cause;
    } cases[] = {
        {"session down: service down", [this] { mSdk.status(SDF_V2_SERVICE_DOWN); }},
        {"one active", [this] { mSdk.indicate(1, SDF_FILTER_ACTIVE); }},
        {"one removed", [this] { sdfFilterRemove(add("one", 7)); }},
        {"one first success 1 2",
         [this] {
             sdfSessionSetLevels(mSession, SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2,
                                 true, onLevels, name);
             mSdk.levels(2, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2);
         }},
        {"report 3 10 20",
         [this] {
             mSdk.report({3, 4});
         }},
        {"auto filter 9", [this] { mSdk.autoFilter(9); }},
        {"one 1",
         [this] {
             sdfSessionAskFilters(mSession, 0, onFilters, name);
             mSdk.list({1, 1});
             sdfSessionDispatch(mSession);
             mSdk.list({1});
         }},
        {"one no answer in time",
         [this] { sdfSessionAskQueueReport(mSession, 1, onQueueReport, name); }},
    };
    for (const auto& one : cases) {
        openUp();
        sdfSessionSetQueueReports(mSession, 1, onReport, nullptr);
        sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr);
        add("one", 1);
        mSdk.answer(1, SDF_FILTER_PENDING);
        EXPECT_EQ(reported(2), (Lines{"one requested", "one pending"}));
        int result = 1;
        upon(one.line, [&] {
            SdfSession* const session = std::exchange(mSession, nullptr);
            EXPECT_EQ(sdfSessionClose(session, 30000), 0);
            result = sdfSessionDispatch(session);
            EXPECT_EQ(sdfSessionSetGaming(session, true), SDF_SESSION_CLOSED);
        });
        SdfSession* const session = mSession;
        one.cause();
        int outer = 0;
        while (mSession != nullptr) {
            pollfd waited{sdfSessionFd(session), POLLIN, 0};
            poll(&waited, 1, 10);
            outer = sdfSessionDispatch(session);
        }
        EXPECT_EQ(result, SDF_SESSION_CLOSED) << one.line;
        EXPECT_EQ(outer, SDF_SESSION_CLOSED) << one.line;
        mSdk.reset();
    }
}

TEST_F(LifeTest, DispatchesFromInsideCallbacks) {
    openUp();
    const SdfFilter* const filters[] = {add("one", 1), add("two", 2), add("three", 3)};
    (void)filters;
    // Each callback has the next one called before it returns.
    std::function<void()> next = [&] {
        upon("two requested", [&] {
            upon("three requested", [&] { sdfSessionDispatch(mSession); });
            sdfSessionDispatch(mSession);
        });
        sdfSessionDispatch(mSession);
    };
    upon("one requested", next);
    for (const unsigned int id : {1U, 2U, 3U}) mSdk.answer(id);
    EXPECT_EQ(reported(), (Lines{"one requested", "two requested", "three requested", "one active",
                                 "two active", "three active"}));
}

TEST_F(LifeTest, WhatACallbackThrowsLeavesDispatchAndTheRestComesWithTheNext) {
    openUp();
    add("one", 1);
    add("two", 2);
    mSdk.answer(1);
    mSdk.answer(2);
    upon("one requested", [] { throw std::runtime_error("one"); });
    EXPECT_THROW(sdfSessionDispatch(mSession), std::runtime_error);
    upon("one active", [] { throw std::runtime_error("two"); });
    pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 0), 1);
    EXPECT_THROW(sdfSessionDispatch(mSession), std::runtime_error);
    EXPECT_EQ(poll(&waited, 1, 0), 1);
    EXPECT_EQ(reported(), (Lines{"one requested", "two requested", "one active", "two active"}));
}

TEST_F(LifeTest, WhatCameWhileACallbackThrewWakesTheLoop) {
    openUp();
    add("one", 1);
    mSdk.answer(1);
    upon("one requested", [] { throw std::runtime_error("one"); });
    EXPECT_THROW(sdfSessionDispatch(mSession), std::runtime_error);
    EXPECT_EQ(isReadable(), 1);
    EXPECT_EQ(reported(), (Lines{"one requested", "one active"}));
    EXPECT_EQ(isReadable(), 0);
}

// By epoll, as the other tests use poll.
TEST_F(LifeTest, LoopInsideACallbackSeesAllThatIsDue) {
    const struct {
        const char* line;
        std::function<void()> before;
        std::function<void()> inside;
        Lines rest;
    } cases[] = {
        {"one active", [this] { mSdk.indicate(2, SDF_FILTER_ACTIVE); }, [] {}, {"two active"}},
        {"one active", [] {}, [this] { add("three", 3); }, {"three requested"}},
        {"one active", [] {}, [this] { mSdk.indicate(2, SDF_FILTER_ACTIVE); }, {"two active"}},
    };
    for (const auto& one : cases) {
        openUp();
        add("one", 1);
        add("two", 2);
        mSdk.answer(1, SDF_FILTER_PENDING);
        mSdk.answer(2, SDF_FILTER_PENDING);
        EXPECT_EQ(reported().size(), 4U);
        mSdk.indicate(1, SDF_FILTER_ACTIVE);
        one.before();
        int ready = 0;
        upon("one active", [&] {
            one.inside();
            const int loop = epoll_create1(EPOLL_CLOEXEC);
            epoll_event event{EPOLLIN, {}};
            epoll_ctl(loop, EPOLL_CTL_ADD, sdfSessionFd(mSession), &event);
            ready = epoll_wait(loop, &event, 1, 30000);
            ::close(loop);
            sdfSessionDispatch(mSession);
        });
        Lines all{"one active"};
        all.insert(all.end(), one.rest.begin(), one.rest.end());
        EXPECT_EQ(reported(), all);
        EXPECT_EQ(ready, 1);
        close();
        mSdk.reset();
    }
}

TEST_F(LifeTest, AnswerThatLiesReadyIsInTimeForADispatchInsideACallback) {
    openUp();
    addActive("one", 1, 1);
    ASSERT_EQ(sdfSessionSetAnswerDeadline(mSession, 1), 0);
    mSdk.indicate(1, SDF_FILTER_PENDING);
    mSdk.indicate(1, SDF_FILTER_ACTIVE);
    upon("one pending", [this] {
        add("two", 2);
        mSdk.answer(2);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        sdfSessionDispatch(mSession);
    });
    EXPECT_EQ(reported(), (Lines{"one pending", "two requested", "one active", "two active"}));
}

TEST_F(LifeTest, ClosesAndOpensInsideACallback) {
    openUp();
    add("one", 1);
    SdfSession* const first = mSession;
    upon("one requested", [this] {
        EXPECT_EQ(sdfSessionClose(mSession, 30000), 0);
        EXPECT_EQ(sdfSessionOpen(onState, this, &mSession), 0);
        EXPECT_EQ(sdfSessionDispatch(mSession), 0);
    });
    EXPECT_EQ(sdfSessionDispatch(first), SDF_SESSION_CLOSED);
    ASSERT_TRUE(mSdk.waitForClients(2));
    mSdk.up();
    EXPECT_TRUE(dispatchUntil([this] { return sdfSessionGetState(mSession) == SDF_SESSION_UP; }));
}

TEST_F(LifeTest, InboxTakesNothingForTheNextSessionBeforeItsClient) {
    Inbox& inbox = Inbox::instance();
    const int events = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    inbox.attach(events);
    inbox.detach();
    inbox.accept(1);  // of a client that is made while its session is closed
    inbox.attach(events);
    inbox.push(1, StatusEvent{SDF_V2_SERVICE_DOWN});
    std::vector<Event> taken;
    EXPECT_TRUE(inbox.take(taken));
    EXPECT_TRUE(taken.empty());
    inbox.detach();
    ::close(events);
}

TEST_F(LifeTest, ItsThreadLeavesTheSignalsOfAFaultOpen) {
    open();
    const sigset_t blocked = mSdk.blocked();
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        EXPECT_EQ(sigismember(&blocked, fault), 0) << fault;
    }
    for (const int handled : {SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGRTMIN}) {
        EXPECT_EQ(sigismember(&blocked, handled), 1) << handled;
    }
}

TEST_F(LifeTest, RunIsStoppedByASignalHandler) {
    open();
    static SdfSession* stopped;
    stopped = mSession;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { sdfSessionStop(stopped); };
    sigaction(SIGALRM, &action, &before);
    const itimerval soon{{0, 0}, {0, 1000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(sdfSessionRun(mSession), 0);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(LifeTest, RunsUntilItIsStopped) {
    open();
    mSdk.up();
    upon("session up", [this] { sdfSessionStop(mSession); });
    EXPECT_EQ(sdfSessionRun(mSession), 0);
    std::thread other([this] { sdfSessionStop(mSession); });
    EXPECT_EQ(sdfSessionRun(mSession), 0);
    other.join();
    mSdk.status(SDF_V2_SERVICE_DOWN);
    upon("session down: service down",
         [this] { sdfSessionClose(std::exchange(mSession, nullptr), 30000); });
    EXPECT_EQ(sdfSessionRun(mSession), SDF_SESSION_CLOSED);
}

TEST_F(LifeTest, AtRestNothingWakesTheLoop) {
    openUp();
    ASSERT_EQ(sdfSessionSetAnswerDeadline(mSession, 1000), 0);
    add("one", 1);
    EXPECT_EQ(reported(), (Lines{"one requested"}));
    mSdk.answer(1);
    EXPECT_EQ(reported(), (Lines{"one active"}));
    pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 1200), 0);
}

TEST_F(LifeTest, FloodThatNobodyDispatchesIsALoss) {
    openUp();
    addActive("one", 1, 1);
    for (int count = 0; count < 65537; ++count) mSdk.indicate(1, SDF_FILTER_ACTIVE);
    EXPECT_EQ(reported(), (Lines{"session down: internal error", "one lost"}));
}

TEST_F(LifeTest, ReportsThatNobodyDispatchesAreDropped) {
    openUp();
    sdfSessionSetQueueReports(mSession, 1, onReport, nullptr);
    sdfSessionSetAutoFilters(mSession, onAutoFilter, nullptr);
    mSdk.report(std::vector<unsigned int>(5000, 3));
    mSdk.autoFilter(9);
    mSdk.status(SDF_V2_SERVICE_DOWN);
    const Lines lines = reported();
    ASSERT_EQ(lines.size(), 4097U);
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end() - 1,
                            [](const std::string& line) { return line == "report 3 10 20"; }));
    EXPECT_EQ(lines.back(), "session down: service down");
}

TEST_F(LifeTest, DescriptorStaysTheSameAndIsNotInherited) {
    openUp();
    const int fd = sdfSessionFd(mSession);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    mSdk.status(SDF_V2_SERVICE_DOWN);
    reported();
    waitForNextClient();
    EXPECT_EQ(sdfSessionFd(mSession), fd);
    EXPECT_EQ(sdfSessionFd(nullptr), -1);
}

}  // namespace
