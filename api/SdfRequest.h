// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "api/Sdf.h"
#include "api/lum_sdf_sdk.h"
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

// Gives the message its body, by one of ServiceData's set_allocated functions. The mutable
// accessors of a oneof are not for us: when memory runs out inside one, it leaves a message that
// cannot be destroyed.
template <typename Body>
void setBody(SdfProto::ServiceMsg& message, void (SdfProto::ServiceData::*setAllocated)(Body*),
             std::unique_ptr<Body> body) {
    SdfProto::ServiceData& data = *message.mutable_data();
    (data.*setAllocated)(body.release());
}

// The message, encoded, as an event for the transport's queue. `release`: the client's last one.
std::shared_ptr<SdkClientEvent> makeEvent(const SdfProto::ServiceMsg& message,
                                          bool release = false);

}  // namespace sdf
