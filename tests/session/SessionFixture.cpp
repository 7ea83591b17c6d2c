// SPDX-License-Identifier: Apache-2.0
#include "tests/session/SessionFixture.h"

#include <poll.h>

#include <utility>

#include "tests/session/MayFollow.h"
#include "tests/support/Eventually.h"

namespace {

std::string textOf(void* name) {
    return static_cast<const char*>(name);
}

}  // namespace

SessionTest* SessionTest::sTest = nullptr;

SessionTest::SessionTest() {
    sTest = this;
    mSdk.reset();
}

SessionTest::~SessionTest() {
    mSdk.hold(false);
    close();
}

void SessionTest::open() {
    mLines.clear();
    mSdk.hold(true);
    ASSERT_EQ(sdfSessionOpen(onState, this, &mSession), 0);
    ASSERT_EQ(sdfSessionSetPauses(mSession, 86400000, 86400000), 0);
    sdfSessionDispatch(mSession);
    mSdk.hold(false);
    pollfd made{sdfSessionFd(mSession), POLLIN, 0};
    ASSERT_EQ(poll(&made, 1, 30000), 1);
    sdfSessionDispatch(mSession);
}

void SessionTest::openUp() {
    open();
    mSdk.up();
    EXPECT_EQ(reported(2), (Lines{"session connecting", "session up"}));
    EXPECT_EQ(mSdk.take(), (Lines{"Create", "RegFilterStatus"}));
}

void SessionTest::close() {
    EXPECT_EQ(sdfSessionClose(std::exchange(mSession, nullptr), 30000), 0);
}

void SessionTest::waitForNextClient() {
    const size_t next = mSdk.clients() + 1;
    EXPECT_EQ(sdfSessionSetPauses(mSession, 1, 1), 0);
    EXPECT_TRUE(dispatchUntil([&] { return mSdk.clients() == next; }));
    EXPECT_EQ(sdfSessionSetPauses(mSession, 86400000, 86400000), 0);
}

SessionTest::Lines SessionTest::reported(size_t count) {
    EXPECT_TRUE(dispatchUntil([&] { return mLines.size() >= count; }));
    return std::exchange(mLines, {});
}

SessionTest::Lines SessionTest::reported() {
    sdfSessionDispatch(mSession);
    return std::exchange(mLines, {});
}

bool SessionTest::dispatchUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (mSession == nullptr || std::chrono::steady_clock::now() > end) return false;
        pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
        poll(&waited, 1, 10);
        if (waited.revents != 0) sdfSessionDispatch(mSession);
    }
    return true;
}

SdfFilter* SessionTest::add(const char* name, uint16_t port) {
    const SdfAddFilterInfo info = flowTo(port);
    SdfFilter* filter = nullptr;
    EXPECT_EQ(sdfFilterAdd(mSession, &info, onFilter, const_cast<char*>(name), &filter), 0);
    return filter;
}

SdfFilter* SessionTest::addActive(const char* name, uint16_t port, unsigned int id) {
    SdfFilter* const filter = add(name, port);
    mSdk.answer(id);
    const std::string text = name;
    EXPECT_EQ(reported(2), (Lines{text + " requested", text + " active"}));
    mSdk.take();
    return filter;
}

void SessionTest::onState(SdfSession* session, SdfSessionState state, int reason, void* test) {
    EXPECT_EQ(sdfSessionGetState(session), state);
    std::string line = std::string("session ") + sdfSessionStateText(state);
    if (state == SDF_SESSION_DOWN) line += std::string(": ") + sdfSessionText(reason);
    static_cast<SessionTest*>(test)->log(line);
}

void SessionTest::onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why,
                           void* name) {
    EXPECT_TRUE(goesWith(state, why)) << sdfFilterStateText(state) << sdfFilterStatusText(why);
    std::string line = textOf(name) + " " + sdfFilterStateText(state);
    if (state == SDF_FILTER_STATE_REJECTED) line += std::string(": ") + sdfFilterStatusText(why);
    if (state != SDF_FILTER_STATE_REMOVED) {
        EXPECT_EQ(sdfFilterGetState(filter), state);
    }
    sTest->log(line);
}

void SessionTest::onLevels(SdfSession*, SdfSlotID slot, int error, SdfLatencyLvl first,
                           SdfLatencyLvl second, void* name) {
    sTest->log(textOf(name) + " " + sdfSlotIdText(slot) + " " + sdfSessionText(error) + " " +
               std::to_string(first) + " " + std::to_string(second));
}

void SessionTest::onReport(SdfSession*, unsigned int key, uint64_t first, uint64_t second, void*) {
    sTest->log("report " + std::to_string(key) + " " + std::to_string(first) + " " +
               std::to_string(second));
}

void SessionTest::onAutoFilter(SdfSession*, unsigned int id, const SdfAddFilterInfo*, void*) {
    sTest->log("auto filter " + std::to_string(id));
}

void SessionTest::onFilters(SdfSession*, int result, SdfFilter* filter, unsigned int id,
                            SdfFilterStatus, SdfLatencyLvl, SdfLatencyLvl, SdfOod, unsigned int,
                            void* name) {
    const std::string line = textOf(name) + " ";
    if (result != 1) {
        sTest->log(line + sdfSessionText(result));
    } else {
        EXPECT_EQ(sdfFilterGetId(filter), filter == nullptr ? 0 : id);
        sTest->log(line + std::to_string(id) + (filter == nullptr ? " of nobody" : ""));
    }
}

void SessionTest::onQueueReport(SdfSession*, int result, unsigned int key, uint64_t, uint64_t,
                                void* name) {
    const std::string line = textOf(name) + " ";
    sTest->log(line + (result == 1 ? std::to_string(key) : sdfSessionText(result)));
}

void SessionTest::upon(const std::string& line, std::function<void()> action) {
    mAwaited = line;
    mAction = std::move(action);
}

void SessionTest::log(const std::string& line) {
    mLines.push_back(line);
    if (!mAction || line != mAwaited) return;
    const std::function<void()> action = std::exchange(mAction, nullptr);
    action();
}
