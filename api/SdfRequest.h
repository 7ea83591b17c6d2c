// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <map>
#include <memory>

#include "api/Sdf.h"
#include "api/StackArena.h"
#include "proto/SdfProto.pb.h"
#include "transport/SdkClientBase.h"
#include "transport/SdkClientEvent.h"

// What the exported functions share.
namespace sdf {

// Returns body(), or `failed` when it throws: no exception leaves an exported function. What can
// throw is the lack of memory.
template <typename Body>
long long withoutExceptions(long long failed, const Body& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failed;
    }
}

// The frame of a request: returns body(client, transport), or the code for an invalid operation
// when there is no client or it has no transport.
template <typename Body>
long long request(const Body& body) noexcept {
    return withoutExceptions(SDF_V2_INTERNAL_ERROR, [&body]() -> long long {
        const auto [client, transport] = Sdf::currentWithTransport();
        if (!transport) return SDF_V2_INVALID_OPERATION;
        return body(*client, *transport);
    });
}

// A message to the service.
class Message {
  public:
    explicit Message(SdfProto::ServiceEventId event);
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    void setId(unsigned int id) { mMessage.set_unique_id(id); }
    // For the body. Messages without one do not call this.
    SdfProto::ServiceData& data() { return *mMessage.mutable_data(); }

    // The encoded message, as an event for the transport's queue. release: the client's last one.
    std::shared_ptr<SdkClientEvent> event(bool release = false) const;

  private:
    // Enough for every message but one with unusually long texts.
    StackArena<1024> mArena;
    SdfProto::ServiceMsg& mMessage;
};

// A request on record: a new id, under which its reply finds the callback. Goes off the record
// again unless keep() is called.
template <typename Callback>
class Recorded {
  public:
    // callbacks: &Sdf::mLatencyCbs or &Sdf::mFilterCbs.
    Recorded(Sdf& client, std::map<unsigned int, Callback> Sdf::*callbacks, Callback cb)
        : mClient(client), mCallbacks(callbacks), mId(client.recordRequest(callbacks, cb)) {}
    ~Recorded() {
        if (!mKept) mClient.forgetRequest(mCallbacks, mId);
    }
    Recorded(const Recorded&) = delete;
    Recorded& operator=(const Recorded&) = delete;

    unsigned int id() const { return mId; }
    // Returns the id.
    unsigned int keep() {
        mKept = true;
        return mId;
    }

  private:
    Sdf& mClient;
    std::map<unsigned int, Callback> Sdf::*const mCallbacks;
    const unsigned int mId;
    bool mKept = false;
};

}  // namespace sdf
