// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/emulator/RequestHandlers.h"
#include "tools/emulator/Rule.h"

// One message on its way to a client, perhaps no longer what it should be.
class Outgoing {
  public:
    explicit Outgoing(SdfProto::ClientMsg message) : mMessage(std::move(message)) {}
    explicit Outgoing(std::vector<uint8_t> bytes) : mBytes(std::move(bytes)) {}

    // The message; null if it has been made mere bytes.
    SdfProto::ClientMsg* message() { return mMessage ? &*mMessage : nullptr; }
    // What goes over the wire.
    std::vector<uint8_t> bytes() const;
    // Makes it the first `length` bytes of itself; all but the last one if none is given.
    void truncate(std::optional<int64_t> length);

    std::chrono::milliseconds delay{0};

  private:
    std::optional<SdfProto::ClientMsg> mMessage;
    std::vector<uint8_t> mBytes;  // unless there is a message
};

// What the service does about one request, or the registration of a client.
class Reaction {
  public:
    // rules: those that apply, in order. They must outlive this object.
    explicit Reaction(std::vector<const Rule*> rules) : mRules(std::move(rules)) {}

    // What is to be known before anything is done.
    bool refuses() const { return has(Action::Kind::kRefuse); }
    bool diesBefore() const { return has(Action::Kind::kDieBefore); }
    bool diesAfter() const { return has(Action::Kind::kDieAfter); }

    // Makes what is sent of what should be, by all actions in order. id: of the request.
    std::vector<Outgoing> messages(const Answers& answers, uint64_t id) const;

  private:
    bool has(Action::Kind kind) const;

    const std::vector<const Rule*> mRules;
};
