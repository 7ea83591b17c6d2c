// SPDX-License-Identifier: Apache-2.0
// A program for a session, for the service that it talks to, and for the clock; callbacks call
// back. Each state follows the one before as the interface says, each question ends once, nothing
// is reported after the end; and once the service behaves, it has what the session wants.
#include <lum_sdf_session.h>
#include <poll.h>

#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/InlineConnector.h"
#include "fuzz/Input.h"
#include "session/Values.h"
#include "tests/session/FakeSdk.h"
#include "tests/session/FlowTo.h"
#include "tests/session/MayFollow.h"

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point gNow;

constexpr unsigned int kMostDepth = 3;
constexpr unsigned int kMostSteps = 256;

// What the service has, read off the requests that reach it.
struct Service {
    struct Filter {
        uint16_t port = 0;
        std::vector<long long>
            values;  // levels, out-of-order delivery, PDCP timer, extra if it has one
        std::optional<long long> dscp{};
        bool answered = false;
    };
    std::map<unsigned int, Filter> filters;
    std::map<long long, std::vector<long long>> levels;
    std::vector<unsigned int> levelIds;  // unanswered
    std::map<long long, long long> dataPriority;
    long long gaming = 0;
    long long ddsPriority = 0;
    long long ddsOod = SDF_OOD_UNSPECIFIED_LVL;
    std::optional<long long> ddsPdcpTimer{};
    std::optional<long long> reports{};

    void onCall(const std::string& line, long long result);
};

void Service::onCall(const std::string& line, long long result) {
    if (result < 0) return;
    std::istringstream words(line);
    std::string name;
    words >> name;
    std::vector<long long> with;
    for (std::string word; words >> word;) {
        if (word != "extra") with.push_back(std::stoll(word));
    }
    const auto filter = [&]() -> Filter& {
        return filters.at(static_cast<unsigned int>(with.at(0)));
    };
    const auto id = static_cast<unsigned int>(result);
    if (name == "AddFilter") {
        filters[id] = {static_cast<uint16_t>(with.at(0)), {with.begin() + 1, with.end()}};
    } else if (name == "UpdateLatencyLvl") {
        filter().values.at(0) = with.at(1);
        filter().values.at(1) = with.at(2);
    } else if (name == "UpdateOod") {
        filter().values.at(2) = with.at(1);
    } else if (name == "UpdatePdcpTimer") {
        filter().values.at(3) = with.at(1);
    } else if (name == "UpdateTargetDscp") {
        filter().dscp = with.at(1);
    } else if (name == "DeleteFilter") {
        filters.erase(static_cast<unsigned int>(with.at(0)));
    } else if (name == "SetLatencyLvl") {
        levels[with.at(0)] = {with.begin() + 1, with.end()};
        levelIds.push_back(id);
    } else if (name == "EnHighPerfGaming") {
        gaming = with.at(0);
    } else if (name == "PrioritizeData") {
        dataPriority[with.at(0)] = with.at(1);
    } else if (name == "PrioritizeDds") {
        ddsPriority = with.at(0);
    } else if (name == "UpdateDdsOod") {
        ddsOod = with.at(0);
    } else if (name == "UpdateDdsPdcpTimer") {
        ddsPdcpTimer = with.at(0);
    } else if (name == "RegPriorityQueueReports") {
        reports.reset();
        if (with.at(0) != 0) reports = with.at(1);
    }
}

class Program;

struct Flow {
    Program& program;
    SdfFilter* handle = nullptr;
    SdfAddFilterInfo info{};
    uint16_t port = 0;
    std::optional<unsigned char> extra{};
    std::optional<unsigned int> dscp{};
    std::optional<SdfFilterState> state{};
    bool removed = false;
    bool ended = false;
};

struct Question {
    Program& program;
    bool ended = false;
};

class Program {
  public:
    explicit Program(Input& input);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    void run();

    void onState(SdfSessionState state, int reason);
    void onFilter(Flow& flow, SdfFilter* filter, SdfFilterState state);
    void onAnswer(Question& question, int result);
    // Any other callback.
    void called();

  private:
    struct Levels {
        SdfLatencyLvl first;
        SdfLatencyLvl second;
        bool flag;
    };

    void open();
    void close();
    void step();
    void addFilter();
    void changeFilter();
    void changeSetting();
    void ask();
    void dispatch();
    void serve();
    void misbehave();
    bool makeWantedClient(bool possible);
    void advance(int64_t milliseconds);
    void settle();
    void compare() const;
    void nested();
    // Ends the process unless the result is 0 of a call with valid arguments, or
    // SDF_SESSION_INVALID_ARG.
    void expect(int result, bool valid) const;
    SdfLatencyLvl level() { return mInput.around(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6); }
    SdfOod ood() { return mInput.around(SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_DISABLED_LVL); }
    // The library passes on no others.
    SdfFilterStatus anyStatus() {
        return static_cast<SdfFilterStatus>(mInput.pick(SDF_FILTER_ERROR_NO_PERMISSION + 1));
    }
    // Null when there is none.
    Flow* anyFlow();

    Input& mInput;
    FakeSdk& mSdk = FakeSdk::instance();
    Service mService;
    SdfSession* mSession = nullptr;
    std::optional<SdfSessionState> mState;
    std::list<Flow> mFlows;
    std::list<Question> mQuestions;
    uint16_t mPort = 1;
    std::map<SdfSlotID, Levels> mLevels;
    std::map<SdfSlotID, bool> mDataPriority;
    bool mGaming = false;
    bool mDdsPriority = false;
    SdfOod mDdsOod = SDF_OOD_UNSPECIFIED_LVL;
    std::optional<unsigned int> mDdsPdcpTimer;
    std::optional<unsigned int> mReports;
    unsigned int mDispatching = 0;
    unsigned int mDepth = 0;
    unsigned int mSteps = 0;
    unsigned int mCalls = 0;   // of callbacks
    bool mTimePassed = false;  // since the last dispatch
};

Program::Program(Input& input) : mInput(input) {
    gNow = Clock::time_point(std::chrono::hours(1));
    mSdk.reset();
    mSdk.onCall = [this](const std::string& line, long long result) {
        mService.onCall(line, result);
    };
    open();
}

Program::~Program() {
    close();
    mSdk.onCall = nullptr;
}

void Program::run() {
    while (!mInput.empty() && mSteps < kMostSteps) step();
    if (mSession == nullptr) open();
    settle();
    compare();
}

void Program::open() {
    const auto onState = [](SdfSession*, SdfSessionState state, int reason, void* program) {
        static_cast<Program*>(program)->onState(state, reason);
    };
    mState.reset();
    mService = {};
    check(sdfSessionOpen(onState, this, &mSession) == 0, "cannot open");
}

void Program::close() {
    check(sdfSessionClose(std::exchange(mSession, nullptr), 0) == 0, "cannot close");
    mFlows.clear();
    mQuestions.clear();
    mLevels.clear();
    mDataPriority.clear();
    mGaming = false;
    mDdsPriority = false;
    mDdsOod = SDF_OOD_UNSPECIFIED_LVL;
    mDdsPdcpTimer.reset();
    mReports.reset();
}

void Program::nested() {
    ++mCalls;
    check(mSession != nullptr, "a callback after the end");
    check(mDispatching > 0, "a callback outside of dispatch");
    if (mDepth == kMostDepth) return;
    ++mDepth;
    for (unsigned int left = mInput.rarely(4) ? 1 + mInput.pick(3) : 0; left > 0; --left) {
        if (mSession != nullptr && !mInput.empty()) step();
    }
    --mDepth;
}

void Program::called() {
    nested();
}

void Program::onState(SdfSessionState state, int reason) {
    check(mSession == nullptr || sdfSessionGetState(mSession) == state, "reports another state");
    if (!mayFollow(mState, state)) {
        fail(std::string("a session is ") + sdfSessionStateText(state) + " after " +
             (mState ? sdfSessionStateText(*mState) : "nothing"));
    }
    check((reason != 0) == (state == SDF_SESSION_DOWN), "a reason, or none");
    mState = state;
    nested();
}

void Program::onFilter(Flow& flow, SdfFilter* filter, SdfFilterState state) {
    const bool removal = state == SDF_FILTER_STATE_REMOVED;
    check(!flow.ended && filter == flow.handle, "a report about a filter that has ended");
    check(removal == flow.removed, "a removal, or none");
    if (!mayFollow(flow.state, state)) {
        fail(std::string("a filter is ") + sdfFilterStateText(state) + " after " +
             (flow.state ? sdfFilterStateText(*flow.state) : "nothing"));
    }
    check(removal || sdfFilterGetState(filter) == state, "reports another state of a filter");
    flow.state = state;
    flow.ended = removal;
    nested();
}

void Program::onAnswer(Question& question, int result) {
    check(!question.ended, "more of an answer after its end");
    question.ended = result != 1;
    nested();
}

void Program::step() {
    ++mSteps;
    if (mSession == nullptr) {
        if (mDispatching == 0) open();
        return;
    }
    switch (mInput.pick(20)) {
        case 0:
        case 1: addFilter(); break;
        case 2:
        case 3: changeFilter(); break;
        case 4:
        case 5: changeSetting(); break;
        case 6: ask(); break;
        case 7:
        case 8:
        case 9: dispatch(); break;
        case 10:
            if (mSdk.clients() > 0) mSdk.up();
            break;
        case 11: makeWantedClient(!mInput.rarely(8)); break;
        case 12: advance(mInput.number<uint16_t>()); break;
        case 13: misbehave(); break;
        case 14:
            if (mInput.rarely(8)) close();
            break;
        default: serve(); break;
    }
}

void Program::expect(int result, bool valid) const {
    check(result == (valid ? 0 : SDF_SESSION_INVALID_ARG), "returns another code");
}

void Program::addFilter() {
    mFlows.push_back({*this});
    Flow& flow = mFlows.back();
    flow.port = mPort++;
    flow.info = flowTo(flow.port);
    flow.info.first_level = level();
    flow.info.ood = ood();
    const auto onFilter = [](SdfFilter* filter, SdfFilterState state, SdfFilterStatus, void* user) {
        auto& of = *static_cast<Flow*>(user);
        of.program.onFilter(of, filter, state);
    };
    const bool valid = isValid(flow.info);
    if (mInput.flag()) flow.extra = mInput.byte();
    const int result =
        flow.extra
            ? sdfFilterAddV2(mSession, &flow.info, *flow.extra, onFilter, &flow, &flow.handle)
            : sdfFilterAdd(mSession, &flow.info, onFilter, &flow, &flow.handle);
    expect(result, valid);
    if (!valid) mFlows.pop_back();
}

Flow* Program::anyFlow() {
    std::vector<Flow*> living;
    for (Flow& flow : mFlows) {
        if (!flow.removed) living.push_back(&flow);
    }
    return living.empty() ? nullptr : living[mInput.byte() % living.size()];
}

void Program::changeFilter() {
    Flow* const flow = anyFlow();
    if (flow == nullptr) return;
    switch (mInput.pick(8)) {
        case 0:
        case 1: {
            const auto first = level();
            const auto second = level();
            const bool valid = isValid(first) && isValid(second);
            expect(sdfFilterSetLevels(flow->handle, first, second), valid);
            if (!valid) break;
            flow->info.first_level = first;
            flow->info.second_level = second;
            break;
        }
        case 2: {
            const auto value = ood();
            expect(sdfFilterSetOod(flow->handle, value), isValid(value));
            if (isValid(value)) flow->info.ood = value;
            break;
        }
        case 3:
            flow->info.pdcp_timer = mInput.number<uint32_t>();
            expect(sdfFilterSetPdcpTimer(flow->handle, flow->info.pdcp_timer), true);
            break;
        case 4:
            flow->dscp = mInput.number<uint32_t>();
            expect(sdfFilterSetDscp(flow->handle, *flow->dscp), true);
            break;
        case 5: expect(sdfFilterSetRenewed(flow->handle, mInput.flag()), true); break;
        default:
            flow->removed = true;
            sdfFilterRemove(flow->handle);
            break;
    }
}

void Program::changeSetting() {
    const auto slot = mInput.around(SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_SECOND);
    const bool on = mInput.flag();
    switch (mInput.pick(12)) {
        case 0: {
            const Levels levels{level(), level(), on};
            const bool valid = isValid(slot) && isValid(levels.first) && isValid(levels.second);
            const auto onLevels = [](SdfSession*, SdfSlotID, int, SdfLatencyLvl, SdfLatencyLvl,
                                     void* program) { static_cast<Program*>(program)->called(); };
            expect(sdfSessionSetLevels(mSession, slot, levels.first, levels.second, on, onLevels,
                                       this),
                   valid);
            if (valid) mLevels[slot] = levels;
            break;
        }
        case 1:
            expect(sdfSessionClearLevels(mSession, slot), isValid(slot));
            mLevels.erase(slot);
            break;
        case 2:
            expect(sdfSessionSetGaming(mSession, on), true);
            mGaming = on;
            break;
        case 3:
            expect(sdfSessionSetDataPriority(mSession, slot, on), isValid(slot));
            if (isValid(slot)) mDataPriority[slot] = on;
            break;
        case 4:
            expect(sdfSessionSetDdsPriority(mSession, on), true);
            mDdsPriority = on;
            break;
        case 5: {
            const auto value = ood();
            expect(sdfSessionSetDdsOod(mSession, value), isValid(value));
            if (isValid(value)) mDdsOod = value;
            break;
        }
        case 6:
            mDdsPdcpTimer = mInput.number<uint32_t>();
            expect(sdfSessionSetDdsPdcpTimer(mSession, *mDdsPdcpTimer), true);
            break;
        case 7:
            mDdsPdcpTimer.reset();
            expect(sdfSessionClearDdsPdcpTimer(mSession), true);
            break;
        case 8: {
            mReports.reset();
            if (on) mReports = mInput.byte();
            const auto onReport = [](SdfSession*, unsigned int, uint64_t, uint64_t, void* program) {
                static_cast<Program*>(program)->called();
            };
            expect(sdfSessionSetQueueReports(mSession, mReports.value_or(0),
                                             on ? +onReport : nullptr, this),
                   true);
            break;
        }
        case 9: {
            const auto onAuto = [](SdfSession*, unsigned int, const SdfAddFilterInfo*,
                                   void* program) { static_cast<Program*>(program)->called(); };
            expect(sdfSessionSetAutoFilters(mSession, on ? +onAuto : nullptr, this), true);
            break;
        }
        case 10: {
            const auto first = mInput.number<unsigned int>();
            const auto longest = mInput.number<unsigned int>();
            expect(sdfSessionSetPauses(mSession, first, longest),
                   isDuration(first) && isDuration(longest) && first <= longest);
            break;
        }
        default: {
            const auto deadline = mInput.number<unsigned int>();
            expect(sdfSessionSetAnswerDeadline(mSession, deadline), isDuration(deadline));
            break;
        }
    }
}

void Program::ask() {
    mQuestions.push_back({*this});
    const auto deadline = mInput.number<unsigned int>();
    const bool valid = deadline == 0 || isDuration(deadline);
    const auto onFilters = [](SdfSession*, int result, SdfFilter*, unsigned int, SdfFilterStatus,
                              SdfLatencyLvl, SdfLatencyLvl, SdfOod, unsigned int, void* user) {
        auto& question = *static_cast<Question*>(user);
        question.program.onAnswer(question, result);
    };
    const auto onReport = [](SdfSession*, int result, unsigned int, uint64_t, uint64_t,
                             void* user) {
        auto& question = *static_cast<Question*>(user);
        question.program.onAnswer(question, result);
    };
    expect(mInput.flag()
               ? sdfSessionAskFilters(mSession, deadline, onFilters, &mQuestions.back())
               : sdfSessionAskQueueReport(mSession, deadline, onReport, &mQuestions.back()),
           valid);
    if (!valid) mQuestions.pop_back();
}

void Program::dispatch() {
    pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
    const bool readable = poll(&waited, 1, 0) == 1;
    const unsigned int before = mCalls;
    const bool timePassed = std::exchange(mTimePassed, false);
    ++mDispatching;
    const int result = sdfSessionDispatch(mSession);
    --mDispatching;
    check(result == (mSession == nullptr ? SDF_SESSION_CLOSED : 0),
          "dispatch returns another code");
    // Deeper in a dispatch the session knows of what the descriptor does not show yet.
    check(readable || timePassed || mDispatching > 0 || before == mCalls,
          "had something to do and did not say so");
}

// Returns whether one was wanted. What the service had was the last one's.
bool Program::makeWantedClient(bool possible) {
    if (!isClientWanted()) return false;
    makeClient(possible);
    mService = {};
    return true;
}

void Program::advance(int64_t milliseconds) {
    gNow += std::chrono::milliseconds(milliseconds);
    mTimePassed = true;
}

void Program::serve() {
    const size_t clients = mSdk.clients();
    if (clients == 0) return;
    std::vector<unsigned int> ids;
    for (const auto& filter : mService.filters) ids.push_back(filter.first);
    const unsigned int id = ids.empty() ? 0 : ids[mInput.byte() % ids.size()];
    switch (mInput.pick(8)) {
        case 0:
        case 1:
        case 2: {
            if (id == 0) return;
            const auto status = mInput.rarely(4) ? anyStatus() : SDF_FILTER_ACTIVE;
            Service::Filter& filter = mService.filters.at(id);
            if (std::exchange(filter.answered, true)) return;
            if (status > SDF_FILTER_ACTIVE) mService.filters.erase(id);
            mSdk.answer(id, status);
            break;
        }
        case 3: {
            if (mSdk.filterCb == nullptr || id == 0 || !mService.filters.at(id).answered) return;
            const auto status = anyStatus();
            if (status > SDF_FILTER_ACTIVE) mService.filters.erase(id);
            mSdk.indicate(id, status);
            break;
        }
        case 4:
            if (mService.levelIds.empty()) return;
            mSdk.levels(mService.levelIds.back(), SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4);
            mService.levelIds.pop_back();
            break;
        case 5:
            if (mSdk.listCb != nullptr)
                mSdk.list(mInput.flag() ? ids : std::vector<unsigned int>());
            break;
        case 6: mSdk.report({mInput.byte()}); break;
        default:
            if (mSdk.autoFilterCb != nullptr) mSdk.autoFilter(mInput.byte());
            break;
    }
}

void Program::misbehave() {
    const size_t clients = mSdk.clients();
    if (mInput.flag()) {
        static const char* const kLines[] = {
            "",    "AddFilter",        "Update",  "DeleteFilter", "Reg", "SetLatencyLvl",
            "Get", "EnHighPerfGaming", "Destroy", "Prioritize"};
        constexpr int kResults[] = {SDF_V2_INVALID_ARG, SDF_V2_INTERNAL_ERROR, SDF_V2_SERVICE_DOWN};
        mSdk.failNext(kLines[mInput.pick(10)], kResults[mInput.pick(3)]);
    } else if (clients > 0) {
        mSdk.status(mInput.around(-8, 0), mInput.rarely(4) ? 1 + mInput.byte() % clients : clients);
    }
}

// The service behaves from now on, until everything has come to rest.
void Program::settle() {
    mSdk.forgetFailures();
    constexpr int kMostRounds = 40;
    unsigned int calls = mCalls;
    for (int round = 0; round < kMostRounds; ++round) {
        if (makeWantedClient(true)) mSdk.up();
        for (int answers = 0; answers < 3; ++answers) {
            dispatch();
            std::vector<unsigned int> ids;
            for (auto& filter : mService.filters) {
                if (!std::exchange(filter.second.answered, true)) ids.push_back(filter.first);
            }
            for (const unsigned int id : ids) mSdk.answer(id);
            for (const unsigned int id : std::exchange(mService.levelIds, {})) {
                mSdk.levels(id, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1);
            }
            if (mSdk.listCb != nullptr) mSdk.list({});
            dispatch();
        }
        constexpr int64_t kDay = 86400000;
        advance(kDay);
        dispatch();
        const bool quiet = mSdk.take().empty() && std::exchange(calls, mCalls) == mCalls;
        if (quiet && mState == SDF_SESSION_UP) return;
    }
    fail("does not come to rest");
}

void Program::compare() const {
    size_t served = 0;
    for (const Flow& flow : mFlows) {
        if (flow.removed) {
            check(flow.ended, "a removal that is not reported");
            continue;
        }
        const SdfFilterState state = sdfFilterGetState(flow.handle);
        check(flow.state == state, "another state than was reported");
        if (state == SDF_FILTER_STATE_REJECTED || state == SDF_FILTER_STATE_EXPIRED) continue;
        check(state == SDF_FILTER_STATE_ACTIVE || state == SDF_FILTER_STATE_PENDING,
              "a filter that is not at rest");
        const auto found = mService.filters.find(sdfFilterGetId(flow.handle));
        check(found != mService.filters.end(), "the service does not have a filter");
        std::vector<long long> values{flow.info.first_level, flow.info.second_level, flow.info.ood,
                                      flow.info.pdcp_timer};
        if (flow.extra) values.push_back(*flow.extra);
        check(found->second.port == flow.port && found->second.values == values,
              "the service has another filter");
        check(found->second.dscp == std::optional<long long>(flow.dscp),
              "the service has another DSCP");
        ++served;
    }
    check(served == mService.filters.size(), "the service has more filters");
    for (const auto& levels : mLevels) {
        const auto found = mService.levels.find(levels.first);
        check(found != mService.levels.end() &&
                  found->second == std::vector<long long>{levels.second.first, levels.second.second,
                                                          levels.second.flag},
              "the service has other levels");
    }
    for (const auto& slot : mDataPriority) {
        const auto found = mService.dataPriority.find(slot.first);
        check((found != mService.dataPriority.end() && found->second != 0) == slot.second,
              "the service has another priority of data");
    }
    check((mService.gaming != 0) == mGaming, "the service has other gaming");
    check((mService.ddsPriority != 0) == mDdsPriority, "the service has another DDS priority");
    check(mService.ddsOod == mDdsOod, "the service has another DDS setting");
    check(!mDdsPdcpTimer || mService.ddsPdcpTimer == std::optional<long long>(mDdsPdcpTimer),
          "the service has another DDS timer");
    check(mService.reports == std::optional<long long>(mReports), "the service has other reports");
    for (const Question& question : mQuestions) check(question.ended, "a question without its end");
}

}  // namespace

// Goes before the C++ library's.
Clock::time_point Clock::now() noexcept {
    return gNow;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    Input input(bytes, size);
    Program(input).run();
    return 0;
}
