// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session/Due.h"
#include "session/Lane.h"

// What the parts of a session need of it: whether requests may be sent, and with which callbacks.
class Link {
  public:
    // Requests may be sent: the service is up, though perhaps not everything has been sent again.
    bool isOnline() const { return mLane != nullptr; }
    // Of the client that is there. Only online.
    const Lane& lane() const { return *mLane; }

    // A request returned this. False when it failed: then the service counts as lost, and
    // everything is sent again when it is back.
    bool sent(long long result) {
        if (result >= 0) return true;
        lose(static_cast<int>(result));
        return false;
    }
    virtual void lose(int reason) = 0;

    // Before each callback of the application, which may run a loop of its own.
    virtual void beforeCallback() = 0;

    Time answerDue() const { return Clock::now() + mAnswerDeadline; }

    Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

  protected:
    ~Link() = default;

    const Lane* mLane = nullptr;
    Milliseconds mAnswerDeadline{10000};
};
