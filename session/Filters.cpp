// SPDX-License-Identifier: Apache-2.0
#include "session/Filters.h"

#include <iterator>
#include <utility>

namespace {

constexpr Milliseconds kLeastBetweenAdds{1000};
constexpr Milliseconds kFirstEarlyPause{1};
constexpr Milliseconds kLongestEarlyPause{4096};

SdfFilterState stateOf(SdfFilterStatus status) {
    switch (status) {
        case SDF_FILTER_PENDING: return SDF_FILTER_STATE_PENDING;
        case SDF_FILTER_ACTIVE: return SDF_FILTER_STATE_ACTIVE;
        case SDF_FILTER_INACTIVITY_TIMEOUT: return SDF_FILTER_STATE_EXPIRED;
        default: return SDF_FILTER_STATE_REJECTED;
    }
}

bool isAlive(SdfFilterStatus status) {
    return status <= SDF_FILTER_ACTIVE;
}

}  // namespace

SdfFilter* Filters::add(const SdfAddFilterInfo& info, std::optional<unsigned char> extra,
                        SdfFilterStateCb cb, void* user) {
    SdfFilter::ById node;
    const auto filter =
        std::shared_ptr<SdfFilter>(new SdfFilter{*this, info, extra, cb, user, mSerial++});
    node.emplace(0, filter.get());
    mOthers.push_back(filter);
    filter->place = std::prev(mOthers.end());
    filter->node = node.extract(node.begin());
    want(*filter);
    sendWaiting();
    return filter.get();
}

void Filters::change(SdfFilter& filter, SdfFilter::Change change) {
    // An add that is still to be sent has all values but one.
    if (filter.id == 0 && change != SdfFilter::kDscp) return;
    filter.changes |= change;
    settle(filter);
}

void Filters::setRenewed(SdfFilter& filter, bool renewed) {
    filter.renewed = renewed;
    if (renewed && filter.state == SDF_FILTER_STATE_EXPIRED) makeDue(filter);
}

void Filters::remove(SdfFilter& filter) {
    if (filter.state == SDF_FILTER_STATE_REMOVED) return;
    unwant(filter);
    setState(filter, SDF_FILTER_STATE_REMOVED, SDF_FILTER_DELETED);
    if (filter.id == 0) return;
    ++mUnwanted;
    settle(filter);
}

void Filters::request() {
    // In the order of their addition.
    mWaiting.splice(mWaiting.end(), mOthers);
    mWaiting.sort([](const auto& one, const auto& other) { return one->serial < other->serial; });
    for (auto next = mWaiting.begin(); next != mWaiting.end();) {
        SdfFilter& filter = **next++;
        const bool stays = filter.state == SDF_FILTER_STATE_REMOVED ||
                           (filter.state == SDF_FILTER_STATE_EXPIRED && !filter.renewed);
        filter.waiting = !stays;
        if (stays) {
            mOthers.splice(mOthers.end(), mWaiting, filter.place);
        } else if (filter.state != SDF_FILTER_STATE_REQUESTED) {
            setState(filter, SDF_FILTER_STATE_REQUESTED, SDF_FILTER_PENDING);
        }
    }
    mChanged = false;
    sendWaiting();
}

void Filters::lost() {
    mAnswerDue.clear();
    mEarly.clear();
    mEarlyPause = kFirstEarlyPause;
    mAwaited = 0;
    mUnwanted = 0;
    for (SdfFilter::List* const list : {&mWaiting, &mOthers}) {
        for (auto next = list->begin(); next != list->end();) {
            const std::shared_ptr<SdfFilter> filter = *next++;
            if (filter->id != 0) forgetId(*filter);
            if (filter->state == SDF_FILTER_STATE_PENDING ||
                filter->state == SDF_FILTER_STATE_ACTIVE) {
                setState(*filter, SDF_FILTER_STATE_LOST, SDF_FILTER_DELETED);
            }
            freeIfDone(*filter);
        }
    }
}

void Filters::onAdded(const AddedEvent& event) {
    SdfFilter* const filter = find(event.id);
    if (filter == nullptr || filter->answered) return;
    filter->answered = true;
    --mAwaited;
    mAnswerDue.clear();
    if (mAwaited > 0) mAnswerDue.set(mLink.answerDue());
    follow(*filter, event.status);
    if (isAlive(event.status) && filter->state == SDF_FILTER_STATE_REMOVED) settle(*filter);
}

void Filters::onState(const FilterEvent& event) {
    SdfFilter* const filter = find(event.id);
    // What comes before the answer is not for this filter's life: that begins with the answer.
    if (filter != nullptr && filter->answered) follow(*filter, event.status);
}

void Filters::follow(SdfFilter& filter, SdfFilterStatus status) {
    const bool wanted = filter.state != SDF_FILTER_STATE_REMOVED;
    if (wanted) setState(filter, stateOf(status), status);
    if (isAlive(status)) return;
    if (!wanted) --mUnwanted;
    forgetId(filter);
    freeIfDone(filter);
    sendWaiting();
}

bool Filters::report() {
    SdfFilter* const first = mFirstDue;
    if (first == nullptr) return false;
    // Kept, as the callback may remove it.
    const std::shared_ptr<SdfFilter> filter = *first->place;
    mFirstDue = filter->nextDue;
    if (mFirstDue == nullptr) mLastDue = nullptr;
    filter->due = false;
    const SdfFilterState state = filter->state;
    SdfFilterStatus why = filter->why;
    if (state == SDF_FILTER_STATE_REQUESTED && why == SDF_FILTER_ERROR_INVALID_ARGS) {
        setState(*filter, SDF_FILTER_STATE_REJECTED, std::exchange(why, SDF_FILTER_PENDING));
    }
    if (state == SDF_FILTER_STATE_EXPIRED) {
        if (filter->reported == state) {
            renew(*filter);
            return true;
        }
        makeDue(*filter);  // to be renewed, unless the callback does not want that
    }
    filter->reported = state;
    freeIfDone(*filter);
    // Not before the state is reported: sending may find that the service is lost.
    if (filter->answered) settle(*filter);
    if (filter->cb != nullptr) {
        mLink.beforeCallback();
        filter->cb(filter.get(), state, why, filter->user);
    }
    return true;
}

void Filters::onTime(Time now) {
    if (mAnswerDue.take(now)) {
        mLink.lose(SDF_SESSION_NO_ANSWER);
        return;
    }
    if (mEarly.take(now)) {
        mEarlyPause *= 2;
        if (mEarlyPause > kLongestEarlyPause) {
            // For want of memory it will never know the filter.
            mLink.lose(SDF_SESSION_NO_RESOURCES);
            return;
        }
        for (auto next = mOthers.begin(); next != mOthers.end();) {
            const std::shared_ptr<SdfFilter> filter = *next++;
            if (filter->early) settle(*filter);
            if (!mLink.isOnline()) return;
        }
        if (!mEarly.when()) mEarlyPause = kFirstEarlyPause;
    }
    if (mRenewal.take(now)) {
        for (const auto& filter : mOthers) {
            if (filter->state == SDF_FILTER_STATE_EXPIRED) makeDue(*filter);
        }
    }
}

Due Filters::due() const {
    Due due = mAnswerDue;
    due.orAt(mEarly);
    due.orAt(mRenewal);
    return due;
}

SdfFilter* Filters::handleOf(unsigned int id) const {
    SdfFilter* const filter = find(id);
    const bool valid =
        filter != nullptr && filter->answered && filter->state != SDF_FILTER_STATE_REMOVED;
    return valid ? filter : nullptr;
}

SdfFilter* Filters::find(unsigned int id) const {
    const auto found = mById.find(id);
    return found == mById.end() ? nullptr : found->second;
}

void Filters::setState(SdfFilter& filter, SdfFilterState state, SdfFilterStatus why) {
    if (filter.state == state && filter.why == why && state != SDF_FILTER_STATE_REQUESTED) return;
    filter.state = state;
    filter.why = why;
    makeDue(filter);
}

void Filters::makeDue(SdfFilter& filter) {
    if (filter.due) return;
    filter.due = true;
    filter.nextDue = nullptr;
    (mLastDue == nullptr ? mFirstDue : mLastDue->nextDue) = &filter;
    mLastDue = &filter;
}

void Filters::want(SdfFilter& filter) {
    setState(filter, SDF_FILTER_STATE_REQUESTED, SDF_FILTER_PENDING);
    mWaiting.splice(mWaiting.end(), mOthers, filter.place);
    filter.waiting = true;
}

void Filters::unwant(SdfFilter& filter) {
    if (!filter.waiting) return;
    mOthers.splice(mOthers.end(), mWaiting, filter.place);
    filter.waiting = false;
}

void Filters::sendWaiting() {
    // While the service has a filter that was removed, an equal one would be a duplicate.
    while (mLink.isOnline() && mUnwanted == 0 && !mWaiting.empty()) {
        SdfFilter& filter = *mWaiting.front();
        unwant(filter);
        sendAdd(filter);
    }
}

void Filters::sendAdd(SdfFilter& filter) {
    filter.why = SDF_FILTER_PENDING;
    filter.changes = filter.dscp ? SdfFilter::kDscp : 0;
    const SdfFilterStatusCb cb = mLink.lane().added;
    const long long id = filter.extra ? sdfAddFilterV2(filter.info, *filter.extra, cb)
                                      : sdfAddFilter(filter.info, cb);
    if (id == SDF_V2_INVALID_ARG) {
        filter.why = SDF_FILTER_ERROR_INVALID_ARGS;
        // Otherwise when it is reported as requested.
        if (!filter.due) setState(filter, SDF_FILTER_STATE_REJECTED, filter.why);
        return;
    }
    if (!mLink.sent(id)) return;
    filter.id = static_cast<unsigned int>(id);
    filter.answered = false;
    filter.added = Clock::now();
    filter.node.key() = filter.id;
    mById.insert(std::move(filter.node));
    if (mAwaited++ == 0) mAnswerDue.set(mLink.answerDue());
}

void Filters::settle(SdfFilter& filter) {
    filter.early = false;
    while (filter.answered && mLink.isOnline()) {
        long long result = 0;
        if (!sendNext(filter, result)) return;
        if (result == SDF_V2_INVALID_ARG) {
            // The library knows the filter only when the callback that brought the answer has
            // returned. Or it knows it no longer, which is about to be reported.
            filter.early = true;
            if (!mEarly.when()) mEarly.set(Clock::now() + mEarlyPause);
            return;
        }
        if (!mLink.sent(result)) return;
        mChanged = true;
    }
}

bool Filters::sendNext(SdfFilter& filter, long long& result) {
    if (filter.state == SDF_FILTER_STATE_REMOVED) {
        result = sdfDeleteFilter(filter.id);
        if (result != SDF_V2_SUCCESS) return true;
        --mUnwanted;
        forgetId(filter);
        freeIfDone(filter);
        sendWaiting();
        return false;
    }
    const auto sendOne = [&](SdfFilter::Change change, auto send) {
        if ((filter.changes & change) == 0) return false;
        result = send();
        if (result == SDF_V2_SUCCESS) filter.changes &= static_cast<uint8_t>(~change);
        return true;
    };
    const SdfAddFilterInfo& info = filter.info;
    const unsigned int id = filter.id;
    return sendOne(SdfFilter::kLevels,
                   [&] { return sdfUpdateLatencyLvl(id, info.first_level, info.second_level); }) ||
           sendOne(SdfFilter::kOod, [&] { return sdfUpdateOod(id, info.ood); }) ||
           sendOne(SdfFilter::kPdcpTimer,
                   [&] { return sdfUpdatePdcpTimer(id, info.pdcp_timer); }) ||
           sendOne(SdfFilter::kDscp, [&] { return sdfUpdateTargetDscp(id, *filter.dscp); });
}

void Filters::forgetId(SdfFilter& filter) {
    filter.node = mById.extract(filter.id);
    filter.id = 0;
    filter.answered = false;
    filter.early = false;
}

void Filters::freeIfDone(SdfFilter& filter) {
    if (filter.reported == SDF_FILTER_STATE_REMOVED && filter.id == 0) mOthers.erase(filter.place);
}

void Filters::renew(SdfFilter& filter) {
    if (!filter.renewed) return;
    const Time earliest = filter.added + kLeastBetweenAdds;
    if (Clock::now() < earliest) {
        Due due;
        due.set(earliest);
        mRenewal.orAt(due);
        return;
    }
    want(filter);
    sendWaiting();
}
