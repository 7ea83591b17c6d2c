// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <mutex>

// Makes and destroys the client of the process, on a thread of its own, as destroying blocks: until
// the library has handled all that is queued, and with it any attempt to connect that is under way.
// So no two attempts are ever queued, and what a lost client has left, queued requests and awaited
// answers, does not reach the next one. Never destroyed. Thread-safe.
class Connector {
  public:
    static Connector& instance();

    // Begins a session: starts the thread. Returns 0, SDF_SESSION_EXISTS,
    // SDF_SESSION_CLIENT_EXISTS, SDF_SESSION_CLOSING or SDF_SESSION_NO_RESOURCES.
    int open();

    // Has the client destroyed, if there is one, and another one made. Ends with a ClientMadeEvent,
    // by the lane of that client. Not to be called again before that, or before a status.
    void connect();

    // The lane of the client that was made last.
    int lane() const;

    // Ends the session: has the client destroyed and the thread end. Waits for that, at most so
    // many milliseconds. Returns whether it is done.
    bool close(unsigned int milliseconds);

  private:
    enum class Session { kNone, kOpen, kClosing };

    void run();

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    Session mSession = Session::kNone;
    bool mWanted = false;  // a client is to be made
    int mLane = 0;         // of this session's and earlier clients
};
