// SPDX-License-Identifier: Apache-2.0
// The C++ interface, included first, against an emulator: who owns what, and what that does to
// callbacks.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <lum_sdf_session.hpp>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestDirectory.h"

namespace {

using lum::sdf::Callback;
using lum::sdf::Error;
using lum::sdf::Filter;
using lum::sdf::ListedFilter;
using lum::sdf::QueueReportEntry;
using lum::sdf::Session;

static_assert(!std::is_copy_constructible_v<Session> && !std::is_copy_assignable_v<Session>);
static_assert(!std::is_copy_constructible_v<Filter> && !std::is_copy_assignable_v<Filter>);
static_assert(std::is_nothrow_move_constructible_v<Session>);
static_assert(std::is_nothrow_move_assignable_v<Session>);
static_assert(std::is_nothrow_move_constructible_v<Filter>);
static_assert(std::is_nothrow_move_assignable_v<Filter>);
static_assert(!std::is_constructible_v<Callback<int>, int>);

// The code that the call fails with; 0 if it does not.
int codeOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        EXPECT_STREQ(error.what(), sdfSessionText(error.code()));
        return error.code();
    }
    return 0;
}

SdfAddFilterInfo flow(uint16_t port) {
    SdfAddFilterInfo info{};
    for (sockaddr_storage* const storage : {&info.src_addr, &info.dest_addr}) {
        auto& address = reinterpret_cast<sockaddr_in&>(*storage);
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    info.first_level = SDF_LATENCY_LVL_2;
    info.second_level = SDF_LATENCY_LVL_4;
    info.ood = SDF_OOD_ENABLED_LVL;
    info.protocol = SDF_PROTOCOL_UDP;
    return info;
}

// Dispatches until the condition holds; false when that takes too long or the session is closed
// before.
bool wait(Session& session, const std::function<bool()>& condition) {
    while (!condition()) {
        pollfd waited{session.fd(), POLLIN, 0};
        if (poll(&waited, 1, static_cast<int>(std::chrono::milliseconds(kLimit).count())) <= 0) {
            return false;
        }
        if (!session.dispatch()) return condition();
    }
    return true;
}

// The same until the session ends.
bool waitForEnd(std::unique_ptr<Session>& session) {
    while (session) {
        pollfd waited{session->fd(), POLLIN, 0};
        if (poll(&waited, 1, static_cast<int>(std::chrono::milliseconds(kLimit).count())) <= 0) {
            return false;
        }
        if (session->dispatch() == !session) return false;
    }
    return true;
}

int plus(int* sum) {
    return ++*sum;
}

TEST(CallbackTest, CallsWhateverCanBeCalled) {
    int sum = 0;
    Callback<int*>{&plus}(&sum);
    Callback<int*>{std::function<void(int*)>(plus)}(&sum);
    Callback<int*>{[owned = std::make_unique<int>(10)](int* to) { *to += *owned; }}(&sum);
    const Callback<int*> mutating = [calls = 0](int* to) mutable { *to += 100 * ++calls; };
    mutating(&sum);
    Callback<int*>{mutating}(&sum);
    EXPECT_EQ(sum, 312);

    struct Counted {
        int count = 0;
        void add() { ++count; }
    };
    Counted counted;
    Callback<Counted&>{&Counted::add}(counted);
    EXPECT_EQ(counted.count, 1);
}

TEST(CallbackTest, NothingIsNotCalled) {
    const Callback<int> nothings[] = {
        {},
        nullptr,
        static_cast<void (*)(int)>(nullptr),
        std::function<void(int)>(),
    };
    for (const Callback<int>& nothing : nothings) {
        EXPECT_FALSE(nothing);
        nothing(1);
    }
    Callback<int> something = [](int) {};
    EXPECT_TRUE(something);
    const Callback<int> moved = std::move(something);
    EXPECT_TRUE(moved);
    EXPECT_FALSE(something);  // NOLINT(bugprone-use-after-move): that is asked
}

TEST(CallbackTest, MayReplaceItselfWhileItRuns) {
    std::vector<std::string> calls;
    Callback<> callback;
    callback = [&calls, &callback, text = std::string(100, 'x')] {
        callback = [&calls] { calls.emplace_back("second"); };
        calls.push_back(text);
    };
    callback();
    callback();
    EXPECT_EQ(calls, (std::vector<std::string>{std::string(100, 'x'), "second"}));
}

class CppTest : public testing::Test {
  protected:
    ~CppTest() override {
        mSession.reset();
        // The last session's client may still be being destroyed.
        EXPECT_TRUE(eventually(
            [] { return codeOf([] { Session().close(kLimit); }) != SDF_SESSION_CLOSING; }));
    }

    void serve(std::vector<std::string> options = {}) {
        mEmulator = std::make_unique<EmulatorProcess>(std::move(options));
    }

    // A session that is up, once the last one's client is destroyed.
    void connect(std::unique_ptr<Session>& session) {
        ASSERT_TRUE(eventually([&] {
            const int code = codeOf([&] {
                session = std::make_unique<Session>(
                    [this](SdfSessionState state, int /*reason*/) { mStates.push_back(state); });
            });
            return code != SDF_SESSION_CLOSING;
        }));
        ASSERT_TRUE(session);
        ASSERT_TRUE(wait(*session, [&] { return session->state() == SDF_SESSION_UP; }));
    }
    void connect() { connect(mSession); }

    // A filter that is active; what is reported after that goes to `then`.
    Filter active(uint16_t port, const std::function<void(SdfFilterState)>& then = {}) {
        const auto isActive = std::make_shared<bool>(false);
        Filter filter = mSession->add(
            flow(port), [isActive, then](SdfFilterState state, SdfFilterStatus /*why*/) {
                if (*isActive && then) then(state);
                *isActive = *isActive || state == SDF_FILTER_STATE_ACTIVE;
            });
        EXPECT_TRUE(wait(*mSession, [&] { return *isActive; }));
        return filter;
    }

    // What the service lists: not nothing.
    std::vector<ListedFilter> list() {
        std::vector<ListedFilter> listed;
        bool answered = false;
        mSession->askFilters([&](int result, std::vector<ListedFilter> filters) {
            EXPECT_EQ(result, 0);
            listed = std::move(filters);
            answered = true;
        });
        EXPECT_TRUE(wait(*mSession, [&] { return answered; }));
        return listed;
    }

    const TestDirectory mDirectory;
    std::unique_ptr<EmulatorProcess> mEmulator;
    std::vector<SdfSessionState> mStates;
    std::unique_ptr<Session> mSession;
};

TEST_F(CppTest, SessionNeedsNoCallback) {
    Session session({});
    EXPECT_EQ(session.state(), SDF_SESSION_CONNECTING);
    EXPECT_TRUE(session.close(std::chrono::seconds(60)));
}

TEST_F(CppTest, LifeOfASession) {
    serve();
    connect();
    EXPECT_EQ(mStates, (std::vector<SdfSessionState>{SDF_SESSION_CONNECTING, SDF_SESSION_UP}));
    EXPECT_TRUE(*mSession);
    EXPECT_EQ(codeOf([] { const Session second; }), SDF_SESSION_EXISTS);
    EXPECT_TRUE(mSession->close(kLimit));
    EXPECT_TRUE(mSession->close(kLimit));
    EXPECT_FALSE(*mSession);
    const Session another;
    EXPECT_EQ(another.state(), SDF_SESSION_CONNECTING);
}

TEST_F(CppTest, TheLongestWaitIsNotNone) {
    serve();
    connect();
    EXPECT_TRUE(mSession->close(std::chrono::milliseconds::max()));
    connect();
    (void)mSession->close(std::chrono::milliseconds::min());
    // Then that one must have gone.
    EXPECT_TRUE(mEmulator->waitForClients(0));
}

TEST_F(CppTest, FunctionsOfNoSessionFail) {
    serve();
    connect();
    Filter filter = active(1);
    mSession->close(kLimit);
    Session& session = *mSession;
    const SdfLatencyLvl level = SDF_LATENCY_LVL_1;
    const std::vector<std::function<void()>> calls = {
        [&] { session.setAnswerDeadline(kLimit); },
        [&] { session.setPauses(kLimit, kLimit); },
        [&] { (void)session.fd(); },
        [&] { (void)session.state(); },
        [&] { (void)session.add(flow(2)); },
        [&] { session.setLevels(SDF_SLOT_ID_FIRST, level, level, true); },
        [&] { session.clearLevels(SDF_SLOT_ID_FIRST); },
        [&] { session.setGaming(true); },
        [&] { session.setDataPriority(SDF_SLOT_ID_FIRST, true); },
        [&] { session.setDdsPriority(true); },
        [&] { session.setDdsOod(SDF_OOD_ENABLED_LVL); },
        [&] { session.setDdsPdcpTimer(1); },
        [&] { session.clearDdsPdcpTimer(); },
        [&] { session.setQueueReports(1, nullptr); },
        [&] { session.setAutoFilters(nullptr); },
        [&] { session.askFilters([](int, const std::vector<ListedFilter>&) {}); },
        [&] { session.askQueueReport([](int, const std::vector<QueueReportEntry>&) {}); },
        [&] { filter.setRenewed(true); },
        [&] { filter.setLevels(level, level); },
        [&] { filter.setOod(SDF_OOD_ENABLED_LVL); },
        [&] { filter.setPdcpTimer(1); },
        [&] { filter.setDscp(1); },
        [&] { (void)filter.state(); },
        [&] { (void)filter.id(); },
    };
    for (size_t index = 0; index < calls.size(); ++index) {
        EXPECT_EQ(codeOf(calls[index]), SDF_SESSION_CLOSED) << index;
    }
    EXPECT_FALSE(session.dispatch());
    EXPECT_FALSE(session.run());
    session.stop();
    EXPECT_FALSE(filter);
    filter.remove();
}

TEST_F(CppTest, WrongArgumentsAreRefused) {
    serve();
    connect();
    Session& session = *mSession;
    using std::chrono::hours;
    using std::chrono::milliseconds;
    const auto level = SDF_LATENCY_LVL_1;
    const auto noLevel = static_cast<SdfLatencyLvl>(7);
    const auto noSlot = static_cast<SdfSlotID>(2);
    const auto ignore = [](int, const auto&) {};
    Filter filter = session.add(flow(1));
    const std::vector<std::function<void()>> calls = {
        [&] { session.setAnswerDeadline({}); },
        [&] { session.setAnswerDeadline(milliseconds(-1)); },
        [&] { session.setAnswerDeadline(hours(24) + milliseconds(1)); },
        [&] { session.setPauses(milliseconds(2), milliseconds(1)); },
        [&] { session.setLevels(noSlot, level, level, true); },
        [&] { session.setLevels(SDF_SLOT_ID_FIRST, level, noLevel, true); },
        [&] { session.clearLevels(noSlot); },
        [&] { session.askFilters(nullptr); },
        [&] { session.askFilters(ignore, milliseconds(-1)); },
        [&] { session.askQueueReport(ignore, hours(25)); },
        [&] { filter.setLevels(noLevel, level); },
    };
    for (size_t index = 0; index < calls.size(); ++index) {
        EXPECT_EQ(codeOf(calls[index]), SDF_SESSION_INVALID_ARG) << index;
    }
    session.setAnswerDeadline(hours(24));
    session.setPauses(milliseconds(1), hours(24));
}

TEST_F(CppTest, FilterIsWantedAsLongAsItsObjectLives) {
    serve();
    connect();
    Filter first = active(1);
    Filter second = active(2);
    EXPECT_EQ(first.state(), SDF_FILTER_STATE_ACTIVE);
    const unsigned int secondId = second.id();
    EXPECT_EQ(list().size(), 2U);

    first = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): that is asked
    EXPECT_EQ(first.id(), secondId);
    Filter& same = first;
    first = std::move(same);
    ASSERT_TRUE(first);
    std::vector<ListedFilter> listed = list();
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].id, secondId);
    EXPECT_EQ(listed[0].status, SDF_FILTER_ACTIVE);
    EXPECT_EQ(listed[0].first, SDF_LATENCY_LVL_2);
    EXPECT_EQ(listed[0].second, SDF_LATENCY_LVL_4);
    EXPECT_EQ(listed[0].ood, SDF_OOD_ENABLED_LVL);

    first.setLevels(SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6);
    first.setOod(SDF_OOD_DISABLED_LVL);
    first.setPdcpTimer(70);
    first.setDscp(3);
    listed = list();
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].first, SDF_LATENCY_LVL_5);
    EXPECT_EQ(listed[0].second, SDF_LATENCY_LVL_6);
    EXPECT_EQ(listed[0].ood, SDF_OOD_DISABLED_LVL);
    EXPECT_EQ(listed[0].pdcpTimer, 70U);

    const Filter kept = active(3);
    first.remove();
    first.remove();
    EXPECT_FALSE(first);
    listed = list();
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].id, kept.id());
}

TEST_F(CppTest, FilterThatIsNotWantedIsNotReported) {
    serve();
    connect();
    std::vector<SdfFilterState> states;
    const auto note = [&](SdfFilterState state, SdfFilterStatus /*why*/) {
        states.push_back(state);
    };
    { const Filter gone = mSession->add(flow(1), note); }
    Filter kept = active(2, [&](SdfFilterState state) { states.push_back(state); });
    kept.remove();
    { const Filter last = active(3); }
    ASSERT_TRUE(eventually([&] {
        EXPECT_TRUE(mSession->dispatch());
        return mEmulator->stats().filters == 0;
    }));
    EXPECT_TRUE(states.empty());
}

TEST_F(CppTest, MovedSessionKeepsCallbacksAndFilters) {
    serve();
    connect();
    std::vector<SdfFilterState> states;
    const Filter filter = active(1, [&](SdfFilterState state) { states.push_back(state); });
    Session other = std::move(*mSession);
    EXPECT_FALSE(*mSession);
    EXPECT_FALSE(mSession->dispatch());
    mSession.reset();
    other.setPauses(std::chrono::milliseconds(1), std::chrono::milliseconds(1));
    mStates.clear();
    mEmulator->restart();
    ASSERT_TRUE(wait(other, [&] { return states.size() >= 3; }));
    EXPECT_EQ(states,
              (std::vector<SdfFilterState>{SDF_FILTER_STATE_LOST, SDF_FILTER_STATE_REQUESTED,
                                           SDF_FILTER_STATE_ACTIVE}));
    ASSERT_TRUE(wait(other, [&] { return other.state() == SDF_SESSION_UP; }));
    EXPECT_EQ(mStates.front(), SDF_SESSION_DOWN);
    EXPECT_EQ(mStates.back(), SDF_SESSION_UP);

    Session& same = other;
    other = std::move(same);
    EXPECT_TRUE(other);
    Session third = std::move(other);
    EXPECT_TRUE(third.close(kLimit));
    EXPECT_FALSE(filter);
    // Assigned to one that is open: that one is closed.
    connect();
    *mSession = std::move(third);
    EXPECT_FALSE(*mSession);
    EXPECT_TRUE(mEmulator->waitForClients(0));
}

TEST_F(CppTest, ClosedSessionReleasesCallbacks) {
    serve();
    connect();
    const auto owned = std::make_shared<int>();
    const auto keep = [owned](const auto&...) {};
    // Owned by its own callback, which a filter's object must not keep alive.
    const auto filter = std::make_shared<Filter>();
    *filter = mSession->add(flow(1), [filter, keep](const auto&...) {});
    const Filter outliving = mSession->add(flow(2), keep);
    const SdfLatencyLvl level = SDF_LATENCY_LVL_1;
    mSession->setLevels(SDF_SLOT_ID_UNSPECIFIED, level, level, true, keep);
    mSession->setQueueReports(0, keep);
    mSession->setAutoFilters(keep);
    mSession->askFilters(keep);
    mSession->askQueueReport(keep);
    EXPECT_GT(owned.use_count(), 2);
    mSession->close();
    EXPECT_EQ(owned.use_count(), 2);  // and keep
    EXPECT_FALSE(*filter);
    EXPECT_FALSE(outliving);
}

TEST_F(CppTest, ReplacedCallbackIsReleased) {
    serve();
    connect();
    const auto owned = std::make_shared<int>();
    const auto keep = [owned](const auto&...) {};
    const SdfLatencyLvl level = SDF_LATENCY_LVL_1;
    const std::vector<std::pair<std::function<void()>, std::function<void()>>> pairs = {
        {[&] { mSession->setLevels(SDF_SLOT_ID_SECOND, level, level, true, keep); },
         [&] { mSession->setLevels(SDF_SLOT_ID_SECOND, level, level, true); }},
        {[&] { mSession->setLevels(SDF_SLOT_ID_FIRST, level, level, true, keep); },
         [&] { mSession->clearLevels(SDF_SLOT_ID_FIRST); }},
        {[&] { mSession->setQueueReports(0, keep); },
         [&] { mSession->setQueueReports(0, nullptr); }},
        {[&] { mSession->setAutoFilters(keep); }, [&] { mSession->setAutoFilters({}); }},
        {[&] { EXPECT_TRUE(mSession->add(flow(1), keep)); }, [] {}},
    };
    const long before = owned.use_count();
    for (size_t index = 0; index < pairs.size(); ++index) {
        pairs[index].first();
        pairs[index].second();
        EXPECT_EQ(owned.use_count(), before) << index;
    }
}

// What a callback owns goes with it, be it the session and another filter.
TEST_F(CppTest, ReleasedCallbackMayOwnTheSession) {
    struct Owned {
        Filter filter;
        std::unique_ptr<Session> session;  // goes first
    };
    const auto owner = [](std::shared_ptr<Owned> owned) {
        return [owned = std::move(owned)](const auto&...) {};
    };
    struct Row {
        std::function<void(Session&, Filter&, std::shared_ptr<Owned>)> own;
        std::function<void(Session&, Filter&)> release;
    };
    const auto addOwner = [&](Session& session, Filter& filter, std::shared_ptr<Owned> owned) {
        filter = session.add(flow(1), owner(std::move(owned)));
    };
    const SdfSlotID slot = SDF_SLOT_ID_FIRST;
    const SdfLatencyLvl level = SDF_LATENCY_LVL_1;
    const auto setOwner = [&](Session& session, Filter&, std::shared_ptr<Owned> owned) {
        session.setLevels(slot, level, level, true, owner(std::move(owned)));
    };
    const std::vector<Row> rows = {
        {addOwner, [](Session&, Filter& filter) { filter.remove(); }},
        {addOwner, [](Session&, Filter& filter) { filter = {}; }},
        {addOwner, [](Session& session, Filter&) { session.close(); }},
        {setOwner, [&](Session& session, Filter&) { session.clearLevels(slot); }},
        {setOwner, [&](Session& session, Filter&) { session.setLevels(slot, level, level, true); }},
        {[&](Session& session, Filter&, std::shared_ptr<Owned> owned) {
             session.setQueueReports(0, owner(std::move(owned)));
         },
         [](Session& session, Filter&) { session.setQueueReports(0, nullptr); }},
        {[&](Session& session, Filter&, std::shared_ptr<Owned> owned) {
             session.setAutoFilters(owner(std::move(owned)));
         },
         [](Session& session, Filter&) { session.setAutoFilters(nullptr); }},
    };
    serve();
    for (size_t index = 0; index < rows.size(); ++index) {
        connect();
        Session& session = *mSession;
        auto owned = std::make_shared<Owned>();
        const std::weak_ptr<Owned> watched = owned;
        owned->filter = session.add(flow(2));
        owned->session = std::move(mSession);
        Filter filter;
        rows[index].own(session, filter, std::move(owned));
        ASSERT_FALSE(watched.expired()) << index;
        rows[index].release(session, filter);
        EXPECT_TRUE(watched.expired()) << index;
        EXPECT_FALSE(filter) << index;
    }
}

TEST_F(CppTest, FilterMayGoAndMoveInItsOwnCallback) {
    serve();
    connect();
    Filter filter;
    Filter other;
    std::vector<std::string> calls;
    const auto note = [&](const char* text, SdfFilterState state) {
        calls.push_back(text + std::string(" ") + sdfFilterStateText(state));
    };
    // Replaced by another one, which moves, and is removed.
    filter = mSession->add(
        flow(1), [&, text = std::string(100, 'x')](SdfFilterState state, SdfFilterStatus) {
            filter = mSession->add(flow(2), [&](SdfFilterState next, SdfFilterStatus) {
                other = std::move(filter);
                note("second", next);
                other.remove();
                calls.push_back(other ? "there" : "gone");
            });
            note(text.c_str(), state);
        });
    ASSERT_TRUE(wait(*mSession, [&] { return calls.size() == 3; }));
    EXPECT_EQ(calls, (std::vector<std::string>{std::string(100, 'x') + " requested",
                                               "second requested", "gone"}));
    const Filter last = active(3);
    const std::vector<ListedFilter> listed = list();
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].id, last.id());
}

TEST_F(CppTest, CallbackMayReplaceItself) {
    serve();
    connect();
    std::vector<std::string> calls;
    const auto slot = SDF_SLOT_ID_SECOND;
    mSession->setLevels(
        slot, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2, true,
        [&, text = std::string(100, 'x')](int error, SdfLatencyLvl first, SdfLatencyLvl second) {
            EXPECT_EQ(std::make_pair(error, std::make_pair(first, second)),
                      std::make_pair(0, std::make_pair(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2)));
            mSession->setLevels(
                slot, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, true,
                [&](int, SdfLatencyLvl, SdfLatencyLvl) { calls.emplace_back("second"); });
            calls.push_back(text);
        });
    mSession->setQueueReports(10, [&, text = std::string(100, 'y')](const QueueReportEntry& entry) {
        mSession->setQueueReports(10, nullptr);
        calls.push_back(text);
        EXPECT_EQ(entry.key, 32U);
    });
    mSession->setAutoFilters(
        [&, text = std::string(100, 'z')](unsigned int id, const SdfAddFilterInfo& info) {
            mSession->setAutoFilters(nullptr);
            calls.push_back(text);
            EXPECT_EQ(id, 0x80000001U);
            EXPECT_EQ(info.protocol, SDF_PROTOCOL_UDP);
        });
    mSession->setGaming(true);
    ASSERT_TRUE(wait(*mSession, [&] { return calls.size() == 4; }));
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (std::vector<std::string>{"second", std::string(100, 'x'),
                                               std::string(100, 'y'), std::string(100, 'z')}));
}

// From each kind of callback; what the callback owns lasts until it returns.
TEST_F(CppTest, SessionMayGoInEachCallback) {
    std::unique_ptr<Session> session;
    int calls = 0;
    const auto end = [&](const std::string& text) {
        session.reset();
        EXPECT_EQ(text, std::string(100, 'x'));
        ++calls;
    };
    const auto ending = [&] {
        return [end, text = std::string(100, 'x')](const auto&...) { end(text); };
    };
    Filter filter;
    const std::vector<std::function<void()>> ways = {
        [&] { filter = session->add(flow(1), ending()); },
        [&] {
            session->setLevels(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, true,
                               ending());
        },
        [&] { session->setQueueReports(10, ending()); },
        [&] {
            session->setAutoFilters(ending());
            session->setGaming(true);
        },
        [&] {
            filter = session->add(flow(1));
            session->askFilters(ending());
        },
        [&] { session->askQueueReport(ending()); },
    };
    serve();
    for (size_t index = 0; index < ways.size(); ++index) {
        connect(session);
        ways[index]();
        EXPECT_TRUE(waitForEnd(session)) << index;
        EXPECT_EQ(calls, static_cast<int>(index) + 1);
        EXPECT_FALSE(filter);
    }
    // By that of the session itself, inside run().
    connect(session);
    session->close(kLimit);
    session = std::make_unique<Session>(
        [end, text = std::string(100, 'x')](SdfSessionState state, int /*reason*/) {
            if (state == SDF_SESSION_UP) end(text);
        });
    EXPECT_FALSE(session->run());
    EXPECT_EQ(calls, static_cast<int>(ways.size()) + 1);
}

TEST_F(CppTest, SessionMayMoveInItsCallback) {
    serve();
    Session other;
    other.close(kLimit);
    mSession = std::make_unique<Session>([&](SdfSessionState state, int /*reason*/) {
        mStates.push_back(state);
        if (!other) {
            other = std::move(*mSession);
            mSession.reset();
        }
    });
    EXPECT_TRUE(mSession->dispatch());
    EXPECT_FALSE(mSession);
    ASSERT_TRUE(wait(other, [&] { return other.state() == SDF_SESSION_UP; }));
    EXPECT_EQ(mStates, (std::vector<SdfSessionState>{SDF_SESSION_CONNECTING, SDF_SESSION_UP}));
}

TEST_F(CppTest, WhatACallbackThrowsLeavesDispatchAndNothingIsLost) {
    serve();
    std::vector<std::string> thrown;
    std::vector<std::string> goodCalls;
    const auto collect = [&](const std::function<bool()>& done) {
        bool over = false;
        while (!over) {
            try {
                over = wait(*mSession, done);
                EXPECT_TRUE(over);
                over = true;
            } catch (const std::string& text) {
                thrown.push_back(text);
            }
        }
    };
    mSession = std::make_unique<Session>([](SdfSessionState state, int /*reason*/) {
        throw std::string(sdfSessionStateText(state));
    });
    collect([&] { return mSession->state() == SDF_SESSION_UP && thrown.size() == 2; });
    EXPECT_EQ(thrown, (std::vector<std::string>{"connecting", "up"}));
    thrown.clear();

    const Filter bad = mSession->add(flow(1), [](SdfFilterState state, SdfFilterStatus) {
        throw std::string(sdfFilterStateText(state));
    });
    mSession->askFilters([](int, const std::vector<ListedFilter>&) { throw std::string("list"); });
    const Filter good = mSession->add(flow(2), [&](SdfFilterState state, SdfFilterStatus) {
        goodCalls.emplace_back(sdfFilterStateText(state));
    });
    mSession->askFilters([&](int result, const std::vector<ListedFilter>& /*filters*/) {
        goodCalls.push_back("list " + std::to_string(result));
    });
    collect([&] { return goodCalls.size() == 3 && thrown.size() == 3; });
    EXPECT_EQ(thrown, (std::vector<std::string>{"requested", "active", "list"}));
    EXPECT_EQ(goodCalls, (std::vector<std::string>{"requested", "active", "list 0"}));
}

// Each report has two entries. While one is handed over, the next report comes, and dispatch() is
// called: what has just come must not be left lying.
TEST_F(CppTest, DispatchInsideACallbackLeavesNothingLying) {
    serve();
    connect();
    const Filter filter = active(1);
    const int fd = mSession->fd();
    size_t entries = 0;
    bool inside = false;
    mSession->setQueueReports(10, [&](const QueueReportEntry& /*entry*/) {
        ++entries;
        if (std::exchange(inside, true)) return;
        pollfd waited{fd, POLLIN, 0};
        EXPECT_EQ(poll(&waited, 1, 30000), 1);
        EXPECT_TRUE(mSession->dispatch());
        inside = false;
    });
    EXPECT_TRUE(wait(*mSession, [&] { return entries >= 20; }));
}

TEST_F(CppTest, RunEndsByStopAndByWhatIsThrown) {
    serve();
    connect();
    std::thread stopper([&] { mSession->stop(); });
    EXPECT_TRUE(mSession->run());
    stopper.join();
    const Filter filter = mSession->add(flow(1), [](SdfFilterState, SdfFilterStatus) { throw 1; });
    EXPECT_THROW((void)mSession->run(), int);
}

TEST_F(CppTest, Questions) {
    serve({"--rule", "on get_priority_queue_report from 3: never"});
    connect();
    const Filter filter = active(1);
    std::vector<QueueReportEntry> entries;
    std::vector<int> results;
    const auto note = [&](int result, std::vector<QueueReportEntry> got) {
        results.push_back(result);
        entries = std::move(got);
    };
    mSession->askQueueReport(note);
    ASSERT_TRUE(wait(*mSession, [&] { return results.size() == 1; }));
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].key, 0U);
    EXPECT_EQ(entries[1].key, 32U);
    EXPECT_EQ(entries[1].first, (uint64_t{1} << 32) + 1000);
    EXPECT_EQ(entries[1].second, ((uint64_t{1} << 32) + 1000) * 1200);
    // Its answer does not come; nor does that to the next one, which is asked behind it.
    mSession->askQueueReport(note, std::chrono::milliseconds(1));
    ASSERT_TRUE(wait(*mSession, [&] { return results.size() == 2; }));
    EXPECT_TRUE(entries.empty());
    mSession->askQueueReport(note);
    mEmulator->kill();
    ASSERT_TRUE(wait(*mSession, [&] { return results.size() == 3; }));
    EXPECT_EQ(results, (std::vector<int>{0, SDF_SESSION_NO_ANSWER, SDF_SESSION_LOST}));
}

// Each setting reaches the service as the C function sends it.
TEST_F(CppTest, SettingsAreThoseOfTheCInterface) {
    const std::string record = mDirectory.path() + "/record";
    const auto recorded = [&] {
        EXPECT_TRUE(mEmulator->waitForClients(0));
        EXPECT_EQ(mEmulator->terminate(), 0);
        std::vector<std::string> requests = recordedRequests(record);
        EXPECT_EQ(unlink(record.c_str()), 0);
        return requests;
    };
    const std::vector<std::string> options = {"--record", record};

    serve(options);
    connect();
    mSession->setGaming(true);
    mSession->setGaming(false);
    mSession->setDataPriority(SDF_SLOT_ID_SECOND, true);
    mSession->setDdsPriority(true);
    mSession->setDdsOod(SDF_OOD_DISABLED_LVL);
    mSession->setDdsPdcpTimer(77);
    mSession->clearDdsPdcpTimer();
    mSession->setQueueReports(5000, [](const QueueReportEntry&) {});
    mSession->setQueueReports(6000, nullptr);
    mSession->close(kLimit);
    const std::vector<std::string> ours = recorded();

    serve(options);
    connect();
    mSession->close(kLimit);
    const std::vector<std::string> plain = recorded();

    serve(options);
    SdfSession* session = nullptr;
    ASSERT_EQ(sdfSessionOpen(nullptr, nullptr, &session), 0);
    while (sdfSessionGetState(session) != SDF_SESSION_UP) {
        pollfd waited{sdfSessionFd(session), POLLIN, 0};
        ASSERT_EQ(poll(&waited, 1, 30000), 1);
        ASSERT_EQ(sdfSessionDispatch(session), 0);
    }
    EXPECT_EQ(sdfSessionSetGaming(session, true), 0);
    EXPECT_EQ(sdfSessionSetGaming(session, false), 0);
    EXPECT_EQ(sdfSessionSetDataPriority(session, SDF_SLOT_ID_SECOND, true), 0);
    EXPECT_EQ(sdfSessionSetDdsPriority(session, true), 0);
    EXPECT_EQ(sdfSessionSetDdsOod(session, SDF_OOD_DISABLED_LVL), 0);
    EXPECT_EQ(sdfSessionSetDdsPdcpTimer(session, 77), 0);
    EXPECT_EQ(sdfSessionClearDdsPdcpTimer(session), 0);
    const auto ignore = [](SdfSession*, unsigned int, uint64_t, uint64_t, void*) {};
    EXPECT_EQ(sdfSessionSetQueueReports(session, 5000, ignore, nullptr), 0);
    EXPECT_EQ(sdfSessionSetQueueReports(session, 6000, nullptr, nullptr), 0);
    EXPECT_EQ(sdfSessionClose(session, 30000), 0);
    EXPECT_EQ(ours, recorded());
    EXPECT_EQ(ours.size(), plain.size() + 8);
}

TEST_F(CppTest, FilterWithTheExtraValue) {
    const std::string record = mDirectory.path() + "/record";
    serve({"--record", record});
    connect();
    bool reported = false;
    Filter filter = mSession->add(
        flow(1), [&](SdfFilterState, SdfFilterStatus) { reported = true; }, 251);
    ASSERT_TRUE(wait(*mSession, [&] { return reported; }));
    mSession->close(kLimit);
    // Field 18 of a request's description: 90 01, then 251 as a varint.
    const std::vector<std::string> requests = recordedRequests(record);
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(), [](const std::string& request) {
        return request.size() > 8 && request.rfind("9001fb01") == request.size() - 8;
    }));
}

}  // namespace
