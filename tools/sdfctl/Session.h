// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "tools/sdfctl/Failure.h"
#include "tools/sdfctl/FilterBook.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Waiter.h"

struct Settings {
    bool json = false;
    bool manual = false;         // no client is made, and nothing is waited for, unasked
    bool answers = true;         // requests that are answered wait for it
    double timeout = 5;          // seconds for the service to come up, and for each event
    std::optional<double> wait;  // seconds to keep asking for the service

    // Seconds for the client's end. The library may take 3.15 for one attempt to connect.
    double endLimit() const { return std::max(timeout, 10.0); }
};

// One run: issues the calls, prints them and the events, and knows what they have reported. All of
// it happens on the main thread; the library's threads only put events into the queue.
class Session {
  public:
    explicit Session(const Settings& settings);

    const Settings& settings() const { return mSettings; }
    Printer& printer() { return mPrinter; }
    FilterBook& filters() { return mFilters; }

    // Calls the library, after the events that came before, and prints the call. A negative result
    // counts as a failure. Returns the result.
    long long call(const std::string& function, const Fields& arguments,
                   const std::function<long long()>& body);
    // The same for functions that return 1 for success and 0 for failure.
    long long callOlder(const std::string& function, const std::function<long long()>& body);

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

    // Issues a call that names a filter: body() again for as long as it returns -2 because the
    // library has not yet taken note of the filter.
    long long retryWhileFresh(unsigned int id, const std::function<long long()>& body);
    // The same for a call that names all filters, and returns -5 because the library knows of none.
    long long retryWhileNoneKnown(const std::function<long long()>& body);

    // Waits for an event that nobody has waited for yet, and counts the failure when it does not
    // come in time. value: that it must have; empty: any.
    void expect(const std::string& name, const std::string& value);
    using Test = std::function<bool(const Event&)>;
    // The same for the answer to a request, unless the settings say not to wait for answers. It is
    // not waited for any longer once a service that lives has reported an internal error.
    void expectAnswer(const std::string& name, const Test& test);
    // The same for an answer of several events: waits until there have been `expected`, or they
    // cease to come. first: whether one has to come.
    void expectAnswers(const std::string& name, size_t expected, bool first);
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

    // Waits, for some seconds at most, until it is known whether an internal error was reported
    // because the service died. Behind the client's end nobody would tell.
    void judge();
    // Destroys the client, if there is one. What keeps it from that counts as a failure.
    void finish();

    // What is known of client and service.
    void printStatus();

    // Notes that something went wrong; the first one counts. status: what the process ends with.
    void fail(int status);
    // Says what went wrong, on standard error.
    void complain(ExitStatus status, const std::string& message);
    void complain(const Failure& failure) { complain(failure.status, failure.what()); }
    int exitStatus() const { return mExitStatus; }

  private:
    void asking();
    void createUnasked();
    long long endOf(const std::string& function, long long (*body)());
    void clientGone();
    bool waitUntil(std::optional<Time> end, const std::function<bool()>& done);
    void waitForService();
    void keepAsking();
    // Until when to keep asking from now on, none for without end. Only with the setting.
    std::optional<Time> waitEnd() const;
    // The service is not up: asks for it while something is waited for, if the settings say so.
    void startAsking();
    // Returns whether it has asked, and so may have printed what came of it: nobody need wait for
    // that any more.
    bool askIfDue();
    bool takeEvent(const std::string& name, const Test& test);
    bool takeAnswer(const std::string& name, const Test& test);
    void note(const Event& event);
    void noteStatus(const Event& event, bool older);
    void failureStands();

    const Settings mSettings;
    Printer mPrinter;
    Waiter mWaiter;
    FilterBook mFilters;
    std::deque<Event> mUnclaimed;  // that nobody has waited for yet
    bool mHasClient = false;
    bool mChosen = false;  // nobody but the user makes a client from now on
    bool mUp = false;
    bool mWasUp = false;               // since the client was made
    std::optional<std::string> mTold;  // the latest status, since the service was last asked for
    // Until when an internal error may still have been reported because the service died. Otherwise
    // a message was refused, or it is the service that reported it; nobody can tell these apart.
    std::optional<Time> mVerdict;
    std::string mFailure;         // that status
    size_t mFailures = 0;         // how many were not for the service's death
    std::optional<Time> mAskAt;   // when to ask for the service again; none: not at all
    std::optional<Time> mAskEnd;  // when to cease
    int mExitStatus = kExitSuccess;
};
