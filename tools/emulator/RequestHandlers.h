// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "proto/SdfProto.pb.h"

// What comes of one request.
struct Outcome {
    std::vector<SdfProto::ClientMsg> answers;  // to be sent in this order
    bool leaves = false;                       // the client wants no more of the service
};

// How one kind of request is answered.
struct RequestHandler {
    SdfProto::ServiceEventId event;
    SdfProto::ServiceData::MsgTypeCase body;  // what a request of this kind carries
    void (*handle)(const SdfProto::ServiceMsg& request, Outcome* outcome);
};

// Returns the handler of a kind of requests, or null if the service does not know that kind. Any
// thread.
const RequestHandler* findHandler(SdfProto::ServiceEventId event);
