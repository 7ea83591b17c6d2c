// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Session.h"

#include <algorithm>
#include <cstdio>
#include <thread>
#include <utility>

#include "tools/sdfctl/Callbacks.h"

namespace {

constexpr double kQuietSeconds = 0.2;  // after which a list counts as complete
constexpr size_t kMostUnclaimed = 10000;
constexpr char kNoClient[] = ": there is no client (\"create\" makes one)";

std::string secondsText(double seconds) {
    char text[40];
    snprintf(text, sizeof text, "%g s", seconds);
    return text;
}

}  // namespace

std::string notDestroyedText(const std::string& what, double seconds) {
    return "the client is not destroyed: " + what + " after " + secondsText(seconds) +
           "; the service hangs, or is gone with requests still queued (\"sdfctl doctor\" tells "
           "which)";
}

Session::Session(const Settings& settings) : mSettings(settings), mPrinter(settings.json) {}

long long Session::call(const std::string& function, const Fields& arguments,
                        const std::function<long long()>& body, Results results) {
    drain();
    mNotUp = false;
    const long long result = body();
    const bool failed = results == kOlder ? result != 1 : result < 0;
    const char* const olderText = failed ? "failure" : "success";
    mPrinter.print(
        Call{function, arguments, result, results == kOlder ? olderText : sdfStatusV2Text(result)});
    if (failed) fail(kExitCallFailed);
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
    const auto body = [cb] { return lum_sdf_enable(cb); };
    if (call("lum_sdf_enable", {}, body, kOlder) == 1) mHasClient = true;
}

void Session::asking() {
    mChosen = true;
    if (!mHasClient) clientGone();  // what came too late for the last one is not for this one
    if (!mUp) mTold.reset();
}

void Session::destroy() {
    if (endOf("destroySdfClient", destroySdfClient, kV2) == 0) clientGone();
}

void Session::disable() {
    if (endOf("lum_sdf_disable", lum_sdf_disable, kOlder) == 1) clientGone();
}

long long Session::endOf(const std::string& function, long long (*body)(), Results results) {
    mChosen = true;
    const double limit = mSettings.endLimit();
    const auto limited = [&] {
        const std::optional<long long> result = mWaiter.withLimit(limit, body);
        if (result) return *result;
        clientGone();
        throw NotDestroyed(notDestroyedText(function + "() has not returned", limit));
    };
    return call(function, {}, limited, results);
}

void Session::clientGone() {
    mHasClient = false;
    mUp = false;
    mWasUp = false;
    mTold.reset();
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
    if (mWasUp) return;
    if (waitUntil(mSettings.timeout, [&] { return mUp || mTold; }) && mUp) return;
    const std::string why = mTold ? "the service is not up: its status is " + *mTold
                                  : "the service is not up after " + secondsText(mSettings.timeout);
    throw NotUp(why + " (\"sdfctl doctor\" says why)");
}

long long Session::retryWhileEarly(unsigned int id, long long early,
                                   const std::function<long long()>& body) {
    constexpr double kEarlySeconds = 1;
    const Time end = inSeconds(kEarlySeconds);
    const bool mayBeEarly = mEarlyFilter != 0 && (id == 0 || id == mEarlyFilter);
    if (mayBeEarly) mEarlyFilter = 0;
    long long result = body();
    while (mayBeEarly && result == early && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        result = body();
    }
    return result;
}

void Session::expect(const std::string& name, const std::string& value) {
    const Test test = [&](const Event& event) { return value.empty() || event.has(value); };
    // Without a client no more events come.
    const double limit = mHasClient ? mSettings.timeout : 0;
    if (waitUntil(limit, [&] { return takeEvent(name, test); })) return;
    std::string missing = "no event \"" + name + "\"";
    if (!value.empty()) missing += " with \"" + value + "\"";
    complain(kExitNoAnswer, missing + (mHasClient ? " within " + secondsText(limit) : kNoClient));
}

bool Session::expectAnswer(const std::string& name, const Test& test) {
    if (!mSettings.answers) return true;
    bool come = false;
    const bool inTime = waitUntil(mSettings.timeout, [&] {
        come = takeEvent(name, test);
        return come || mNotUp;
    });
    if (come) return true;
    const std::string why = inTime ? ": the status has been " + mTold.value_or("")
                                   : " within " + secondsText(mSettings.timeout);
    complain(kExitNoAnswer, "no event \"" + name + "\"" + why);
    return false;
}

void Session::expectAnswers(const std::string& name) {
    if (!mSettings.answers || !expectAnswer(name, {})) return;
    while (waitUntil(kQuietSeconds, [&] { return takeEvent(name, {}); })) {
    }
}

void Session::expectUp() {
    createUnasked();
    if (!mHasClient) throw NotUp(std::string("the service cannot come up") + kNoClient);
    if (waitUntil(mSettings.timeout, [&] { return mUp; })) return;
    throw NotUp("the service is not up after " + secondsText(mSettings.timeout));
}

void Session::expectDown() {
    if (!mHasClient) {
        return complain(kExitNoAnswer, std::string("the service cannot be lost") + kNoClient);
    }
    if (waitUntil(mSettings.timeout, [&] { return !mUp && mTold; })) return;
    complain(kExitNoAnswer, "the service is not down after " + secondsText(mSettings.timeout));
}

void Session::pause(double seconds) {
    waitUntil(seconds, [] { return false; });
}

bool Session::waitUntil(double seconds, const std::function<bool()>& done) {
    const Time end = inSeconds(seconds);
    for (;;) {
        drain();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        mWaiter.wait(end, {callbacks::events().fd()});
    }
}

bool Session::inputReady(int fd, int other, std::optional<Time> end) {
    const auto ready = mWaiter.wait(end, {callbacks::events().fd(), fd, other});
    drain();
    return ready.value_or(0) != 0;
}

void Session::drain() {
    for (const Event& event : callbacks::events().take()) {
        mPrinter.print(event);
        note(event);
    }
}

void Session::note(const Event& event) {
    const bool older = event.name == "legacy-status";
    if (older || event.name == "status") noteStatus(event, older);
    if (event.name == "filter-added") {
        const bool alive = event.number("status") <= SDF_FILTER_ACTIVE;
        if (alive) mEarlyFilter = static_cast<unsigned int>(event.number("filter"));
        if (!alive) fail(kExitCallFailed);
    }
    mUnclaimed.push_back(event);
    if (mUnclaimed.size() > kMostUnclaimed) mUnclaimed.pop_front();
}

void Session::noteStatus(const Event& event, bool older) {
    const long long up{older ? int{SDF_STATUS_SERVICE_UP} : int{SDF_V2_SERVICE_UP}};
    const long long failed{older ? int{SDF_STATUS_INTERNAL_ERROR} : int{SDF_V2_INTERNAL_ERROR}};
    const long long status = event.number("status");
    // Before the service is up it can only be the library's own message that failed.
    if (mUp && status == failed) fail(kExitCallFailed);
    mUp = status == up;
    mWasUp = mWasUp || mUp;
    mNotUp = mNotUp || !mUp;
    mTold = event.fields.front().shown;
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
    mPrinter.print(
        std::string("client: ") + (mHasClient ? "yes" : "no") +
            "\nservice: " + mTold.value_or("not heard of"),
        {{"status",
          Fields{{"client", mHasClient}, {"up", mUp}, {"told", mTold ? Value(*mTold) : Value()}}}});
}

void Session::fail(int status) {
    if (mExitStatus == kExitSuccess) mExitStatus = status;
}

void Session::complain(ExitStatus status, const std::string& message) {
    fprintf(stderr, "sdfctl: %s\n", printable(message).c_str());
    fail(status);
}
