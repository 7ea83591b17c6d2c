// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <optional>

// Whether a state may be reported after the one reported before, if there was one, as the diagrams
// of the header say.

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
