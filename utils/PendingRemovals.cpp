// SPDX-License-Identifier: Apache-2.0
#include "utils/PendingRemovals.h"

#include <algorithm>

#include "utils/Log.h"

namespace lum::utils {

void PendingRemovals::reserve(size_t count) {
    // At least doubling, so that reserving for one more each time stays cheap.
    if (count > mEntries.capacity()) mEntries.reserve(std::max(count, 2 * mEntries.capacity()));
}

bool PendingRemovals::concerns(int fd) const {
    return std::any_of(mEntries.begin(), mEntries.end(), [fd](const Entry& entry) {
        return entry.removal.mFd == fd && entry.state != Entry::State::kDone && !entry.disowned;
    });
}

void PendingRemovals::add(const EventManagerUpdate& removal) {
    const auto place = std::find_if(mEntries.begin(), mEntries.end(), [&](const Entry& entry) {
        return entry.removal.mFd > removal.mFd;
    });
    mEntries.insert(place, {removal});
}

void PendingRemovals::disown(int fd) {
    for (Entry& entry : mEntries) {
        if (entry.removal.mFd != fd || entry.state == Entry::State::kDone) continue;
        entry.disowned = true;
        if (entry.removal.mDone == nullptr) entry.removal.mCloseFd = false;
    }
}

void PendingRemovals::begin() {
    for (Entry& entry : mEntries) {
        if (entry.state == Entry::State::kPending) entry.state = Entry::State::kInPass;
    }
}

bool PendingRemovals::next(EventManagerUpdate* removal, bool* disowned) {
    const auto found = std::find_if(mEntries.begin(), mEntries.end(), [](const Entry& entry) {
        return entry.state == Entry::State::kInPass;
    });
    if (found == mEntries.end()) return false;
    found->state = Entry::State::kDone;
    *removal = found->removal;
    *disowned = found->disowned;
    return true;
}

void PendingRemovals::end() {
    const auto isDone = [](const Entry& entry) { return entry.state == Entry::State::kDone; };
    for (const Entry& entry : mEntries) {
        if (isDone(entry) && !entry.disowned) {
            LUM_LOGD("Clearing local update FD:%d", entry.removal.mFd);
        }
    }
    mEntries.erase(std::remove_if(mEntries.begin(), mEntries.end(), isDone), mEntries.end());
}

}  // namespace lum::utils
