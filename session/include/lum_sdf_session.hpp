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
/// or move the object that it belongs to. It is released when it is replaced, when its object is
/// destroyed, or when the session is closed, whichever comes first.
///
/// Functions that fail throw Error, or std::bad_alloc, and have changed nothing. A function of an
/// object that has no session (any more) fails with #SDF_SESSION_CLOSED.

#include <lum_sdf_session.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace lum::sdf {

/// A function failed.
class Error : public std::exception {
  public:
    /// @param code  of #SdfSessionError or #SdfStatusV2
    explicit Error(int code) noexcept : mCode(code) {}
    /// The code.
    int code() const noexcept { return mCode; }
    /// The text of the code, sdfSessionText().
    const char* what() const noexcept override { return sdfSessionText(mCode); }

  private:
    int mCode;
};

/// Anything that can be called with these arguments, also what cannot be copied; or nothing, made
/// of `{}`, of null or of an empty std::function. Copies share what they call.
template <typename... Arguments>
class Callback {
  public:
    /// Nothing.
    Callback() = default;
    /// Nothing.
    Callback(std::nullptr_t /*nothing*/) {}  // NOLINT(google-explicit-constructor)
    /// Takes the callable over. Throws std::bad_alloc.
    template <typename Callable,
              typename = std::enable_if_t<!std::is_same_v<Callable, Callback> &&
                                          std::is_invocable_v<Callable&, Arguments...>>>
    Callback(Callable callable) {  // NOLINT(google-explicit-constructor)
        if (isNothing(callable)) return;
        mCallable = std::make_shared<Callable>(std::move(callable));
        mCall = [](void* target, Arguments... arguments) {
            std::invoke(*static_cast<Callable*>(target), std::forward<Arguments>(arguments)...);
        };
    }

    /// Whether there is something to call.
    explicit operator bool() const noexcept { return mCallable != nullptr; }
    /// Calls it; does nothing when there is nothing. It may release or replace this object.
    void operator()(Arguments... arguments) const {
        if (!mCallable) return;
        const std::shared_ptr<void> kept = mCallable;
        mCall(kept.get(), std::forward<Arguments>(arguments)...);
    }

  private:
    template <typename Other>
    static bool isNothing(const Other& /*callable*/) {
        return false;
    }
    template <typename Pointed>
    static bool isNothing(Pointed* const& pointer) {
        return pointer == nullptr;
    }
    template <typename Signature>
    static bool isNothing(const std::function<Signature>& function) {
        return !function;
    }

    std::shared_ptr<void> mCallable;
    void (*mCall)(void* target, Arguments... arguments) = nullptr;
};

/// One filter of the service's list; as in #SdfSessionFiltersCb.
struct ListedFilter {
    unsigned int id;         ///< the service's number for it
    SdfFilterStatus status;  ///< its state
    SdfLatencyLvl first;     ///< first level
    SdfLatencyLvl second;    ///< second level
    SdfOod ood;              ///< out-of-order delivery
    unsigned int pdcpTimer;  ///< PDCP timer
};

/// One entry of a priority-queue report; as in #SdfPriorityQueueReportCb.
struct QueueReportEntry {
    unsigned int key;  ///< which queue
    uint64_t first;    ///< first value
    uint64_t second;   ///< second value
};

/// @cond
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

// What the C callbacks of one session get, and what they may still get. Does not move.
struct Core {
    Core() = default;
    ~Core() { (void)sdfSessionClose(session, 0); }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    // Makes a part and has `call` make use of it as a callback's argument; kept if that succeeds,
    // until drop().
    template <typename Part, typename Call>
    Part& keep(Part made, const Call& call) {
        const auto part = std::make_shared<Part>(std::move(made));
        const auto place = parts.emplace(part.get(), part).first;
        const int result = call(*part);
        if (result != 0) parts.erase(place);
        check(result);
        return *part;
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
    Core& core;
    Callback<SdfFilterState, SdfFilterStatus> cb;
    SdfFilter* filter = nullptr;

    static void call(SdfFilter* /*filter*/, SdfFilterState state, SdfFilterStatus why, void* user) {
        const auto& part = *static_cast<FilterPart*>(user);
        if (state == SDF_FILTER_STATE_REMOVED) {
            (void)part.core.drop(user);
        } else {
            part.cb(state, why);
        }
    }
};

template <typename Entry>
struct Question {
    Core& core;
    Callback<int, std::vector<Entry>> cb;
    std::vector<Entry> entries{};
    bool complete = true;

    static void answer(int result, const Entry& entry, void* user) {
        auto& question = *static_cast<Question*>(user);
        if (result > 0) {
            question.add(entry);
        } else {
            const std::shared_ptr<void> kept = question.core.drop(user);
            question.cb(result != 0 || question.complete ? result : SDF_SESSION_NO_RESOURCES,
                        std::move(question.entries));
        }
    }

    // What is thrown here would end the answer, and its callback would never be called.
    void add(const Entry& entry) {
        try {
            entries.push_back(entry);
        } catch (const std::bad_alloc&) {
            complete = false;
        }
    }
};

}  // namespace detail
/// @endcond

/// A filter that is wanted as long as this object lives, and as its session does.
class Filter {
  public:
    /// Reports each state but REMOVED, as #SdfFilterStateCb. Not called any more once the object is
    /// destroyed.
    using Callback = sdf::Callback<SdfFilterState, SdfFilterStatus>;

    /// No filter.
    Filter() = default;
    /// remove().
    ~Filter() { remove(); }
    /// Takes the filter over; `other` has none then.
    Filter(Filter&& other) noexcept = default;
    /// The same, after remove() of the own one.
    Filter& operator=(Filter&& other) noexcept {
        Filter(std::move(other)).swap(*this);
        return *this;
    }
    /// Exchanges the filters.
    void swap(Filter& other) noexcept {
        mCore.swap(other.mCore);
        std::swap(mPart, other.mPart);
    }

    /// Whether there is a filter, and its session is open.
    explicit operator bool() const noexcept { return !mCore.expired(); }

    /// sdfFilterSetRenewed().
    void setRenewed(bool renewed) { detail::check(sdfFilterSetRenewed(get(), renewed)); }
    /// sdfFilterSetLevels().
    void setLevels(SdfLatencyLvl first, SdfLatencyLvl second) {
        detail::check(sdfFilterSetLevels(get(), first, second));
    }
    /// sdfFilterSetOod().
    void setOod(SdfOod ood) { detail::check(sdfFilterSetOod(get(), ood)); }
    /// sdfFilterSetPdcpTimer().
    void setPdcpTimer(unsigned int timer) { detail::check(sdfFilterSetPdcpTimer(get(), timer)); }
    /// sdfFilterSetDscp().
    void setDscp(unsigned int dscp) { detail::check(sdfFilterSetDscp(get(), dscp)); }

    /// sdfFilterGetState().
    SdfFilterState state() const { return sdfFilterGetState(get()); }
    /// sdfFilterGetId().
    unsigned int id() const { return sdfFilterGetId(get()); }

    /// Removes it: sdfFilterRemove(). Nothing is reported of it from now on.
    void remove() noexcept {
        if (!*this) return;
        // Released last: the session may be what it owns, or this object.
        const Callback released = std::exchange(mPart->cb, {});
        sdfFilterRemove(mPart->filter);
        mCore.reset();
    }

  private:
    friend class Session;
    Filter(const std::shared_ptr<detail::Core>& core, detail::FilterPart& part) noexcept
        : mCore(core), mPart(&part) {}

    SdfFilter* get() const {
        if (!*this) throw Error(SDF_SESSION_CLOSED);
        return mPart->filter;
    }

    std::weak_ptr<detail::Core> mCore;
    detail::FilterPart* mPart = nullptr;  // owned by mCore
};

/// A session, open as long as this object lives. Movable; callbacks and filters stay with the
/// session.
class Session {
  public:
    /// As #SdfSessionStateCb.
    using StateCallback = Callback<SdfSessionState, int>;
    /// As #SdfSessionLevelsCb.
    using LevelsCallback = Callback<int, SdfLatencyLvl, SdfLatencyLvl>;
    /// As #SdfSessionReportCb.
    using ReportCallback = Callback<const QueueReportEntry&>;
    /// As #SdfSessionAutoFilterCb.
    using AutoFilterCallback = Callback<unsigned int, const SdfAddFilterInfo&>;
    /// The whole answer at once: 0 or an error, and the filters that came.
    using FiltersCallback = Callback<int, std::vector<ListedFilter>>;
    /// The whole answer at once: 0 or an error, and the entries that came.
    using QueueReportCallback = Callback<int, std::vector<QueueReportEntry>>;

    /// sdfSessionOpen() without a callback.
    explicit Session(std::nullptr_t /*nothing*/ = nullptr) : Session(StateCallback()) {}
    /// sdfSessionOpen().
    explicit Session(StateCallback cb) : mCore(std::make_shared<detail::Core>()) {
        mCore->state = std::move(cb);
        detail::check(sdfSessionOpen(onState, mCore.get(), &mCore->session));
    }
    /// close() without waiting.
    ~Session() { (void)close(); }
    /// Takes the session over; `other` has none then.
    Session(Session&& other) noexcept = default;
    /// The same, after close() of the own one.
    Session& operator=(Session&& other) noexcept {
        Session(std::move(other)).swap(*this);
        return *this;
    }
    /// Exchanges the sessions.
    void swap(Session& other) noexcept { mCore.swap(other.mCore); }

    /// Whether there is a session.
    explicit operator bool() const noexcept { return mCore != nullptr; }

    /// sdfSessionClose().
    /// @param wait  how long to wait at most; 49 days at most, not at all when negative
    /// @return false when the client is not yet destroyed after that time
    bool close(std::chrono::milliseconds wait = {}) noexcept {
        constexpr std::chrono::milliseconds::rep kMost = std::numeric_limits<unsigned int>::max();
        const auto milliseconds =
            std::clamp<std::chrono::milliseconds::rep>(wait.count(), 0, kMost);
        const std::shared_ptr<detail::Core> core = std::move(mCore);
        return !core || sdfSessionClose(std::exchange(core->session, nullptr),
                                        static_cast<unsigned int>(milliseconds)) == 0;
    }

    /// sdfSessionSetAnswerDeadline().
    void setAnswerDeadline(std::chrono::milliseconds deadline) {
        detail::check(sdfSessionSetAnswerDeadline(get(), detail::count(deadline)));
    }
    /// sdfSessionSetPauses().
    void setPauses(std::chrono::milliseconds first, std::chrono::milliseconds longest) {
        detail::check(sdfSessionSetPauses(get(), detail::count(first), detail::count(longest)));
    }

    /// sdfSessionFd().
    int fd() const { return sdfSessionFd(get()); }
    /// sdfSessionDispatch().
    /// @return false when a callback has closed the session, or there is none
    bool dispatch() { return mCore && sdfSessionDispatch(mCore->session) == 0; }
    /// sdfSessionRun().
    /// @return false when a callback has closed the session, or there is none
    bool run() { return mCore && sdfSessionRun(mCore->session) == 0; }
    /// sdfSessionStop(). From any thread, and from a signal handler, while the object exists and
    /// neither it is moved nor the session closed.
    void stop() noexcept {
        if (mCore) sdfSessionStop(mCore->session);
    }
    /// sdfSessionGetState().
    SdfSessionState state() const { return sdfSessionGetState(get()); }

    /// sdfFilterAdd(), with `extra` sdfFilterAddV2().
    [[nodiscard]] Filter add(const SdfAddFilterInfo& info, Filter::Callback callback = {},
                             std::optional<unsigned char> extra = {}) {
        SdfSession* const session = get();
        const auto call = [&](detail::FilterPart& part) {
            const auto cb = detail::FilterPart::call;
            return extra ? sdfFilterAddV2(session, &info, *extra, cb, &part, &part.filter)
                         : sdfFilterAdd(session, &info, cb, &part, &part.filter);
        };
        return Filter(mCore, mCore->keep(detail::FilterPart{*mCore, std::move(callback)}, call));
    }

    /// sdfSessionSetLevels().
    void setLevels(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                   LevelsCallback cb = {}) {
        detail::check(sdfSessionSetLevels(get(), slot, first, second, flag, onLevels, mCore.get()));
        std::swap(levelsOf(*mCore, slot), cb);
    }
    /// sdfSessionClearLevels().
    void clearLevels(SdfSlotID slot) {
        detail::check(sdfSessionClearLevels(get(), slot));
        const LevelsCallback released = std::exchange(levelsOf(*mCore, slot), {});
    }
    /// sdfSessionSetGaming().
    void setGaming(bool enable) { detail::check(sdfSessionSetGaming(get(), enable)); }
    /// sdfSessionSetDataPriority().
    void setDataPriority(SdfSlotID slot, bool enable) {
        detail::check(sdfSessionSetDataPriority(get(), slot, enable));
    }
    /// sdfSessionSetDdsPriority().
    void setDdsPriority(bool enable) { detail::check(sdfSessionSetDdsPriority(get(), enable)); }
    /// sdfSessionSetDdsOod().
    void setDdsOod(SdfOod ood) { detail::check(sdfSessionSetDdsOod(get(), ood)); }
    /// sdfSessionSetDdsPdcpTimer().
    void setDdsPdcpTimer(unsigned int timer) {
        detail::check(sdfSessionSetDdsPdcpTimer(get(), timer));
    }
    /// sdfSessionClearDdsPdcpTimer().
    void clearDdsPdcpTimer() { detail::check(sdfSessionClearDdsPdcpTimer(get())); }
    /// sdfSessionSetQueueReports(). Without a callback: no reports any more.
    void setQueueReports(unsigned int value, ReportCallback cb) {
        const auto call = cb ? onReport : nullptr;
        detail::check(sdfSessionSetQueueReports(get(), value, call, mCore.get()));
        std::swap(mCore->report, cb);
    }
    /// sdfSessionSetAutoFilters(). Without a callback: no longer.
    void setAutoFilters(AutoFilterCallback cb) {
        const auto call = cb ? onAutoFilter : nullptr;
        detail::check(sdfSessionSetAutoFilters(get(), call, mCore.get()));
        std::swap(mCore->autoFilter, cb);
    }

    /// sdfSessionAskFilters(). A deadline of 0 is that of setAnswerDeadline().
    void askFilters(FiltersCallback cb, std::chrono::milliseconds deadline = {}) {
        ask<ListedFilter>(std::move(cb), deadline, sdfSessionAskFilters, onFilters);
    }
    /// sdfSessionAskQueueReport(). A deadline of 0 is that of setAnswerDeadline().
    void askQueueReport(QueueReportCallback cb, std::chrono::milliseconds deadline = {}) {
        ask<QueueReportEntry>(std::move(cb), deadline, sdfSessionAskQueueReport, onQueueReport);
    }

  private:
    SdfSession* get() const {
        if (!mCore) throw Error(SDF_SESSION_CLOSED);
        return mCore->session;
    }

    static LevelsCallback& levelsOf(detail::Core& core, SdfSlotID slot) {
        const int index = slot - SDF_SLOT_ID_UNSPECIFIED;
        return core.levels[static_cast<size_t>(index)];
    }

    template <typename Entry, typename Ask, typename Answer>
    void ask(Callback<int, std::vector<Entry>> cb, std::chrono::milliseconds deadline, Ask request,
             Answer answer) {
        SdfSession* const session = get();
        const unsigned int milliseconds = detail::count(deadline);
        if (!cb || (deadline.count() != 0 && milliseconds == 0)) {
            throw Error(SDF_SESSION_INVALID_ARG);
        }
        mCore->keep(detail::Question<Entry>{*mCore, std::move(cb)},
                    [&](auto& kept) { return request(session, milliseconds, answer, &kept); });
    }

    static void onState(SdfSession* /*session*/, SdfSessionState state, int reason, void* user) {
        static_cast<detail::Core*>(user)->state(state, reason);
    }
    static void onLevels(SdfSession* /*session*/, SdfSlotID slot, int error, SdfLatencyLvl first,
                         SdfLatencyLvl second, void* user) {
        levelsOf(*static_cast<detail::Core*>(user), slot)(error, first, second);
    }
    static void onReport(SdfSession* /*session*/, unsigned int key, uint64_t first, uint64_t second,
                         void* user) {
        static_cast<detail::Core*>(user)->report({key, first, second});
    }
    static void onAutoFilter(SdfSession* /*session*/, unsigned int id, const SdfAddFilterInfo* info,
                             void* user) {
        static_cast<detail::Core*>(user)->autoFilter(id, *info);
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
