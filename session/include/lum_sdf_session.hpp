// SPDX-License-Identifier: Apache-2.0
#pragma once

/// @file
/// lum_sdf_session.h for C++17: objects that own what they stand for, any callable as callback, and
/// errors that are thrown. Header only.
///
///     lum::sdf::Session session([](SdfSessionState state, int reason) { ... });
///     const lum::sdf::Filter filter = session.add(flow);
///     session.run();
///
/// What lum_sdf_session.h says of threads and callbacks holds here. A callback may throw: the
/// exception leaves Session::dispatch() or Session::run(). It may also replace itself, or destroy
/// or move the object that it belongs to. Functions that fail throw Error, or std::bad_alloc, and
/// have changed nothing. A function of an object that has no session (any more) fails with
/// SDF_SESSION_CLOSED.

#include <lum_sdf_session.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace lum::sdf {

/// A function failed. what() is the text of the code.
class Error : public std::runtime_error {
  public:
    explicit Error(int code) : std::runtime_error(sdfSessionText(code)), mCode(code) {}
    /// A code of #SdfSessionError or #SdfStatusV2.
    int code() const noexcept { return mCode; }

  private:
    int mCode;
};

/// One filter of the service's list; as in #SdfSessionFiltersCb.
struct ListedFilter {
    unsigned int id;
    SdfFilterStatus status;
    SdfLatencyLvl first;
    SdfLatencyLvl second;
    SdfOod ood;
    unsigned int pdcpTimer;
};

/// One entry of a priority-queue report; as in #SdfPriorityQueueReportCb.
struct QueueReportEntry {
    unsigned int key;
    uint64_t first;
    uint64_t second;
};

namespace detail {

inline void check(int result) {
    if (result != 0) throw Error(result);
}

// Milliseconds as the C interface takes them; 0, which it refuses, when there are too many or too
// few.
inline unsigned int count(std::chrono::milliseconds duration) {
    const bool fits = duration.count() > 0 && duration.count() <= 86400000;
    return fits ? static_cast<unsigned int>(duration.count()) : 0;
}

// A callback that may replace itself while it runs: calls are made on a copy.
template <typename... Arguments>
class Callback {
  public:
    using Function = std::function<void(Arguments...)>;

    Callback() = default;
    explicit Callback(Function function)
        : mFunction(function ? std::make_shared<const Function>(std::move(function)) : nullptr) {}
    explicit operator bool() const { return mFunction != nullptr; }
    void operator()(Arguments... arguments) const {
        if (mFunction) (*mFunction)(arguments...);
    }

  private:
    std::shared_ptr<const Function> mFunction;
};

// What the C callbacks of one session get, and what they may still get. Does not move.
struct Core {
    Core() = default;
    ~Core() { (void)sdfSessionClose(session, 0); }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    // Has `call` make use of a part as a callback's argument; kept if it succeeds, until drop().
    template <typename Part, typename Call>
    void keep(const std::shared_ptr<Part>& part, const Call& call) {
        const auto place = parts.emplace(part.get(), part).first;
        const int result = call();
        if (result == 0) return;
        parts.erase(place);
        throw Error(result);
    }
    std::shared_ptr<void> drop(const void* part) { return parts.extract(part).mapped(); }

    SdfSession* session = nullptr;
    Callback<SdfSessionState, int> state;
    std::array<Callback<int, SdfLatencyLvl, SdfLatencyLvl>, 3> levels;
    Callback<const QueueReportEntry&> report;
    Callback<unsigned int, const SdfAddFilterInfo&> autoFilter;
    std::map<const void*, std::shared_ptr<void>> parts;
};

struct FilterPart {
    std::weak_ptr<Core> core;
    Callback<SdfFilterState, SdfFilterStatus> cb;
    SdfFilter* filter = nullptr;

    static void call(SdfFilter* /*filter*/, SdfFilterState state, SdfFilterStatus why, void* user) {
        auto& part = *static_cast<FilterPart*>(user);
        if (state == SDF_FILTER_STATE_REMOVED) {
            (void)part.core.lock()->drop(user);
        } else {
            const auto cb = part.cb;
            cb(state, why);
        }
    }
};

template <typename Entry>
struct Question {
    std::weak_ptr<Core> core;
    std::function<void(int, std::vector<Entry>)> cb;
    std::vector<Entry> entries;

    static void answer(int result, const Entry& entry, void* user) {
        auto& question = *static_cast<Question*>(user);
        if (result > 0) {
            question.entries.push_back(entry);
        } else {
            const std::shared_ptr<void> kept = question.core.lock()->drop(user);
            question.cb(result, std::move(question.entries));
        }
    }
};

}  // namespace detail

/// A filter that is wanted as long as this object lives, and as its session does.
class Filter {
  public:
    /// Reports each state but REMOVED. Not called any more once the object is destroyed.
    using Callback = std::function<void(SdfFilterState state, SdfFilterStatus why)>;

    /// No filter.
    Filter() = default;
    ~Filter() { remove(); }
    Filter(Filter&& other) noexcept = default;
    Filter& operator=(Filter&& other) noexcept {
        Filter(std::move(other)).swap(*this);
        return *this;
    }
    void swap(Filter& other) noexcept { mPart.swap(other.mPart); }

    /// Whether there is a filter, and its session is open.
    explicit operator bool() const { return mPart && !mPart->core.expired(); }

    void setRenewed(bool renewed) { detail::check(sdfFilterSetRenewed(get(), renewed)); }
    void setLevels(SdfLatencyLvl first, SdfLatencyLvl second) {
        detail::check(sdfFilterSetLevels(get(), first, second));
    }
    void setOod(SdfOod ood) { detail::check(sdfFilterSetOod(get(), ood)); }
    void setPdcpTimer(unsigned int timer) { detail::check(sdfFilterSetPdcpTimer(get(), timer)); }
    void setDscp(unsigned int dscp) { detail::check(sdfFilterSetDscp(get(), dscp)); }

    SdfFilterState state() const { return sdfFilterGetState(get()); }
    unsigned int id() const { return sdfFilterGetId(get()); }

    /// Does not want it any more.
    void remove() noexcept {
        const std::shared_ptr<detail::FilterPart> part = std::move(mPart);
        if (!part || part->core.expired()) return;
        part->cb = {};
        sdfFilterRemove(part->filter);
    }

  private:
    friend class Session;
    explicit Filter(std::shared_ptr<detail::FilterPart> part) : mPart(std::move(part)) {}

    SdfFilter* get() const {
        if (!*this) throw Error(SDF_SESSION_CLOSED);
        return mPart->filter;
    }

    std::shared_ptr<detail::FilterPart> mPart;
};

/// A session, open as long as this object lives.
class Session {
  public:
    using StateCallback = std::function<void(SdfSessionState state, int reason)>;
    using LevelsCallback =
        std::function<void(int error, SdfLatencyLvl first, SdfLatencyLvl second)>;
    using ReportCallback = std::function<void(const QueueReportEntry& entry)>;
    using AutoFilterCallback =
        std::function<void(unsigned int filter_id, const SdfAddFilterInfo& info)>;
    /// result: 0 or an error. The entries are those that came.
    using FiltersCallback = std::function<void(int result, std::vector<ListedFilter> filters)>;
    using QueueReportCallback =
        std::function<void(int result, std::vector<QueueReportEntry> entries)>;

    /// sdfSessionOpen().
    explicit Session(StateCallback cb = {}) : mCore(std::make_shared<detail::Core>()) {
        mCore->state = detail::Callback<SdfSessionState, int>(std::move(cb));
        detail::check(sdfSessionOpen(onState, mCore.get(), &mCore->session));
    }
    /// sdfSessionClose() without waiting.
    ~Session() = default;
    Session(Session&&) noexcept = default;
    Session& operator=(Session&&) noexcept = default;

    /// sdfSessionClose(). Returns false when the client is not yet destroyed after that time.
    bool close(std::chrono::milliseconds wait = {}) {
        if (!mCore) return true;
        const int result =
            sdfSessionClose(std::exchange(mCore->session, nullptr), detail::count(wait));
        mCore.reset();
        return result == 0;
    }

    void setAnswerDeadline(std::chrono::milliseconds deadline) {
        detail::check(sdfSessionSetAnswerDeadline(get(), detail::count(deadline)));
    }
    void setPauses(std::chrono::milliseconds first, std::chrono::milliseconds longest) {
        detail::check(sdfSessionSetPauses(get(), detail::count(first), detail::count(longest)));
    }

    int fd() const { return sdfSessionFd(get()); }
    /// Returns false when a callback has closed the session, or it was closed.
    bool dispatch() { return mCore && sdfSessionDispatch(mCore->session) == 0; }
    /// The same.
    bool run() { return mCore && sdfSessionRun(mCore->session) == 0; }
    /// From any thread while the object exists and is not moved.
    void stop() noexcept {
        if (mCore) sdfSessionStop(mCore->session);
    }
    SdfSessionState state() const { return sdfSessionGetState(get()); }

    /// sdfFilterAdd(), with `extra` sdfFilterAddV2().
    [[nodiscard]] Filter add(const SdfAddFilterInfo& info, Filter::Callback cb = {},
                             std::optional<unsigned char> extra = {}) {
        SdfSession* const session = get();
        const auto part = std::make_shared<detail::FilterPart>();
        part->core = mCore;
        part->cb = detail::Callback<SdfFilterState, SdfFilterStatus>(std::move(cb));
        mCore->keep(part, [&] {
            const auto call = detail::FilterPart::call;
            return extra ? sdfFilterAddV2(session, &info, *extra, call, part.get(), &part->filter)
                         : sdfFilterAdd(session, &info, call, part.get(), &part->filter);
        });
        return Filter(part);
    }

    void setLevels(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                   LevelsCallback cb = {}) {
        detail::Callback<int, SdfLatencyLvl, SdfLatencyLvl> callback(std::move(cb));
        detail::check(sdfSessionSetLevels(get(), slot, first, second, flag, onLevels, mCore.get()));
        mCore->levels.at(static_cast<size_t>(slot + 1)) = std::move(callback);
    }
    void clearLevels(SdfSlotID slot) { detail::check(sdfSessionClearLevels(get(), slot)); }
    void setGaming(bool enable) { detail::check(sdfSessionSetGaming(get(), enable)); }
    void setDataPriority(SdfSlotID slot, bool enable) {
        detail::check(sdfSessionSetDataPriority(get(), slot, enable));
    }
    void setDdsPriority(bool enable) { detail::check(sdfSessionSetDdsPriority(get(), enable)); }
    void setDdsOod(SdfOod ood) { detail::check(sdfSessionSetDdsOod(get(), ood)); }
    void setDdsPdcpTimer(unsigned int timer) {
        detail::check(sdfSessionSetDdsPdcpTimer(get(), timer));
    }
    void clearDdsPdcpTimer() { detail::check(sdfSessionClearDdsPdcpTimer(get())); }
    /// An empty callback: no reports any more.
    void setQueueReports(unsigned int value, ReportCallback cb) {
        detail::Callback<const QueueReportEntry&> callback(std::move(cb));
        detail::check(
            sdfSessionSetQueueReports(get(), value, callback ? onReport : nullptr, mCore.get()));
        mCore->report = std::move(callback);
    }
    /// An empty callback: no longer.
    void setAutoFilters(AutoFilterCallback cb) {
        detail::Callback<unsigned int, const SdfAddFilterInfo&> callback(std::move(cb));
        detail::check(
            sdfSessionSetAutoFilters(get(), callback ? onAutoFilter : nullptr, mCore.get()));
        mCore->autoFilter = std::move(callback);
    }

    /// A deadline of 0 is that of setAnswerDeadline().
    void askFilters(FiltersCallback cb, std::chrono::milliseconds deadline = {}) {
        ask<ListedFilter>(std::move(cb), deadline, sdfSessionAskFilters, onFilters);
    }
    /// A deadline of 0 is that of setAnswerDeadline().
    void askQueueReport(QueueReportCallback cb, std::chrono::milliseconds deadline = {}) {
        ask<QueueReportEntry>(std::move(cb), deadline, sdfSessionAskQueueReport, onQueueReport);
    }

  private:
    SdfSession* get() const {
        if (!mCore) throw Error(SDF_SESSION_CLOSED);
        return mCore->session;
    }

    template <typename Entry, typename Ask, typename Answer>
    void ask(std::function<void(int, std::vector<Entry>)> cb, std::chrono::milliseconds deadline,
             Ask request, Answer answer) {
        SdfSession* const session = get();
        if (!cb || (deadline.count() != 0 && detail::count(deadline) == 0)) {
            throw Error(SDF_SESSION_INVALID_ARG);
        }
        const auto question = std::make_shared<detail::Question<Entry>>();
        question->core = mCore;
        question->cb = std::move(cb);
        mCore->keep(question, [&] {
            return request(session, detail::count(deadline), answer, question.get());
        });
    }

    static void onState(SdfSession* /*session*/, SdfSessionState state, int reason, void* user) {
        const auto cb = static_cast<detail::Core*>(user)->state;
        cb(state, reason);
    }
    static void onLevels(SdfSession* /*session*/, SdfSlotID slot, int error, SdfLatencyLvl first,
                         SdfLatencyLvl second, void* user) {
        const auto cb = static_cast<detail::Core*>(user)->levels.at(static_cast<size_t>(slot + 1));
        cb(error, first, second);
    }
    static void onReport(SdfSession* /*session*/, unsigned int key, uint64_t first, uint64_t second,
                         void* user) {
        const auto cb = static_cast<detail::Core*>(user)->report;
        cb({key, first, second});
    }
    static void onAutoFilter(SdfSession* /*session*/, unsigned int id, const SdfAddFilterInfo* info,
                             void* user) {
        const auto cb = static_cast<detail::Core*>(user)->autoFilter;
        cb(id, *info);
    }
    static void onFilters(SdfSession* /*session*/, int result, SdfFilter* /*filter*/,
                          unsigned int id, SdfFilterStatus status, SdfLatencyLvl first,
                          SdfLatencyLvl second, SdfOod ood, unsigned int pdcpTimer, void* user) {
        detail::Question<ListedFilter>::answer(result, {id, status, first, second, ood, pdcpTimer},
                                               user);
    }
    static void onQueueReport(SdfSession* /*session*/, int result, unsigned int key, uint64_t first,
                              uint64_t second, void* user) {
        detail::Question<QueueReportEntry>::answer(result, {key, first, second}, user);
    }

    std::shared_ptr<detail::Core> mCore;
};

}  // namespace lum::sdf
