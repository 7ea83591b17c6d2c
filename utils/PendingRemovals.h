// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace lum::utils {

// One removal of a descriptor from an EventManager.
struct EventManagerUpdate {
    int mFd;
    bool mCloseFd;         // close the descriptor, or call mDone in place of that
    void (*mDone)(void*);  // may be null
    void* mDoneData;
};

// The removals that the event thread has still to carry out. It does so in passes: begin(), next()
// until there is none left, end(). Not locked: the EventManager's mutex guards it.
class PendingRemovals {
  public:
    // So many can be pending without memory being asked for.
    void reserve(size_t count);

    bool empty() const { return mEntries.empty(); }
    size_t size() const { return mEntries.size(); }
    // Whether one is pending that will take this descriptor out of epoll.
    bool concerns(int fd) const;

    void add(const EventManagerUpdate& removal);

    // The number belongs to another descriptor by now, which the removal pending for it must leave
    // alone: only its done function, if it has one, is still to be called.
    void disown(int fd);

    // What is pending now makes up the pass.
    void begin();
    // Takes the next removal of the pass, in ascending order of descriptors; false when there is
    // none left. disowned: set to whether it no longer concerns its descriptor. From here on the
    // removal counts as carried out.
    bool next(EventManagerUpdate* removal, bool* disowned);
    // Forgets what has been carried out, and logs each.
    void end();

  private:
    struct Entry {
        enum class State { kPending, kInPass, kDone };

        EventManagerUpdate removal;
        State state = State::kPending;
        bool disowned = false;
    };

    std::vector<Entry> mEntries;  // in ascending order of descriptors
};

}  // namespace lum::utils
