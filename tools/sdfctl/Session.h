// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "tools/sdfctl/Failure.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Waiter.h"

struct Settings {
    bool json = false;
    bool manual = false;  // no client is made, and nothing is waited for, unasked
    bool answers = true;  // requests that are answered wait for it
    double timeout = 5;   // seconds for the service to come up, and for each event

    // Seconds for the client's end. The library may take 3.15 for one attempt to connect.
    double endLimit() const { return std::max(timeout, 10.0); }
};

// What is said of a client that is not gone in time. what: that has not ended.
std::string notDestroyedText(const std::string& what, double seconds);

// One run: issues the calls, and prints them and the events. All of it happens on the main thread;
// the library's threads only put events into the queue.
class Session {
  public:
    explicit Session(const Settings& settings);

    const Settings& settings() const { return mSettings; }
    Printer& printer() { return mPrinter; }

    // The older functions return 1 for success, and all else is a failure; the others return
    // something negative for a failure.
    enum Results { kV2, kOlder };
    // Calls the library, after the events that came before, and prints the call. A failure counts.
    // Returns the result.
    long long call(const std::string& function, const Fields& arguments,
                   const std::function<long long()>& body, Results results = kV2);

    // createSdfClient(), and the older lum_sdf_enable(), with the callback or a null one.
    void create(bool nullCallback);
    void enable(bool nullCallback);
    // destroySdfClient(), and the older lum_sdf_disable(). They take as long as the service does;
    // nobody must have to wait for that, so signals end the process meanwhile. Throws NotDestroyed.
    void destroy();
    void disable();

    // Makes the client, and waits for the service, as far as the settings ask for it. To be called
    // before each request. Throws NotUp.
    void ready();
    // Only waits.
    void serviceUp();

    // The id of the latest add request.
    std::optional<unsigned int> lastFilter() const { return mLastFilter; }
    void filterAsked(unsigned int id) { mLastFilter = id; }
    // Calls body() for a request about a filter, or about all (0): again while it returns `early`
    // because the library does not yet know the filter confirmed last. It does when the callback
    // that confirmed it has returned.
    long long retryWhileEarly(unsigned int id, long long early,
                              const std::function<long long()>& body);

    // Waits for an event that nobody has waited for yet, and counts the failure when it does not
    // come in time. value: that it must have; empty: any.
    void expect(const std::string& name, const std::string& value);
    using Test = std::function<bool(const Event&)>;
    // The same for the answer to a request, unless the settings say not to wait for answers. It is
    // not waited for any longer when the status is another than up. Returns whether it has come.
    bool expectAnswer(const std::string& name, const Test& test);
    // The same for an answer of several events: waits until they cease to come.
    void expectAnswers(const std::string& name);
    // Waits until the service is up, for a client that is made as ready() does; throws NotUp when
    // it is not in time.
    void expectUp();
    // Waits until the service is down, and counts the failure when it is not in time.
    void expectDown();
    void pause(double seconds);

    // Waits until one of the descriptors can be read, which it returns true for, or events have
    // come, which it prints, or the time has come. other: may be -1; end: none means without limit.
    bool inputReady(int fd, int other = -1, std::optional<Time> end = std::nullopt);
    // Prints the events that have come.
    void drain();

    // Destroys the client, if there is one. What keeps it from that counts as a failure.
    void finish();

    // What is known of client and service.
    void printStatus();

    // Says what went wrong, on standard error. The first thing that goes wrong counts.
    void complain(ExitStatus status, const std::string& message);
    void complain(const Failure& failure) { complain(failure.status, failure.what()); }
    // What the process ends with.
    int exitStatus() const { return mExitStatus; }

  private:
    void asking();
    void createUnasked();
    long long endOf(const std::string& function, long long (*body)(), Results results);
    void clientGone();
    bool waitUntil(double seconds, const std::function<bool()>& done);
    bool takeEvent(const std::string& name, const Test& test);
    void note(const Event& event);
    void noteStatus(const Event& event, bool older);
    void fail(int status);

    const Settings mSettings;
    Printer mPrinter;
    const Waiter mWaiter;
    std::deque<Event> mUnclaimed;  // that nobody has waited for yet
    bool mHasClient = false;
    bool mChosen = false;  // nobody but the user makes a client from now on
    bool mUp = false;
    bool mWasUp = false;               // since the client was made
    bool mNotUp = false;               // another status has come since the latest call
    std::optional<std::string> mTold;  // the latest status, since the service was last asked for
    std::optional<unsigned int> mLastFilter;
    unsigned int mEarlyFilter = 0;  // that the library may not know yet; 0 for none
    int mExitStatus = kExitSuccess;
};
