// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <set>
#include <vector>

#include "tools/sdfctl/Record.h"

// The filters of this run, as far as calls and events tell. For one thread.
class FilterBook {
  public:
    // An add request has been given this id.
    void asked(unsigned int id) { mLast = id; }
    // An event has come, of any kind.
    void note(const Event& event);
    void deleted(unsigned int id);
    void clear();

    // The id of the latest add request.
    std::optional<unsigned int> last() const { return mLast; }
    // Those that the service has confirmed and that have not ended, in order of confirmation.
    const std::vector<unsigned int>& confirmed() const { return mConfirmed; }

    // Whether the filter has been confirmed so lately that the library may not know it yet: it does
    // when the callback that confirmed it has returned.
    bool isFresh(unsigned int id) const { return mFresh.count(id) != 0; }
    bool hasFresh() const { return !mFresh.empty(); }
    // The library has shown that it knows the filter, or had time enough.
    void settled(unsigned int id) { mFresh.erase(id); }
    void settleAll() { mFresh.clear(); }

  private:
    std::optional<unsigned int> mLast;
    std::vector<unsigned int> mConfirmed;
    std::set<unsigned int> mFresh;
};
