// SPDX-License-Identifier: Apache-2.0
#include <lum_sdf_session.h>

#include <exception>

#include "session/Connector.h"
#include "session/Session.h"
#include "session/Values.h"

// The C interface: checks arguments, keeps exceptions inside, and wakes the session's loop.

namespace {

// What `body` does to a session that is open, if the arguments are valid.
template <typename Body>
int change(SdfSession* session, bool valid, const Body& body) {
    if (session == nullptr || !valid) return SDF_SESSION_INVALID_ARG;
    if (session->isClosed()) return SDF_SESSION_CLOSED;
    try {
        body(*session);
    } catch (const std::exception&) {
        return SDF_SESSION_NO_RESOURCES;
    }
    session->armTimer();
    return 0;
}

SdfSession* sessionOf(SdfFilter* filter) {
    return filter == nullptr ? nullptr : static_cast<SdfSession*>(&filter->owner.link());
}

int addFilter(SdfSession* session, const SdfAddFilterInfo* info, std::optional<unsigned char> extra,
              SdfFilterStateCb cb, void* user, SdfFilter** filter) {
    if (filter != nullptr) *filter = nullptr;
    return change(session, info != nullptr && isValid(*info), [&](SdfSession& open) {
        SdfFilter* const added = open.filters().add(*info, extra, cb, user);
        if (filter != nullptr) *filter = added;
    });
}

template <typename Body>
int changeFilter(SdfFilter* filter, bool valid, SdfFilter::Change kind, const Body& body) {
    return change(sessionOf(filter), valid, [&](SdfSession& open) {
        body(*filter);
        open.filters().change(*filter, kind);
    });
}

// When the answer to a question is due.
Time deadlineOf(const SdfSession& session, unsigned int milliseconds) {
    return milliseconds == 0 ? session.answerDue() : Clock::now() + Milliseconds(milliseconds);
}

template <typename Callback, typename Of>
int ask(SdfSession* session, unsigned int milliseconds, Callback cb, void* user, Of questionsOf) {
    const bool valid = cb != nullptr && (milliseconds == 0 || isDuration(milliseconds));
    return change(session, valid, [&](SdfSession& open) {
        questionsOf(open).add(deadlineOf(open, milliseconds), cb, user);
    });
}

}  // namespace

int sdfSessionOpen(SdfSessionStateCb cb, void* user, SdfSession** session) {
    if (session == nullptr) return SDF_SESSION_INVALID_ARG;
    *session = nullptr;
    try {
        return SdfSession::open(cb, user, session);
    } catch (const std::exception&) {
        return SDF_SESSION_NO_RESOURCES;
    }
}

int sdfSessionClose(SdfSession* session, unsigned int wait_ms) {
    if (session == nullptr || session->isClosed()) return 0;
    session->close();
    return Connector::instance().close(wait_ms) ? 0 : SDF_SESSION_CLOSING;
}

int sdfSessionSetAnswerDeadline(SdfSession* session, unsigned int milliseconds) {
    return change(session, isDuration(milliseconds), [milliseconds](SdfSession& open) {
        open.setAnswerDeadline(Milliseconds(milliseconds));
    });
}

int sdfSessionSetPauses(SdfSession* session, unsigned int first_ms, unsigned int longest_ms) {
    const bool valid = isDuration(first_ms) && isDuration(longest_ms) && first_ms <= longest_ms;
    return change(session, valid, [=](SdfSession& open) {
        open.setPauses(Milliseconds(first_ms), Milliseconds(longest_ms));
    });
}

int sdfSessionFd(const SdfSession* session) {
    return session == nullptr ? -1 : session->fd();
}

int sdfSessionDispatch(SdfSession* session) {
    return session == nullptr ? SDF_SESSION_INVALID_ARG : session->dispatch();
}

int sdfSessionRun(SdfSession* session) {
    return session == nullptr ? SDF_SESSION_INVALID_ARG : session->run();
}

void sdfSessionStop(SdfSession* session) {
    if (session != nullptr) session->stop();
}

SdfSessionState sdfSessionGetState(const SdfSession* session) {
    return session == nullptr ? SDF_SESSION_DOWN : session->state();
}

int sdfFilterAdd(SdfSession* session, const SdfAddFilterInfo* info, SdfFilterStateCb cb, void* user,
                 SdfFilter** filter) {
    return addFilter(session, info, std::nullopt, cb, user, filter);
}

int sdfFilterAddV2(SdfSession* session, const SdfAddFilterInfo* info, unsigned char extra,
                   SdfFilterStateCb cb, void* user, SdfFilter** filter) {
    return addFilter(session, info, extra, cb, user, filter);
}

int sdfFilterSetRenewed(SdfFilter* filter, bool renewed) {
    return change(sessionOf(filter), true,
                  [=](SdfSession& open) { open.filters().setRenewed(*filter, renewed); });
}

int sdfFilterSetLevels(SdfFilter* filter, SdfLatencyLvl first, SdfLatencyLvl second) {
    return changeFilter(filter, isValid(first) && isValid(second), SdfFilter::kLevels,
                        [=](SdfFilter& one) {
                            one.info.first_level = first;
                            one.info.second_level = second;
                        });
}

int sdfFilterSetOod(SdfFilter* filter, SdfOod ood) {
    return changeFilter(filter, isValid(ood), SdfFilter::kOod,
                        [=](SdfFilter& one) { one.info.ood = ood; });
}

int sdfFilterSetPdcpTimer(SdfFilter* filter, unsigned int pdcp_timer) {
    return changeFilter(filter, true, SdfFilter::kPdcpTimer,
                        [=](SdfFilter& one) { one.info.pdcp_timer = pdcp_timer; });
}

int sdfFilterSetDscp(SdfFilter* filter, unsigned int target_dscp) {
    return changeFilter(filter, true, SdfFilter::kDscp,
                        [=](SdfFilter& one) { one.dscp = target_dscp; });
}

SdfFilterState sdfFilterGetState(const SdfFilter* filter) {
    return filter == nullptr ? SDF_FILTER_STATE_REMOVED : filter->reported;
}

unsigned int sdfFilterGetId(const SdfFilter* filter) {
    return filter == nullptr || !filter->answered ? 0 : filter->id;
}

void sdfFilterRemove(SdfFilter* filter) {
    (void)change(sessionOf(filter), true,
                 [filter](SdfSession& open) { open.filters().remove(*filter); });
}

int sdfSessionSetLevels(SdfSession* session, SdfSlotID slot, SdfLatencyLvl first,
                        SdfLatencyLvl second, bool flag, SdfSessionLevelsCb cb, void* user) {
    return change(
        session, isValid(slot) && isValid(first) && isValid(second),
        [=](SdfSession& open) { open.settings().setLevels(slot, first, second, flag, cb, user); });
}

int sdfSessionClearLevels(SdfSession* session, SdfSlotID slot) {
    return change(session, isValid(slot),
                  [=](SdfSession& open) { open.settings().clearLevels(slot); });
}

int sdfSessionSetGaming(SdfSession* session, bool enable) {
    return change(session, true, [=](SdfSession& open) { open.settings().setGaming(enable); });
}

int sdfSessionSetDataPriority(SdfSession* session, SdfSlotID slot, bool enable) {
    return change(session, isValid(slot),
                  [=](SdfSession& open) { open.settings().setDataPriority(slot, enable); });
}

int sdfSessionSetDdsPriority(SdfSession* session, bool enable) {
    return change(session, true, [=](SdfSession& open) { open.settings().setDdsPriority(enable); });
}

int sdfSessionSetDdsOod(SdfSession* session, SdfOod ood) {
    return change(session, isValid(ood), [=](SdfSession& open) { open.settings().setDdsOod(ood); });
}

int sdfSessionSetDdsPdcpTimer(SdfSession* session, unsigned int pdcp_timer) {
    return change(session, true,
                  [=](SdfSession& open) { open.settings().setDdsPdcpTimer(pdcp_timer); });
}

int sdfSessionClearDdsPdcpTimer(SdfSession* session) {
    return change(session, true,
                  [](SdfSession& open) { open.settings().setDdsPdcpTimer(std::nullopt); });
}

int sdfSessionSetQueueReports(SdfSession* session, unsigned int report_value, SdfSessionReportCb cb,
                              void* user) {
    return change(session, true, [=](SdfSession& open) {
        open.settings().setQueueReports(report_value, cb, user);
    });
}

int sdfSessionSetAutoFilters(SdfSession* session, SdfSessionAutoFilterCb cb, void* user) {
    return change(session, true,
                  [=](SdfSession& open) { open.settings().setAutoFilters(cb, user); });
}

int sdfSessionAskFilters(SdfSession* session, unsigned int deadline_ms, SdfSessionFiltersCb cb,
                         void* user) {
    return ask(
        session, deadline_ms, cb, user, [](SdfSession & open) -> auto& { return open.lists(); });
}

int sdfSessionAskQueueReport(SdfSession* session, unsigned int deadline_ms,
                             SdfSessionQueueReportCb cb, void* user) {
    return ask(
        session, deadline_ms, cb, user, [](SdfSession & open) -> auto& { return open.reports(); });
}

const char* sdfSessionText(int code) {
    switch (code) {
        case SDF_SESSION_NO_SERVICE: return "no service";
        case SDF_SESSION_NO_ANSWER: return "no answer in time";
        case SDF_SESSION_LOST: return "service lost";
        case SDF_SESSION_EXISTS: return "there is a session already";
        case SDF_SESSION_CLIENT_EXISTS: return "there is a client already";
        case SDF_SESSION_CLOSING: return "the last session is still being closed";
        case SDF_SESSION_CLOSED: return "session closed";
        default: return sdfStatusV2Text(code);
    }
}

const char* sdfSessionStateText(SdfSessionState state) {
    switch (state) {
        case SDF_SESSION_CONNECTING: return "connecting";
        case SDF_SESSION_UP: return "up";
        case SDF_SESSION_DOWN: return "down";
        default: return "unknown";
    }
}

const char* sdfFilterStateText(SdfFilterState state) {
    switch (state) {
        case SDF_FILTER_STATE_REQUESTED: return "requested";
        case SDF_FILTER_STATE_PENDING: return "pending";
        case SDF_FILTER_STATE_ACTIVE: return "active";
        case SDF_FILTER_STATE_REJECTED: return "rejected";
        case SDF_FILTER_STATE_EXPIRED: return "expired";
        case SDF_FILTER_STATE_LOST: return "lost";
        case SDF_FILTER_STATE_REMOVED: return "removed";
        default: return "unknown";
    }
}
