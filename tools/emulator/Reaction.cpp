// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/Reaction.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

using SdfProto::ClientData;
using SdfProto::ClientMsg;
using Messages = std::vector<Outgoing>;

constexpr int kUnknownEvent = 99;
// Floods multiply: enough for a client, and not too much for this process.
constexpr size_t kMostMessages = 100000;
constexpr int kEvents = SdfProto::ClientEventId_MAX + 1;

void copy(Messages& messages, int64_t times) {
    if (messages.size() >= kMostMessages) return;
    Messages copies;
    for (const Outgoing& message : messages) {
        const size_t left = kMostMessages - copies.size();
        copies.insert(copies.end(), std::min(static_cast<size_t>(times), left), message);
    }
    messages = std::move(copies);
}

uint32_t wrong(uint64_t id, const Action& action) {
    return static_cast<uint32_t>(action.number ? static_cast<uint64_t>(*action.number) : id + 1);
}

template <typename Filters>
void replaceIds(Filters* filters, const Action& action) {
    for (auto& filter : *filters) filter.set_filter_id(wrong(filter.filter_id(), action));
}

void replaceIds(ClientMsg& message, const Action& action) {
    message.set_unique_id(wrong(message.unique_id(), action));
    if (!message.has_data()) return;
    ClientData& data = *message.mutable_data();
    switch (data.msg_type_case()) {
        case ClientData::kAddFilterCb: {
            SdfProto::FilterData* const filter = data.mutable_add_filter_cb()->mutable_filter();
            filter->set_filter_id(wrong(filter->filter_id(), action));
            break;
        }
        case ClientData::kFilterStatusIndication:
            replaceIds(data.mutable_filter_status_indication()->mutable_filters(), action);
            break;
        case ClientData::kGetFilterCb:
            replaceIds(data.mutable_get_filter_cb()->mutable_filters(), action);
            break;
        case ClientData::kAutoFilterInfoInd: {
            SdfProto::AutoFilterInfoInd* const info = data.mutable_auto_filter_info_ind();
            info->set_filter_id(wrong(info->filter_id(), action));
            break;
        }
        default: break;
    }
}

void mismatch(ClientMsg& message, const Action& action) {
    const int64_t event = action.number ? *action.number : (message.event_id() + 1) % kEvents;
    message.set_event_id(static_cast<SdfProto::ClientEventId>(event));
}

// Leaves the body in its place, with nothing in it: a field's tag and length 0.
void emptyBody(ClientMsg& message) {
    const auto number = static_cast<unsigned int>(message.data().msg_type_case());
    if (number == ClientData::MSG_TYPE_NOT_SET) return;
    static_assert(ClientData::kAutoFilterInfoInd < 16, "a tag is one byte");
    const unsigned char empty[] = {static_cast<unsigned char>(number << 3U | 2U), 0};
    (void)message.mutable_data()->ParseFromArray(empty, sizeof empty);
}

// It carries the worst of bodies, should anybody look at it.
ClientMsg unknownEvent(const Action& action, uint64_t id) {
    ClientMsg message;
    const int64_t event = action.number.value_or(kUnknownEvent);
    message.set_event_id(static_cast<SdfProto::ClientEventId>(event));
    message.set_unique_id(id);
    message.mutable_data()->mutable_status_msg()->set_status(SdfProto::SERVICE_DOWN);
    return message;
}

ClientMsg statusIndication(const Action& action) {
    ClientMsg message;
    message.set_event_id(SdfProto::STATUS_IND);
    message.mutable_data()->mutable_status_msg()->set_status(
        static_cast<SdfProto::Status>(action.number.value()));
    return message;
}

void change(Outgoing& outgoing, const Action& action) {
    if (action.kind == Action::Kind::kLate) {
        outgoing.delay += std::chrono::milliseconds(action.number.value());
        return;
    }
    if (action.kind == Action::Kind::kTruncate) {
        outgoing.truncate(action.number);
        return;
    }
    ClientMsg* const message = outgoing.message();
    if (message == nullptr) return;
    if (action.kind == Action::Kind::kWrongId) replaceIds(*message, action);
    if (action.kind == Action::Kind::kMismatch) mismatch(*message, action);
    if (action.kind == Action::Kind::kEmptyBody) emptyBody(*message);
    if (action.kind == Action::Kind::kNoBody) message->clear_data();
}

void apply(const Action& action, uint64_t id, Messages& messages) {
    switch (action.kind) {
        case Action::Kind::kRefuse:
        case Action::Kind::kDieBefore:
        case Action::Kind::kDieAfter: break;  // no matter of messages
        case Action::Kind::kNever: messages.clear(); break;
        case Action::Kind::kCopies: copy(messages, action.number.value()); break;
        case Action::Kind::kGarbage: messages.emplace_back(action.bytes); break;
        case Action::Kind::kUnknownEvent: messages.emplace_back(unknownEvent(action, id)); break;
        case Action::Kind::kStatus: messages.emplace_back(statusIndication(action)); break;
        default:
            for (Outgoing& message : messages) change(message, action);
    }
}

}  // namespace

std::vector<uint8_t> Outgoing::bytes() const {
    if (!mMessage) return mBytes;
    std::vector<uint8_t> bytes(mMessage->ByteSizeLong());
    mMessage->SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

void Outgoing::truncate(std::optional<int64_t> length) {
    mBytes = bytes();
    mMessage.reset();
    const size_t lessOne = mBytes.empty() ? 0 : mBytes.size() - 1;
    const size_t wanted = length ? static_cast<size_t>(*length) : lessOne;
    mBytes.resize(std::min(wanted, mBytes.size()));
}

std::vector<Outgoing> Reaction::messages(const Answers& answers, uint64_t id) const {
    Messages messages;
    for (const ClientMsg& answer : answers) messages.emplace_back(answer);
    for (const Rule* const rule : mRules) {
        for (const Action& action : rule->actions) apply(action, id, messages);
    }
    return messages;
}

bool Reaction::has(Action::Kind kind) const {
    return std::any_of(mRules.begin(), mRules.end(), [&](const Rule* rule) {
        return std::any_of(rule->actions.begin(), rule->actions.end(),
                           [&](const Action& action) { return action.kind == kind; });
    });
}
