// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <optional>

// What may be reported, as the header says. First: whether a state may follow the one reported
// before, if there was one.

inline bool mayFollow(std::optional<SdfSessionState> before, SdfSessionState state) {
    if (!before) return state == SDF_SESSION_CONNECTING;
    switch (*before) {
        case SDF_SESSION_CONNECTING: return state != SDF_SESSION_CONNECTING;
        case SDF_SESSION_UP: return state == SDF_SESSION_DOWN;
        default: return state != SDF_SESSION_DOWN;
    }
}

inline bool mayFollow(std::optional<SdfFilterState> before, SdfFilterState state) {
    if (state == SDF_FILTER_STATE_REMOVED) return true;
    if (!before) return state == SDF_FILTER_STATE_REQUESTED;
    switch (*before) {
        case SDF_FILTER_STATE_REQUESTED:
            return state == SDF_FILTER_STATE_PENDING || state == SDF_FILTER_STATE_ACTIVE ||
                   state == SDF_FILTER_STATE_REJECTED || state == SDF_FILTER_STATE_EXPIRED;
        case SDF_FILTER_STATE_PENDING:
        case SDF_FILTER_STATE_ACTIVE:
            return state != *before && state != SDF_FILTER_STATE_REQUESTED;
        default: return state == SDF_FILTER_STATE_REQUESTED;
    }
}

// Whether a filter's state may be reported with this status.
inline bool goesWith(SdfFilterState state, SdfFilterStatus why) {
    switch (state) {
        case SDF_FILTER_STATE_REQUESTED:
        case SDF_FILTER_STATE_PENDING: return why == SDF_FILTER_PENDING;
        case SDF_FILTER_STATE_ACTIVE: return why == SDF_FILTER_ACTIVE;
        case SDF_FILTER_STATE_EXPIRED: return why == SDF_FILTER_INACTIVITY_TIMEOUT;
        case SDF_FILTER_STATE_REJECTED:
            return why > SDF_FILTER_ACTIVE && why != SDF_FILTER_INACTIVITY_TIMEOUT;
        default: return why == SDF_FILTER_DELETED;
    }
}
