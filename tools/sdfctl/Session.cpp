// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Session.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <thread>

#include "tools/sdfctl/Callbacks.h"

namespace {

constexpr double kAskAgainSeconds = 4;  // longer than one of the library's attempts
constexpr double kQuietSeconds = 0.2;   // after which a list counts as complete
constexpr double kDeathSeconds = 3;  // in which the service's death is reported behind its failures
constexpr size_t kMostUnclaimed = 10000;
constexpr char kNoClient[] = ": there is no client (\"create\" makes one)";

std::string secondsText(double seconds) {
    char text[40];
    snprintf(text, sizeof text, "%g s", seconds);
    return text;
}

// The earliest; none when there is none.
std::optional<Time> firstOf(std::initializer_list<std::optional<Time>> times) {
    std::optional<Time> first;
    for (const std::optional<Time>& time : times) {
        if (time && (!first || *time < *first)) first = time;
    }
    return first;
}

// body() again while it returns `code` and that may be because the library has yet to take note of
// a filter, which it does as soon as it gets to run.
long long retryWhile(const std::function<long long()>& body, long long code,
                     const std::function<bool()>& isEarly) {
    constexpr double kNoteSeconds = 1;
    const Time end = inSeconds(kNoteSeconds);
    long long result = body();
    while (result == code && isEarly() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        result = body();
    }
    return result;
}

}  // namespace

Session::Session(const Settings& settings)
    : mSettings(settings), mPrinter(settings.json), mWaiter(callbacks::events().fd()) {}

long long Session::call(const std::string& function, const Fields& arguments,
                        const std::function<long long()>& body) {
    drain();
    const long long result = body();
    mPrinter.print(Call{function, arguments, result, sdfStatusV2Text(result)});
    if (result < 0) fail(kExitCallFailed);
    drain();
    return result;
}

long long Session::callOlder(const std::string& function, const std::function<long long()>& body) {
    drain();
    const long long result = body();
    mPrinter.print(Call{function, {}, result, result == 1 ? "success" : "failure"});
    if (result != 1) fail(kExitCallFailed);
    drain();
    return result;
}

void Session::create(bool nullCallback) {
    const SdfStatusV2Cb cb = nullCallback ? nullptr : callbacks::onStatus;
    asking();
    if (call("createSdfClient", {}, [&] { return createSdfClient(cb); }) == 0) mHasClient = true;
}

void Session::enable(bool nullCallback) {
    const SdfLegacyStatusCb cb = nullCallback ? nullptr : callbacks::onLegacyStatus;
    asking();
    if (callOlder("lum_sdf_enable", [cb] { return lum_sdf_enable(cb); }) == 1) mHasClient = true;
}

void Session::asking() {
    mChosen = true;
    if (!mHasClient) clientGone();  // what came too late for the last one is not for this one
    if (!mUp) mTold.reset();
}

void Session::destroy() {
    mChosen = true;
    const std::string function = "destroySdfClient";
    const auto body = [&] { return endOf(function, destroySdfClient); };
    if (call(function, {}, body) == 0) clientGone();
}

void Session::disable() {
    mChosen = true;
    const std::string function = "lum_sdf_disable";
    const auto body = [&] { return endOf(function, lum_sdf_disable); };
    if (callOlder(function, body) == 1) clientGone();
}

long long Session::endOf(const std::string& function, long long (*body)()) {
    const double limit = mSettings.endLimit();
    const std::optional<long long> result = Waiter::withLimit(limit, body);
    if (result) return *result;
    clientGone();
    throw NotDestroyed("the client is not destroyed: " + function + "() has not returned after " +
                       secondsText(limit) +
                       "; the service hangs, or is gone with requests still queued (\"sdfctl "
                       "doctor\" tells which)");
}

void Session::clientGone() {
    mHasClient = false;
    mUp = false;
    mWasUp = false;
    mTold.reset();
    mVerdict.reset();
    mAskAt.reset();
    mFilters.clear();
}

void Session::ready() {
    createUnasked();
    serviceUp();
}

void Session::createUnasked() {
    if (!mSettings.manual && !mHasClient && !mChosen) create(false);
}

void Session::serviceUp() {
    // Without a client as the user wants it; the request's result will say so.
    if (mSettings.manual || !mHasClient) return;
    drain();
    if (mSettings.wait) {
        keepAsking();
    } else if (!mWasUp) {
        waitForService();
    }
}

void Session::waitForService() {
    if (waitUntil(inSeconds(mSettings.timeout), [&] { return mUp || mTold; }) && mUp) return;
    const std::string why = mTold ? "the service is not up: its status is " + *mTold
                                  : "the service is not up after " + secondsText(mSettings.timeout);
    throw NotUp(why + " (\"sdfctl doctor\" tells why)");
}

void Session::keepAsking() {
    if (mUp) return;
    startAsking();
    mAskEnd = waitEnd();  // also when the service was lost a while ago
    if (waitUntil(mAskEnd, [&] { return mUp; })) return;
    mAskAt.reset();
    throw NotUp("the service is not up after " + secondsText(*mSettings.wait) +
                " (\"sdfctl doctor\" tells why)");
}

std::optional<Time> Session::waitEnd() const {
    if (*mSettings.wait > 0) return inSeconds(*mSettings.wait);
    return std::nullopt;
}

void Session::startAsking() {
    if (!mSettings.wait || mSettings.manual || mAskAt) return;
    mAskAt = inSeconds(kAskAgainSeconds);
    mAskEnd = waitEnd();
}

bool Session::askIfDue() {
    const Time now = std::chrono::steady_clock::now();
    if (!mAskAt || now < *mAskAt) return false;
    mAskAt.reset();
    if (!mHasClient || (mAskEnd && now >= *mAskEnd)) return false;
    mAskAt = inSeconds(kAskAgainSeconds);  // first: the service may be up when the call returns
    create(false);
    return true;
}

long long Session::retryWhileFresh(unsigned int id, const std::function<long long()>& body) {
    const long long result =
        retryWhile(body, SDF_V2_INVALID_ARG, [&] { return mFilters.isFresh(id); });
    mFilters.settled(id);
    return result;
}

long long Session::retryWhileNoneKnown(const std::function<long long()>& body) {
    const long long result =
        retryWhile(body, SDF_V2_INVALID_OPERATION, [&] { return mFilters.hasFresh(); });
    mFilters.settleAll();
    return result;
}

void Session::expect(const std::string& name, const std::string& value) {
    const Test test = [&](const Event& event) { return value.empty() || event.has(value); };
    // Without a client no more events come.
    const double limit = mHasClient ? mSettings.timeout : 0;
    if (waitUntil(inSeconds(limit), [&] { return takeEvent(name, test); })) return;
    std::string missing = "no event \"" + name + "\"";
    if (!value.empty()) missing += " with \"" + value + "\"";
    complain(kExitNoAnswer, missing + (mHasClient ? " within " + secondsText(limit) : kNoClient));
}

void Session::expectAnswer(const std::string& name, const Test& test) {
    if (mSettings.answers) takeAnswer(name, test);
}

bool Session::takeAnswer(const std::string& name, const Test& test) {
    const size_t before = mFailures;
    bool come = false;
    waitUntil(inSeconds(mSettings.timeout), [&] {
        come = takeEvent(name, test);
        return come || mFailures > before;
    });
    if (come) return true;
    judge();
    const std::string missing = "no event \"" + name + "\"";
    if (mFailures > before) {
        complain(kExitCallFailed, missing + ": the status has been " + mFailure);
    } else {
        complain(kExitNoAnswer, missing + " within " + secondsText(mSettings.timeout));
    }
    return false;
}

void Session::expectAnswers(const std::string& name, size_t expected, bool first) {
    if (!mSettings.answers) return;
    if (first && !takeAnswer(name, {})) return;
    for (size_t count = first ? 1 : 0; expected == 0 || count < expected; ++count) {
        if (!waitUntil(inSeconds(kQuietSeconds), [&] { return takeEvent(name, {}); })) return;
    }
}

void Session::expectUp() {
    createUnasked();
    if (!mHasClient) throw NotUp(std::string("the service cannot come up") + kNoClient);
    if (mSettings.wait && !mSettings.manual) return keepAsking();
    if (waitUntil(inSeconds(mSettings.timeout), [&] { return mUp; })) return;
    throw NotUp("the service is not up after " + secondsText(mSettings.timeout));
}

void Session::expectDown() {
    if (!mHasClient) {
        return complain(kExitNoAnswer, std::string("the service cannot be lost") + kNoClient);
    }
    const auto isDown = [&] { return !mUp && mTold; };
    if (waitUntil(inSeconds(mSettings.timeout), isDown)) return;
    complain(kExitNoAnswer, "the service is not down after " + secondsText(mSettings.timeout));
}

void Session::pause(double seconds) {
    waitUntil(inSeconds(seconds), [] { return false; });
}

bool Session::waitUntil(std::optional<Time> end, const std::function<bool()>& done) {
    for (;;) {
        drain();
        if (done()) return true;
        if (end && std::chrono::steady_clock::now() >= *end) return false;
        if (askIfDue()) continue;
        mWaiter.wait(firstOf({end, mVerdict, mAskAt}));
    }
}

bool Session::inputReady(int fd, int other, std::optional<Time> end) {
    if (askIfDue()) return false;
    if (mAskAt && (!end || *mAskAt < *end)) end = mAskAt;
    const Waiter::Woken woken = mWaiter.wait(end, fd, other);
    drain();
    return woken == Waiter::Woken::kInput;
}

void Session::drain() {
    for (const Event& event : callbacks::events().take()) {
        mPrinter.print(event);
        note(event);
    }
    if (mVerdict && std::chrono::steady_clock::now() >= *mVerdict) failureStands();
}

void Session::note(const Event& event) {
    mFilters.note(event);
    const bool older = event.name == "legacy-status";
    if (older || event.name == "status") noteStatus(event, older);
    if (event.name == "filter-added" && event.number("status") > SDF_FILTER_ACTIVE) {
        fail(kExitCallFailed);
    }
    mUnclaimed.push_back(event);
    if (mUnclaimed.size() > kMostUnclaimed) mUnclaimed.pop_front();
}

void Session::noteStatus(const Event& event, bool older) {
    const long long up{older ? int{SDF_STATUS_SERVICE_UP} : int{SDF_V2_SERVICE_UP}};
    const long long down{older ? int{SDF_STATUS_SERVICE_DOWN} : int{SDF_V2_SERVICE_DOWN}};
    const long long failed{older ? int{SDF_STATUS_INTERNAL_ERROR} : int{SDF_V2_INTERNAL_ERROR}};
    const long long status = event.number("status");
    // Before the service is up it can only be the library's own message that failed. A further
    // failure gets no time of its own: a service that reports one after the other would be waited
    // for without end.
    if (mUp && status == failed) {
        if (!mVerdict) mVerdict = inSeconds(kDeathSeconds);
        mFailure = event.fields.front().shown;
    }
    if (status == down) mVerdict.reset();
    mUp = status == up;
    mWasUp = mWasUp || mUp;
    if (mUp) {
        mAskAt.reset();
    } else {
        startAsking();
    }
    mTold = event.fields.front().shown;
}

void Session::failureStands() {
    mVerdict.reset();
    ++mFailures;
    fail(kExitCallFailed);
}

void Session::judge() {
    waitUntil(std::nullopt, [&] { return !mVerdict; });
}

bool Session::takeEvent(const std::string& name, const Test& test) {
    const auto found = std::find_if(mUnclaimed.begin(), mUnclaimed.end(), [&](const Event& event) {
        return event.name == name && (!test || test(event));
    });
    if (found == mUnclaimed.end()) return false;
    mUnclaimed.erase(found);
    return true;
}

void Session::finish() try {
    if (mHasClient) destroy();
} catch (const NotDestroyed& error) {
    complain(error);
}

void Session::printStatus() {
    drain();
    const std::string service = mTold ? *mTold : "not heard of";
    std::string filters;
    for (const unsigned int id : mFilters.confirmed()) filters += " " + std::to_string(id);
    mPrinter.print(std::string("client: ") + (mHasClient ? "yes" : "no") + "\nservice: " + service +
                       "\nfilters:" + (filters.empty() ? " none" : filters),
                   {{"status", Fields{{"client", mHasClient},
                                      {"up", mUp},
                                      {"told", mTold ? Value(*mTold) : Value()},
                                      {"filters", mFilters.confirmed()}}}});
}

void Session::fail(int status) {
    if (mExitStatus == kExitSuccess) mExitStatus = status;
}

void Session::complain(ExitStatus status, const std::string& message) {
    fprintf(stderr, "sdfctl: %s\n", printable(message).c_str());
    fail(status);
}
