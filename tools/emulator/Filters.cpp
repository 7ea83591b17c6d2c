// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/Filters.h"

#include <iterator>
#include <utility>

#include "tools/emulator/FilterCheck.h"

namespace {

constexpr uint64_t kLastId = UINT32_MAX;

}  // namespace

SdfProto::FilterData filterData(uint32_t id, SdfProto::FilterStatus status,
                                const std::string& text) {
    SdfProto::FilterData data;
    data.set_filter_id(id);
    data.set_status(status);
    data.set_status_string(text);
    return data;
}

Filters::Filters(uid_t uid, const Policy& policy, Timeline& timeline, Changed changed)
    : mUid(uid), mPolicy(policy), mTimeline(timeline), mChanged(std::move(changed)) {}

Filters::~Filters() {
    for (const Filter& filter : mFilters) forget(filter);
}

SdfProto::FilterData Filters::add(uint64_t id, const SdfProto::AddFilter& description) {
    const std::string asked = description.SerializeAsString();
    SdfProto::FilterData rejected = rejection(id, description, asked);
    if (rejected.status() != SdfProto::FILTER_ACTIVE) return rejected;

    const auto number = static_cast<uint32_t>(id);
    mFilters.push_back({number, description, asked, SdfProto::FILTER_ACTIVE, {}, {}, {}});
    Filter& added = mFilters.back();
    mById.emplace(number, std::prev(mFilters.end()));
    mByDescription.emplace(added.asked, number);
    if (mPolicy.activationDelay.count() != 0) {
        added.status = SdfProto::FILTER_PENDING;
        added.activation =
            mTimeline.after(mPolicy.activationDelay, [this, number] { activate(number); });
    }
    startTimeout(added);  // last: a shorter delay ends first, however slow this thread is
    return filterData(number, added.status,
                      added.status == SdfProto::FILTER_ACTIVE ? "active" : "not yet active");
}

Filter* Filters::touch(uint32_t id) {
    Filter* const found = find(id);
    if (found == nullptr) return nullptr;
    mTimeline.cancel(found->timeout);
    startTimeout(*found);
    return found;
}

bool Filters::remove(uint32_t id) {
    const auto found = mById.find(id);
    if (found == mById.end()) return false;
    const auto filter = found->second;
    forget(*filter);
    mById.erase(found);
    mByDescription.erase(filter->asked);
    mFilters.erase(filter);
    return true;
}

// Active stands for: nothing speaks against it.
SdfProto::FilterData Filters::rejection(uint64_t id, const SdfProto::AddFilter& description,
                                        const std::string& asked) const {
    const auto result = [&](SdfProto::FilterStatus status, const std::string& text) {
        return filterData(static_cast<uint32_t>(id), status, text);
    };
    if (mPolicy.deniedUids.count(mUid) != 0) {
        return result(SdfProto::ERROR_NO_PERMISSION,
                      "uid " + std::to_string(mUid) + " may not add filters");
    }
    const std::string wrong = whatIsWrong(description);
    if (!wrong.empty()) return result(SdfProto::ERROR_INVALID_ARGS, wrong);
    if (id == 0 || id > kLastId) {
        return result(SdfProto::ERROR_INVALID_ARGS, "unique_id is not 1 to 4294967295");
    }
    if (mById.count(static_cast<uint32_t>(id)) != 0) {
        return result(SdfProto::ERROR_INVALID_ARGS, "unique_id is in use");
    }
    if (const auto same = mByDescription.find(asked); same != mByDescription.end()) {
        return result(SdfProto::ERROR_DUPLICATE_FILTER,
                      "the same as filter " + std::to_string(same->second));
    }
    if (mFilters.size() >= mPolicy.filterLimit) {
        return result(SdfProto::ERROR_FILTER_LIMIT_REACHED,
                      "no more than " + std::to_string(mPolicy.filterLimit) + " filters");
    }
    return result(SdfProto::FILTER_ACTIVE, "");
}

Filter* Filters::find(uint32_t id) {
    const auto found = mById.find(id);
    return found == mById.end() ? nullptr : &*found->second;
}

void Filters::startTimeout(Filter& filter) {
    if (mPolicy.inactivityTimeout.count() == 0) return;
    filter.timeout =
        mTimeline.after(mPolicy.inactivityTimeout, [this, id = filter.id] { expire(id); });
}

void Filters::activate(uint32_t id) {
    find(id)->status = SdfProto::FILTER_ACTIVE;
    mChanged(filterData(id, SdfProto::FILTER_ACTIVE, "active"));
}

void Filters::expire(uint32_t id) {
    remove(id);
    mChanged(filterData(
        id, SdfProto::FILTER_INACTIVITY_TIMEOUT,
        "named by no request for " + std::to_string(mPolicy.inactivityTimeout.count()) + " ms"));
}

void Filters::forget(const Filter& filter) {
    mTimeline.cancel(filter.activation);
    mTimeline.cancel(filter.timeout);
}
