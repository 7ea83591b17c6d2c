// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <array>
#include <cstdint>
#include <functional>
#include <list>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <random>
#include <string>

// A session whose wishes change at random, a model of them, and a check that what it reports is
// true: each state follows the one before as the header's diagrams say, and nothing comes after the
// last.
class Wanted {
  public:
    explicit Wanted(uint32_t seed) : mRandom(seed) {}
    ~Wanted();
    Wanted(const Wanted&) = delete;
    Wanted& operator=(const Wanted&) = delete;

    // Opens the session. Not before the object has its place.
    void open(unsigned int firstPause, unsigned int longestPause, unsigned int deadline);
    void close();

    // Wants so many filters and every setting.
    void wantEverything(size_t filters);
    // Goes back to that number of filters, so that two moments can be compared, and dispatches
    // until the service has them, too, and has answered everything. False when a generous limit has
    // passed.
    bool trim();
    // Wants no periodic reports any more.
    void stopReports();
    // Changes one wish, at random.
    void change();
    // A number below `limit`.
    unsigned int pick(unsigned int limit);

    // Dispatches for so many milliseconds.
    void dispatch(int milliseconds);
    // Dispatches until the session is up and the service has what is wanted; false when a generous
    // limit has passed. Up alone may still mean a service that has just died.
    bool dispatchUntilServed();

    // What the service should have.
    nlohmann::json expected() const;
    SdfSession* session() { return mSession; }
    size_t ups() const { return mUps; }
    // Why the service was lost last, as the session says.
    const char* whyLost() const { return sdfSessionText(mWhyLost); }
    // The first report that could not be true; empty if there is none.
    const std::string& violation() const { return mViolation; }

  private:
    struct Flow {
        Wanted* wanted;
        SdfFilter* filter = nullptr;
        uint16_t port = 0;
        SdfAddFilterInfo info{};
        std::optional<unsigned char> extra{};
        std::optional<unsigned int> dscp{};
        std::optional<SdfFilterState> state{};
        bool removed = false;
        bool ended = false;
    };
    struct Levels {
        SdfLatencyLvl first;
        SdfLatencyLvl second;
        bool flag;
        bool answered;  // with these, by the present service
    };

    static void onState(SdfSession*, SdfSessionState state, int reason, void* wanted);
    static void onFilter(SdfFilter*, SdfFilterState state, SdfFilterStatus why, void* flow);
    static void onLevels(SdfSession*, SdfSlotID, int, SdfLatencyLvl, SdfLatencyLvl, void* wanted);
    static void onReport(SdfSession*, unsigned int, uint64_t, uint64_t, void* wanted);

    void violated(const std::string& what);
    bool dispatchUntil(const std::function<bool()>& condition);
    bool isServed() const;
    bool isAnswered() const;
    size_t living() const;
    void addFlow();
    void changeFlow(Flow& flow);
    void removeFlow();
    void remove(Flow& flow);
    void changeSetting(unsigned int which);
    SdfLatencyLvl level() { return static_cast<SdfLatencyLvl>(1 + pick(6)); }
    SdfOod ood() { return static_cast<SdfOod>(1 + pick(3)); }

    std::mt19937 mRandom;
    SdfSession* mSession = nullptr;
    std::optional<SdfSessionState> mState;
    std::list<Flow> mFlows;  // also those that were removed
    uint16_t mPort = 1;
    size_t mFilters = 0;  // at least so many are wanted, but for those that just went
    std::array<std::optional<Levels>, 3> mLevels;
    std::array<bool, 3> mDataPriority{};
    bool mGaming = false;
    bool mDdsPriority = false;
    SdfOod mDdsOod = SDF_OOD_UNSPECIFIED_LVL;
    std::optional<unsigned int> mDdsPdcpTimer;
    std::optional<unsigned int> mReports;
    size_t mUps = 0;
    int mWhyLost = 0;
    bool mChanged = false;  // since the session began to connect
    std::string mViolation;
};
