// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "proto/SdfProto.pb.h"
#include "tools/emulator/FeatureState.h"

// What is sent at once because of a request, in this order.
using Answers = std::vector<SdfProto::ClientMsg>;

// How one kind of request is carried out.
struct RequestHandler {
    SdfProto::ServiceEventId event;
    SdfProto::ServiceData::MsgTypeCase
        body;  // what a request of this kind carries; MSG_TYPE_NOT_SET: none
    // Changes the feature as asked, on the feature's thread.
    Answers (*handle)(FeatureState& feature, const SdfProto::ServiceMsg& request);
};

// Returns the handler of a kind of requests, or null if the service does not know that kind. Any
// thread.
const RequestHandler* findHandler(SdfProto::ServiceEventId event);
