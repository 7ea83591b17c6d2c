// SPDX-License-Identifier: Apache-2.0
// A program for a session, for the service that it talks to, and for the clock; callbacks call
// back. Each state follows the one before as the interface says and is what the service has said,
// each question ends once, nothing is requested that is not wanted, nothing is reported after the
// end; and once the service behaves, it has what the session wants.
#include <lum_sdf_session.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <list>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/InlineConnector.h"
#include "fuzz/Input.h"
#include "tests/session/FakeSdk.h"
#include "tests/session/FlowTo.h"
#include "tests/session/MayFollow.h"

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point gNow;

// The session's timer: an event descriptor that is readable once gNow reaches the time.
struct {
    int fd = -1;
    Clock::time_point due = Clock::time_point::max();

    void tick() {
        if (gNow < due) return;
        due = Clock::time_point::max();
        (void)eventfd_write(fd, 1);
    }
} gTimer;

constexpr unsigned int kMostDepth = 3;
constexpr unsigned int kMostSteps = 256;

bool isAlive(SdfFilterStatus status) {
    return status <= SDF_FILTER_ACTIVE;
}

// Padding included, which is zero in what is compared here.
bool equal(const SdfAddFilterInfo& one, const SdfAddFilterInfo& other) {
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    return memcmp(&one, &other, sizeof one) == 0;
}

// What a callback throws.
class Thrown : public std::exception {};

class Program;

struct Flow {
    Program& program;
    uint16_t port;
    SdfFilter* handle = nullptr;
    SdfAddFilterInfo info{};
    std::optional<unsigned char> extra{};
    std::optional<unsigned int> dscp{};
    bool renewed = true;
    bool removed = false;

    // What the present service, or the library, has said of it last.
    std::optional<SdfFilterStatus> answer{};
    // What has been reported of it.
    std::optional<SdfFilterState> state{};
    SdfFilterStatus why{};
    bool staysExpired = false;
    bool ended = false;
};

struct Question {
    Program& program;
    unsigned int last = 0;  // entry
    bool ended = false;
};

// A setting that is wanted: the request for it; without `on` a new service has it so.
struct Wish {
    std::string line;
    bool on;
};

// What a request sets: its name, with the slot if it is of one.
std::string keyOf(const std::string& line) {
    const bool ofSlot = line.rfind("SetLatencyLvl", 0) == 0 || line.rfind("PrioritizeData", 0) == 0;
    return line.substr(0, line.find(' ', ofSlot ? line.find(' ') + 1 : 0));
}

// What the service has, read off the requests that reach it.
struct Service {
    struct Filter {
        Flow& flow;
        SdfAddFilterInfo info;
        std::optional<long long> dscp{};
        bool answered = false;
    };
    struct Levels {
        std::string key;
        std::optional<std::pair<SdfLatencyLvl, SdfLatencyLvl>> answer{};
        bool reported = false;
    };
    std::map<unsigned int, Filter> filters{};
    std::map<unsigned int, Levels> levels{};
    std::map<std::string, std::string> settings{};  // requests by what they set

    // What was requested last; null if nothing was.
    Levels* levelsOf(const std::string& key);
};

Service::Levels* Service::levelsOf(const std::string& key) {
    const auto found = std::find_if(levels.rbegin(), levels.rend(),
                                    [&](const auto& one) { return one.second.key == key; });
    return found == levels.rend() ? nullptr : &found->second;
}

class Program {
  public:
    explicit Program(Input& input);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    void run();

  private:
    static void onState(SdfSession*, SdfSessionState state, int reason, void* program);
    static void onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why, void* flow);
    static void onLevels(SdfSession*, SdfSlotID slot, int error, SdfLatencyLvl first,
                         SdfLatencyLvl second, void* program);
    static void onReport(SdfSession*, unsigned int key, uint64_t first, uint64_t second,
                         void* program);
    static void onAutoFilter(SdfSession*, unsigned int id, const SdfAddFilterInfo* info,
                             void* program);
    static void onListAnswer(SdfSession*, int result, SdfFilter* filter, unsigned int id,
                             SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
                             SdfOod ood, unsigned int timer, void* question);
    static void onReportAnswer(SdfSession*, int result, unsigned int key, uint64_t first,
                               uint64_t second, void* question);
    void onAnswer(SdfSession* session, Question& question, int result, unsigned int entry);
    void nested();
    SdfFilter* handleOf(unsigned int id) const;

    void onCall(const std::string& line, long long result);
    void onAdd(long long result);
    void onSetting(const std::string& line, long long result);

    void open();
    void close();
    void step();
    void addFilter();
    void drawFlow(Flow& flow);
    void drawAddress(sockaddr_storage& address, uint16_t port, uint16_t& range);
    void changeFilter();
    void changeSetting();
    void ask();
    // Whether the session says that it has something to do.
    bool isReadable() const;
    void dispatch();
    void serve();
    void misbehave();
    bool makeWantedClient(bool possible);
    void advance(int64_t milliseconds);
    void settle();
    void compare();
    // At rest what the service sends arrives.
    void listen();

    // The service says this of a filter.
    void say(unsigned int id, SdfFilterStatus status);
    void answerLevels(unsigned int id, SdfLatencyLvl first, SdfLatencyLvl second);

    // Ends the process unless the result is 0 of a call with valid arguments, or
    // SDF_SESSION_INVALID_ARG. Returns whether they were valid.
    bool expect(int result);
    // The next call will want a setting.
    void want(const std::string& line, bool on = true);
    bool isWanted(const std::string& key) const;
    // Whether the service has all settings that are wanted.
    bool hasSettings() const;

    // Arguments of the next call, valid or not.
    template <typename Enum>
    Enum around(Enum first, Enum last) {
        const auto value = mInput.around(first, last);
        mValid = mValid && value >= first && value <= last;
        return value;
    }
    SdfLatencyLvl level() { return around(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6); }
    SdfOod ood() { return around(SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_DISABLED_LVL); }
    SdfSlotID slot() { return around(SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_SECOND); }
    unsigned int duration(unsigned int least = 1) {
        const auto value = mInput.number<unsigned int>();
        mValid = mValid && value >= least && value <= 86400000;
        return value;
    }
    template <typename Pointed>
    Pointed* orNull(Pointed* pointer) {
        if (!mInput.rarely(32)) return pointer;
        mValid = false;
        return nullptr;
    }

    // The library passes on no others.
    SdfFilterStatus anyStatus() {
        return static_cast<SdfFilterStatus>(mInput.pick(SDF_FILTER_ERROR_NO_PERMISSION + 1));
    }
    SdfLatencyLvl anyLevel() { return static_cast<SdfLatencyLvl>(1 + mInput.pick(6)); }
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
    std::map<std::string, Wish> mWanted;
    bool mValid = true;        // the arguments of the next call
    unsigned int mSerial = 0;  // of what the service sends unasked
    unsigned int mLastReport = 0;
    unsigned int mLastAutoFilter = 0;
    unsigned int mDispatching = 0;
    unsigned int mDepth = 0;
    unsigned int mSteps = 0;
    unsigned int mCalls = 0;  // of callbacks
    bool mThrown = false;     // by a callback, and not caught here yet
};

Program::Program(Input& input) : mInput(input) {
    gNow = Clock::time_point(std::chrono::hours(1));
    mSdk.reset();
    mSdk.onCall = [this](const std::string& line, long long result) { onCall(line, result); };
    open();
}

Program::~Program() {
    close();
    finishClosing();
    mSdk.onCall = nullptr;
}

void Program::run() {
    while (!mInput.empty() && mSteps < kMostSteps) step();
    while (mSession == nullptr) open();
    settle();
    compare();
    listen();
}

void Program::onCall(const std::string& line, long long result) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    std::vector<long long> with;
    for (long long number = 0; words >> number;) with.push_back(number);
    if (name == "AddFilter") return onAdd(result);
    if (result < 0) return;
    const auto filter = [&]() -> Service::Filter& {
        return mService.filters.at(static_cast<unsigned int>(with.at(0)));
    };
    if (name == "UpdateLatencyLvl") {
        filter().info.first_level = static_cast<SdfLatencyLvl>(with.at(1));
        filter().info.second_level = static_cast<SdfLatencyLvl>(with.at(2));
    } else if (name == "UpdateOod") {
        filter().info.ood = static_cast<SdfOod>(with.at(1));
    } else if (name == "UpdatePdcpTimer") {
        filter().info.pdcp_timer = static_cast<uint32_t>(with.at(1));
    } else if (name == "UpdateTargetDscp") {
        filter().dscp = with.at(1);
    } else if (name == "DeleteFilter") {
        check(filter().flow.removed, "deletes a filter that is wanted");
        mService.filters.erase(static_cast<unsigned int>(with.at(0)));
    } else if (name != "RegFilterStatus" && name.rfind("Get", 0) != 0) {
        onSetting(line, result);
    }
}

void Program::onAdd(long long result) {
    const auto isIt = [this](const Flow& flow) {
        return !flow.removed && equal(flow.info, mSdk.added.info) && flow.extra == mSdk.added.extra;
    };
    const auto flow = std::find_if(mFlows.begin(), mFlows.end(), isIt);
    check(flow != mFlows.end(), "requests a filter that is not wanted");
    flow->answer.reset();
    if (result == SDF_V2_INVALID_ARG) flow->answer = SDF_FILTER_ERROR_INVALID_ARGS;
    if (result < 0) return;
    for (const auto& filter : mService.filters) {
        check(filter.second.flow.port != flow->port, "requests a filter that the service has");
    }
    mService.filters.insert({static_cast<unsigned int>(result), {*flow, flow->info}});
}

void Program::onSetting(const std::string& line, long long result) {
    const std::string key = keyOf(line);
    const auto wanted = mWanted.find(key);
    check(wanted != mWanted.end() && wanted->second.line == line, "requests what is not wanted");
    mService.settings[key] = line;
    if (result > 0) mService.levels.insert({static_cast<unsigned int>(result), {key}});
}

void Program::want(const std::string& line, bool on) {
    if (mValid) mWanted[keyOf(line)] = {line, on};
}

bool Program::isWanted(const std::string& key) const {
    const auto wanted = mWanted.find(key);
    return wanted != mWanted.end() && wanted->second.on;
}

bool Program::hasSettings() const {
    return std::all_of(mWanted.begin(), mWanted.end(), [this](const auto& wanted) {
        const auto found = mService.settings.find(wanted.first);
        return found == mService.settings.end() ? !wanted.second.on
                                                : found->second == wanted.second.line;
    });
}

void Program::open() {
    mState.reset();
    mService = {};
    const bool closing = isClosing();
    check(sdfSessionOpen(onState, this, &mSession) == (closing ? SDF_SESSION_CLOSING : 0) &&
              (mSession == nullptr) == closing,
          "cannot open, or can too early");
    if (!closing) return;
    mSdk.up();  // too late
    finishClosing();
}

void Program::close() {
    const int result =
        sdfSessionClose(std::exchange(mSession, nullptr), mInput.number<unsigned int>());
    gTimer.due = Clock::time_point::max();
    check(result == (isClosing() ? SDF_SESSION_CLOSING : 0), "close returns another code");
    mFlows.clear();
    mQuestions.clear();
    mService = {};
    mWanted = {};
}

void Program::nested() {
    ++mCalls;
    check(mSession != nullptr, "a callback after the end");
    check(mDispatching > 0, "a callback outside of dispatch");
    if (mDepth == kMostDepth) return;
    ++mDepth;
    for (unsigned int left = mInput.rarely(4) ? 1 + mInput.pick(3) : 0; left > 0; --left) {
        if (mSession != nullptr && !mInput.empty() && mSteps < kMostSteps) step();
    }
    --mDepth;
    if (mSteps >= kMostSteps || !mInput.rarely(16)) return;
    mThrown = true;
    throw Thrown();
}

void Program::onState(SdfSession* session, SdfSessionState state, int reason, void* program) {
    auto& self = *static_cast<Program*>(program);
    check(session == self.mSession && sdfSessionGetState(session) == state,
          "reports another state");
    if (!mayFollow(self.mState, state)) {
        fail(std::string("a session is ") + sdfSessionStateText(state) + " after " +
             (self.mState ? sdfSessionStateText(*self.mState) : "nothing"));
    }
    check((reason != 0) == (state == SDF_SESSION_DOWN), "a reason, or none");
    check(state != SDF_SESSION_UP || self.hasSettings(), "up with other settings");
    self.mState = state;
    self.nested();
}

void Program::onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why, void* user) {
    auto& flow = *static_cast<Flow*>(user);
    const bool removal = state == SDF_FILTER_STATE_REMOVED;
    check(!flow.ended && filter == flow.handle, "a report about a filter that has ended");
    check(removal == flow.removed, "a removal, or none");
    if (!mayFollow(flow.state, state) || !goesWith(state, why)) {
        fail(std::string("a filter is ") + sdfFilterStateText(state) + " (" +
             sdfFilterStatusText(why) + ") after " +
             (flow.state ? sdfFilterStateText(*flow.state) : "nothing"));
    }
    check(removal || sdfFilterGetState(filter) == state, "reports another state of a filter");
    check(removal || !flow.staysExpired, "renews what is to stay expired");
    flow.staysExpired = state == SDF_FILTER_STATE_EXPIRED && !flow.renewed;
    flow.state = state;
    flow.why = why;
    flow.ended = removal;
    flow.program.nested();
}

void Program::onAnswer(SdfSession* session, Question& question, int result, unsigned int entry) {
    check(session == mSession && !question.ended, "more of an answer after its end");
    check(result == 1 ? entry > question.last : entry == 0, "an answer with another entry");
    check(result != 0 || question.last != 0, "the end of an empty answer");
    question.last = entry;
    question.ended = result != 1;
    nested();
}

void Program::onLevels(SdfSession* session, SdfSlotID slot, int error, SdfLatencyLvl first,
                       SdfLatencyLvl second, void* program) {
    auto& self = *static_cast<Program*>(program);
    const std::string key = callText("SetLatencyLvl", slot);
    check(session == self.mSession && self.isWanted(key), "levels that are not wanted");
    if (error == SDF_SESSION_NO_ANSWER) {
        const std::string asked = callText("SetLatencyLvl", slot, first, second) + " ";
        check(self.mWanted.at(key).line.rfind(asked, 0) == 0, "other levels than were asked for");
    } else {
        Service::Levels* const levels = self.mService.levelsOf(key);
        check(error == 0 && levels != nullptr && levels->answer == std::pair(first, second) &&
                  !std::exchange(levels->reported, true),
              "other levels than were answered");
    }
    self.nested();
}

void Program::onReport(SdfSession* session, unsigned int key, uint64_t first, uint64_t second,
                       void* program) {
    auto& self = *static_cast<Program*>(program);
    check(session == self.mSession && self.isWanted("RegPriorityQueueReports") &&
              key > self.mLastReport && key <= self.mSerial && first == 10 && second == 20,
          "another report");
    self.mLastReport = key;
    self.nested();
}

void Program::onAutoFilter(SdfSession* session, unsigned int id, const SdfAddFilterInfo* info,
                           void* program) {
    auto& self = *static_cast<Program*>(program);
    check(session == self.mSession && self.isWanted("RegAutoFilterInfo") &&
              id > self.mLastAutoFilter && id <= self.mSerial &&
              equal(*info, flowTo(static_cast<uint16_t>(id))),
          "another automatic filter");
    self.mLastAutoFilter = id;
    self.nested();
}

void Program::onListAnswer(SdfSession* session, int result, SdfFilter* filter, unsigned int id,
                           SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
                           SdfOod ood, unsigned int timer, void* user) {
    auto& question = *static_cast<Question*>(user);
    const auto values = std::tuple(filter, status, first, second, ood, timer);
    const decltype(values) one(question.program.handleOf(id), SDF_FILTER_ACTIVE, SDF_LATENCY_LVL_1,
                               SDF_LATENCY_LVL_2, SDF_OOD_ENABLED_LVL, 7);
    check(values == (result == 1 ? one : decltype(values)()), "a list with other values");
    question.program.onAnswer(session, question, result, id);
}

void Program::onReportAnswer(SdfSession* session, int result, unsigned int key, uint64_t first,
                             uint64_t second, void* user) {
    auto& question = *static_cast<Question*>(user);
    const bool one = result == 1;
    check(first == (one ? 10 : 0) && second == (one ? 20 : 0), "a report with other values");
    question.program.onAnswer(session, question, result, key);
}

SdfFilter* Program::handleOf(unsigned int id) const {
    for (const Flow& flow : mFlows) {
        if (!flow.removed && sdfFilterGetId(flow.handle) == id) return flow.handle;
    }
    return nullptr;
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
            if (mInput.rarely(8)) return close();
            sdfSessionStop(mSession);
            check(sdfSessionRun(mSession) == 0, "runs though stopped");
            break;
        default: serve(); break;
    }
}

bool Program::expect(int result) {
    const bool valid = std::exchange(mValid, true);
    check(result == (valid ? 0 : SDF_SESSION_INVALID_ARG), "returns another code");
    return valid;
}

void Program::addFilter() {
    // Perhaps equal to the last one, if that was removed.
    const bool again = !mFlows.empty() && mFlows.back().removed && mInput.flag();
    mFlows.push_back({*this, again ? mFlows.back().port : mPort++});
    Flow& flow = mFlows.back();
    drawFlow(flow);
    SdfSession* const session = orNull(mSession);
    const SdfAddFilterInfo* const info = orNull(&flow.info);
    const int result =
        flow.extra ? sdfFilterAddV2(session, info, *flow.extra, onFilter, &flow, &flow.handle)
                   : sdfFilterAdd(session, info, onFilter, &flow, &flow.handle);
    if (!expect(result)) mFlows.pop_back();
}

void Program::drawFlow(Flow& flow) {
    if (mInput.flag()) flow.extra = mInput.byte();
    SdfAddFilterInfo& info = flow.info = flowTo(flow.port);
    info.first_level = level();
    info.second_level = level();
    info.ood = ood();
    if (!mInput.rarely(4)) return;
    drawAddress(info.src_addr, flow.port, info.src_port_range);
    drawAddress(info.dest_addr, flow.port, info.dest_port_range);
    info.app_type = around(SDF_APP_TYPE_UNSPECIFIED, SDF_APP_TYPE_TRAFFIC_PRIO_BE);
    info.protocol = around(SDF_PROTOCOL_NONE, SDF_PROTOCOL_TCPUDP);
    for (uint32_t* const number : {&info.pdcp_timer, &info.filter_arg11, &info.filter_arg13}) {
        *number = mInput.number<uint32_t>();
    }
    for (uint8_t* const byte : {&info.filter_arg6, &info.filter_arg16, &info.filter_arg17,
                                &info.filter_arg19, &info.filter_arg20}) {
        *byte = mInput.byte();
    }
}

void Program::drawAddress(sockaddr_storage& address, uint16_t port, uint16_t& range) {
    constexpr sa_family_t kFamilies[] = {AF_INET, AF_INET6, AF_UNSPEC, AF_UNIX};
    const sa_family_t family = kFamilies[mInput.pick(4)];
    const bool missing = mInput.rarely(8);
    address.ss_family = family;
    if (missing) address = {};
    range = mInput.number<uint16_t>();
    // Without a family there are no ports to count.
    mValid = mValid && !missing && family != AF_UNIX &&
             (family == AF_UNSPEC || port + range <= UINT16_MAX);
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
    const unsigned int what = mInput.pick(8);
    if (what > 5) {
        flow->removed = true;
        sdfFilterRemove(flow->handle);
        return;
    }
    SdfFilter* const handle = orNull(flow->handle);
    switch (what) {
        case 0:
        case 1: {
            const auto first = level();
            const auto second = level();
            if (!expect(sdfFilterSetLevels(handle, first, second))) break;
            flow->info.first_level = first;
            flow->info.second_level = second;
            break;
        }
        case 2: {
            const auto value = ood();
            if (expect(sdfFilterSetOod(handle, value))) flow->info.ood = value;
            break;
        }
        case 3: {
            const auto timer = mInput.number<uint32_t>();
            if (expect(sdfFilterSetPdcpTimer(handle, timer))) flow->info.pdcp_timer = timer;
            break;
        }
        case 4: {
            const auto dscp = mInput.number<uint32_t>();
            if (expect(sdfFilterSetDscp(handle, dscp))) flow->dscp = dscp;
            break;
        }
        default: {
            const bool renewed = mInput.flag();
            if (!expect(sdfFilterSetRenewed(handle, renewed))) break;
            flow->renewed = renewed;
            flow->staysExpired = flow->staysExpired && !renewed;
            break;
        }
    }
}

void Program::changeSetting() {
    SdfSession* const session = orNull(mSession);
    const bool on = mInput.flag();
    switch (mInput.pick(12)) {
        case 0: {
            const auto of = slot();
            const auto first = level();
            const auto second = level();
            want(callText("SetLatencyLvl", of, first, second, on));
            expect(sdfSessionSetLevels(session, of, first, second, on, onLevels, this));
            break;
        }
        case 1: {
            const auto of = slot();
            if (expect(sdfSessionClearLevels(session, of)))
                mWanted.erase(callText("SetLatencyLvl", of));
            break;
        }
        case 2:
            want(callText("EnHighPerfGaming", on), on);
            expect(sdfSessionSetGaming(session, on));
            break;
        case 3: {
            const auto of = slot();
            want(callText("PrioritizeData", of, on), on);
            expect(sdfSessionSetDataPriority(session, of, on));
            break;
        }
        case 4:
            want(callText("PrioritizeDds", on), on);
            expect(sdfSessionSetDdsPriority(session, on));
            break;
        case 5: {
            const auto value = ood();
            want(callText("UpdateDdsOod", value), value != SDF_OOD_UNSPECIFIED_LVL);
            expect(sdfSessionSetDdsOod(session, value));
            break;
        }
        case 6: {
            const auto timer = mInput.number<uint32_t>();
            want(callText("UpdateDdsPdcpTimer", timer));
            expect(sdfSessionSetDdsPdcpTimer(session, timer));
            break;
        }
        case 7:
            if (expect(sdfSessionClearDdsPdcpTimer(session))) mWanted.erase("UpdateDdsPdcpTimer");
            break;
        case 8: {
            const unsigned int value = on ? mInput.byte() : 0;
            want(callText("RegPriorityQueueReports", on, value), on);
            expect(sdfSessionSetQueueReports(session, value, on ? onReport : nullptr, this));
            break;
        }
        case 9:
            if (on) want("RegAutoFilterInfo");
            if (expect(sdfSessionSetAutoFilters(session, on ? onAutoFilter : nullptr, this)) && !on)
                mWanted.erase("RegAutoFilterInfo");
            break;
        case 10: {
            const auto first = duration();
            const auto longest = duration();
            mValid = mValid && first <= longest;
            expect(sdfSessionSetPauses(session, first, longest));
            break;
        }
        default: expect(sdfSessionSetAnswerDeadline(session, duration())); break;
    }
}

void Program::ask() {
    mQuestions.push_back({*this});
    SdfSession* const session = orNull(mSession);
    const unsigned int deadline = duration(0);
    Question* const question = &mQuestions.back();
    const int result =
        mInput.flag()
            ? sdfSessionAskFilters(session, deadline, orNull(onListAnswer), question)
            : sdfSessionAskQueueReport(session, deadline, orNull(onReportAnswer), question);
    if (!expect(result)) mQuestions.pop_back();
}

bool Program::isReadable() const {
    pollfd waited{sdfSessionFd(mSession), POLLIN, 0};
    return TEMP_FAILURE_RETRY(poll(&waited, 1, 0)) == 1;
}

void Program::dispatch() {
    const bool readable = isReadable();
    const unsigned int before = mCalls;
    ++mDispatching;
    try {
        const int result = sdfSessionDispatch(mSession);
        check(result == (mSession == nullptr ? SDF_SESSION_CLOSED : 0),
              "dispatch returns another code");
        check(!mThrown, "keeps what a callback has thrown");
    } catch (const Thrown&) {
        mThrown = false;
    }
    --mDispatching;
    // Deeper in a dispatch the session knows of what the descriptor does not show yet.
    check(readable || mDispatching > 0 || before == mCalls,
          "had something to do and did not say so");
}

// Returns whether one was wanted. What the service had was the last one's.
bool Program::makeWantedClient(bool possible) {
    if (!isClientWanted()) return false;
    makeClient(possible);
    mService = {};
    for (Flow& flow : mFlows) flow.answer.reset();
    return true;
}

void Program::advance(int64_t milliseconds) {
    gNow += std::chrono::milliseconds(milliseconds);
    gTimer.tick();
}

void Program::say(unsigned int id, SdfFilterStatus status) {
    Service::Filter& filter = mService.filters.at(id);
    const bool answered = std::exchange(filter.answered, true);
    filter.flow.answer = status;
    if (!isAlive(status)) mService.filters.erase(id);
    if (answered) {
        mSdk.indicate(id, status);
    } else {
        mSdk.answer(id, status);
    }
}

void Program::answerLevels(unsigned int id, SdfLatencyLvl first, SdfLatencyLvl second) {
    auto& answer = mService.levels.at(id).answer;
    if (answer) return;
    answer = {first, second};
    mSdk.levels(id, first, second);
}

void Program::serve() {
    if (mSdk.clients() == 0) return;
    std::vector<unsigned int> ids;
    for (const auto& filter : mService.filters) ids.push_back(filter.first);
    const unsigned int id = ids.empty() ? 0 : ids[mInput.byte() % ids.size()];
    switch (mInput.pick(8)) {
        case 0:
        case 1:
        case 2:
        case 3:
            if (id != 0) say(id, mInput.flag() ? anyStatus() : SDF_FILTER_ACTIVE);
            break;
        case 4: {
            if (mService.levels.empty()) return;
            const auto skip = static_cast<int>(mInput.byte() % mService.levels.size());
            const auto first = anyLevel();
            const auto second = anyLevel();
            answerLevels(std::next(mService.levels.begin(), skip)->first, first, second);
            break;
        }
        case 5:
            if (mSdk.listCb != nullptr)
                mSdk.list(mInput.flag() ? ids : std::vector<unsigned int>());
            break;
        case 6: mSdk.report({++mSerial}); break;
        default:
            if (mSdk.autoFilterCb != nullptr) mSdk.autoFilter(++mSerial);
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
        const char* const line = kLines[mInput.pick(10)];
        mSdk.failNext(line, kResults[mInput.pick(3)]);
    } else if (clients > 0) {
        const int status = -static_cast<int>(mInput.pick(1 - SDF_V2_SERVICE_DOWN));
        mSdk.status(status, mInput.rarely(4) ? 1 + mInput.byte() % clients : clients);
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
            for (const auto& filter : mService.filters) {
                if (!filter.second.answered) say(filter.first, SDF_FILTER_ACTIVE);
            }
            for (const auto& levels : mService.levels) {
                answerLevels(levels.first, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2);
            }
            if (mSdk.listCb != nullptr) mSdk.list({});
            dispatch();
        }
        constexpr int64_t kDay = 86400000;
        advance(kDay);
        dispatch();
        check(!isReadable(), "says that it has more to do");
        const bool quiet = mSdk.take().empty() && std::exchange(calls, mCalls) == mCalls;
        if (quiet && mState == SDF_SESSION_UP) return;
    }
    fail("does not come to rest");
}

void Program::compare() {
    size_t served = 0;
    for (const Flow& flow : mFlows) {
        if (flow.removed) {
            check(flow.ended, "a removal that is not reported");
            continue;
        }
        check(flow.state == sdfFilterGetState(flow.handle), "another state than was reported");
        if (flow.state == SDF_FILTER_STATE_EXPIRED) {
            check(!flow.renewed, "an expired filter is not renewed");
            // Perhaps since before the session connected anew.
            if (!flow.answer) continue;
        }
        check(flow.answer == flow.why && flow.state != SDF_FILTER_STATE_REQUESTED,
              "a filter is not as it was answered");
        const auto found = mService.filters.find(sdfFilterGetId(flow.handle));
        check((found != mService.filters.end()) == isAlive(flow.why), "a number of a filter");
        if (!isAlive(flow.why)) continue;
        const Service::Filter& filter = found->second;
        check(&filter.flow == &flow && equal(filter.info, flow.info) &&
                  filter.dscp == std::optional<long long>(flow.dscp),
              "the service has another filter");
        ++served;
    }
    check(served == mService.filters.size(), "the service has more filters");
    check(hasSettings(), "the service has other settings");
    for (const auto& wanted : mWanted) {
        const Service::Levels* const levels = mService.levelsOf(wanted.first);
        check(levels == nullptr || levels->reported, "levels that are not reported");
    }
    for (const Question& question : mQuestions) check(question.ended, "a question without its end");
}

void Program::listen() {
    if (isWanted("RegPriorityQueueReports")) {
        mSdk.report({++mSerial});
        dispatch();
        check(mLastReport == mSerial, "a report is lost");
    }
    if (isWanted("RegAutoFilterInfo")) {
        mSdk.autoFilter(++mSerial);
        dispatch();
        check(mLastAutoFilter == mSerial, "an automatic filter is lost");
    }
}

}  // namespace

// Goes before the C++ library's.
Clock::time_point Clock::now() noexcept {
    return gNow;
}

// The linker turns the session's calls into these.
extern "C" int __wrap_timerfd_create(clockid_t /*clock*/, int /*flags*/) {
    return gTimer.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

extern "C" int __wrap_timerfd_settime(int fd, int /*flags*/, const itimerspec* time, itimerspec*) {
    eventfd_t ignored = 0;
    (void)eventfd_read(fd, &ignored);
    const auto since = std::chrono::seconds(time->it_value.tv_sec) +
                       std::chrono::nanoseconds(time->it_value.tv_nsec);
    gTimer.due = since.count() == 0 ? Clock::time_point::max() : Clock::time_point(since);
    gTimer.tick();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    Input input(bytes, size);
    Program(input).run();
    return 0;
}
