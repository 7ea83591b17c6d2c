// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <map>
#include <memory>

#include "api/Sdf.h"
#include "proto/SdfProto.pb.h"
#include "transport/SdkClientBase.h"
#include "transport/SdkClientEvent.h"

// What the exported functions share.
namespace sdf {

// The result of body(), or `failed` when it throws: no exception leaves an exported function. What
// can throw is the lack of memory; whoever makes a change before that undoes it.
template <typename Body>
long long withoutExceptions(long long failed, const Body& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failed;
    }
}

// The frame of every request function: body(client, transport) when there are both, otherwise the
// code for an invalid operation.
template <typename Body>
long long request(const Body& body) noexcept {
    return withoutExceptions(SDF_V2_INTERNAL_ERROR, [&body]() -> long long {
        const std::shared_ptr<Sdf> client = Sdf::current();
        const std::shared_ptr<SdkClientBase> transport = client ? client->transport() : nullptr;
        if (!transport) return SDF_V2_INVALID_OPERATION;
        return body(*client, *transport);
    });
}

// A message of this kind without a body.
SdfProto::ServiceMsg makeMessage(SdfProto::ServiceEventId event);

// A message of this kind with its body, which `setAllocated`, one of ServiceData's set_allocated
// functions, puts in its place and fill(body) fills. The mutable accessors of a oneof are not for
// us: when memory runs out inside one, it leaves a message that cannot be destroyed.
template <typename Body, typename Fill>
SdfProto::ServiceMsg makeMessage(SdfProto::ServiceEventId event,
                                 void (SdfProto::ServiceData::*setAllocated)(Body*),
                                 const Fill& fill) {
    SdfProto::ServiceMsg message = makeMessage(event);
    auto body = std::make_unique<Body>();
    fill(*body);
    SdfProto::ServiceData& data = *message.mutable_data();
    (data.*setAllocated)(body.release());
    return message;
}

// The message, encoded, as an event for the transport's queue. `release`: the client's last one.
std::shared_ptr<SdkClientEvent> makeEvent(const SdfProto::ServiceMsg& message,
                                          bool release = false);

// Posts the message under a new id, by which its reply finds `cb`, and returns the id. When it
// throws, nothing has been posted or recorded.
// `callbacks`: &Sdf::mLatencyCbs or &Sdf::mFilterCbs.
template <typename Callback>
unsigned int postRecorded(Sdf& client, SdkClientBase& transport,
                          std::map<unsigned int, Callback> Sdf::*callbacks, Callback cb,
                          SdfProto::ServiceMsg message) {
    const unsigned int id = client.recordRequest(callbacks, cb);
    try {
        message.set_unique_id(id);
        transport.postEvent(makeEvent(message));
    } catch (...) {
        client.forgetRequest(callbacks, id);
        throw;
    }
    return id;
}

// A request that keeps a callback: puts `cb` into its slot, where it stays whatever becomes of the
// rest, and goes on with proceed(transport).
template <typename Callback, typename Proceed>
long long keepCallback(Callback Sdf::*slot, Callback cb, const Proceed& proceed) noexcept {
    return request([&](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.replaceSlot(slot, cb);
        proceed(transport);
        return SDF_V2_SUCCESS;
    });
}

// The same, going on with a message; the last arguments are makeMessage()'s.
template <typename Callback, typename... Message>
long long registration(Callback Sdf::*slot, Callback cb, const Message&... message) noexcept {
    return keepCallback(slot, cb, [&](SdkClientBase& transport) {
        transport.postEvent(makeEvent(makeMessage(message...)));
    });
}

}  // namespace sdf
