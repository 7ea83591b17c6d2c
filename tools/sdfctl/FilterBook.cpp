// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/FilterBook.h"

#include <algorithm>

void FilterBook::note(const Event& event) {
    const bool added = event.name == "filter-added";
    if (!added && event.name != "filter-status") return;
    const auto id = static_cast<unsigned int>(event.number("filter"));
    const bool alive = event.number("status") <= SDF_FILTER_ACTIVE;
    if (!alive) deleted(id);
    if (!alive || !added) return;
    mConfirmed.push_back(id);
    mFresh.insert(id);
}

void FilterBook::deleted(unsigned int id) {
    mFresh.erase(id);
    mConfirmed.erase(std::remove(mConfirmed.begin(), mConfirmed.end(), id), mConfirmed.end());
}

void FilterBook::clear() {
    mFresh.clear();
    mConfirmed.clear();
}
