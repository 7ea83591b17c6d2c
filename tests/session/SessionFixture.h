// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <lum_sdf_session.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/session/FakeSdk.h"
#include "tests/session/FlowTo.h"

// A session on the fake library, and what its callbacks have reported, as lines.
class SessionTest : public testing::Test {
  protected:
    using Lines = std::vector<std::string>;

    SessionTest();
    ~SessionTest() override;

    // Opens the session, which makes no attempt after a loss by itself, and waits until it knows
    // that it has its client.
    void open();
    // The same, and the service is up; takes what was reported and called.
    void openUp();
    void close();
    // Lets the session make its next client after a loss; it reports "session connecting".
    void waitForNextClient();

    // Dispatches until the lines are there, and takes those up to the last of them. They must be
    // all.
    Lines reported(size_t count);
    // Dispatches what is due now, and takes everything that was reported.
    Lines reported();
    // Dispatches until `condition`; false when a generous limit has passed.
    bool dispatchUntil(const std::function<bool()>& condition);

    // Adds a filter that reports under this name and port.
    SdfFilter* add(const char* name, uint16_t port);
    // The same, answered by the service as active; takes what was reported and called.
    SdfFilter* addActive(const char* name, uint16_t port, unsigned int id);

    // Callbacks that write lines, and then do what a test wants.
    static void onState(SdfSession*, SdfSessionState state, int reason, void* test);
    static void onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why, void* name);
    static void onLevels(SdfSession*, SdfSlotID slot, int error, SdfLatencyLvl first,
                         SdfLatencyLvl second, void* name);
    static void onReport(SdfSession*, unsigned int key, uint64_t first, uint64_t second, void*);
    static void onAutoFilter(SdfSession*, unsigned int id, const SdfAddFilterInfo* info, void*);
    static void onFilters(SdfSession*, int result, SdfFilter* filter, unsigned int id,
                          SdfFilterStatus, SdfLatencyLvl, SdfLatencyLvl, SdfOod, unsigned int,
                          void* name);
    static void onQueueReport(SdfSession*, int result, unsigned int key, uint64_t, uint64_t,
                              void* name);

    // Done in the callback that reports this line, once.
    void upon(const std::string& line, std::function<void()> action);

    FakeSdk& mSdk = FakeSdk::instance();
    SdfSession* mSession = nullptr;

  private:
    void log(const std::string& line);
    static SessionTest* sTest;

    Lines mLines;
    std::string mAwaited;
    std::function<void()> mAction;
};
