// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Messages.h"

#include <string>

namespace {

using DrawId = std::function<unsigned int()>;

// The entries of a list; mostly few.
unsigned int count(Input& input) {
    return input.rarely(16) ? input.byte() : input.pick(4);
}

std::string text(Input& input) {
    static const char* const kTexts[] = {"",        "1.2.3.4",       "::1",
                                         "1.2.3",   "fe80::1%lo",    "255.255.255.255",
                                         "0.0.0.0", "::ffff:1.2.3.4"};
    if (!input.rarely(4)) return kTexts[input.pick(8)];
    const std::vector<uint8_t> bytes = input.bytes(input.byte());
    return {bytes.begin(), bytes.end()};
}

SdfProto::FilterStatus filterStatus(Input& input) {
    return input.rarely(4) ? SdfProto::FILTER_INACTIVITY_TIMEOUT
                           : input.around(SdfProto::FILTER_PENDING, SdfProto::ERROR_NO_PERMISSION);
}

SdfProto::Level level(Input& input) {
    return input.around(SdfProto::L1, SdfProto::L6);
}

SdfProto::SdfOod ood(Input& input) {
    return input.around(SdfProto::SDF_OOD_UNSPECIFIED, SdfProto::SDF_OOD_DISABLED);
}

// FilterData, FilterInfo.
template <typename Filter>
void fillFilter(Input& input, const DrawId& id, Filter& filter) {
    filter.set_filter_id(id());
    filter.set_status(filterStatus(input));
    if (input.rarely(8)) filter.set_status_string(text(input));
}

void fillDescription(Input& input, SdfProto::AddFilter& filter) {
    filter.set_src_ip(text(input));
    filter.set_dest_ip(text(input));
    filter.set_src_port(input.number<int32_t>());
    filter.set_dest_port(input.number<int32_t>());
    filter.set_protocol(input.around(SdfProto::PROTOCOL_NONE, SdfProto::PROTOCOL_TCPUDP));
    filter.set_app_type(input.around(SdfProto::APP_TYPE_NONE, SdfProto::APP_TYPE_TRAFFIC_PRIO_BE));
}

void fillBody(Input& input, unsigned int event, const DrawId& id, SdfProto::ClientData& data) {
    switch (event) {
        case SdfProto::STATUS_IND:
            data.mutable_status_msg()->set_status(
                input.flag() ? SdfProto::SERVICE_UP
                             : input.around(SdfProto::INVALID, SdfProto::INVALID_SLOT));
            break;
        case SdfProto::EFFECTIVE_LEVELS_CB:
            data.mutable_effective_levels_cb()->set_first_level(level(input));
            data.mutable_effective_levels_cb()->set_second_level(level(input));
            break;
        case SdfProto::FILTER_STATUS_INDICATION: {
            auto& body = *data.mutable_filter_status_indication();
            for (unsigned int left = count(input); left > 0; --left) {
                fillFilter(input, id, *body.add_filters());
            }
            break;
        }
        case SdfProto::ADD_FILTER_CB: {
            auto& body = *data.mutable_add_filter_cb();
            if (!input.rarely(8)) fillFilter(input, id, *body.mutable_filter());
            break;
        }
        case SdfProto::GET_FILTER_CB: {
            auto& body = *data.mutable_get_filter_cb();
            for (unsigned int left = count(input); left > 0; --left) {
                auto& filter = *body.add_filters();
                fillFilter(input, id, filter);
                filter.set_first_level(level(input));
                filter.set_second_level(level(input));
                filter.set_pdcp_timer(input.number<uint32_t>());
                filter.set_ood(ood(input));
            }
            break;
        }
        case SdfProto::PRIORITY_QUEUE_REPORT_CB: {
            auto& body = *data.mutable_priority_queue_report_cb();
            for (unsigned int left = count(input); left > 0; --left) {
                auto& entry = *body.add_entries();
                entry.set_entry_key(input.number<uint32_t>());
                entry.set_first_value(input.number<uint64_t>());
                entry.set_second_value(input.number<uint64_t>());
            }
            break;
        }
        case SdfProto::AUTO_FILTER_INFO_IND: {
            auto& body = *data.mutable_auto_filter_info_ind();
            body.set_filter_id(id());
            body.set_status(input.flag() ? SdfProto::FILTER_ACTIVE : filterStatus(input));
            if (!input.rarely(8)) fillDescription(input, *body.mutable_filter());
            break;
        }
        default: break;
    }
}

SdfProto::ClientMsg makeFields(Input& input, const DrawId& id) {
    constexpr unsigned int kEvents = SdfProto::ClientEventId_ARRAYSIZE;
    SdfProto::ClientMsg message;
    const unsigned int event = input.pick(kEvents);
    message.set_event_id(static_cast<SdfProto::ClientEventId>(event));
    if (event == SdfProto::EFFECTIVE_LEVELS_CB) message.set_unique_id(id());
    fillBody(input, event, id, *message.mutable_data());
    // What no service should send: another event, more of an id than 32 bits, no body.
    if (input.rarely(16))
        message.set_event_id(input.around(SdfProto::STATUS_IND, SdfProto::AUTO_FILTER_INFO_IND));
    if (input.rarely(16))
        message.set_unique_id(message.unique_id() | input.number<uint64_t>() << 32);
    if (input.rarely(32)) message.clear_data();
    return message;
}

}  // namespace

std::vector<uint8_t> makeMessage(Input& input, const std::function<unsigned int()>& id) {
    const unsigned int kind = input.pick(8);
    if (kind == 7) return input.bytes(input.byte());
    std::vector<uint8_t> bytes = encode(makeFields(input, id));
    if (kind == 6) {
        for (unsigned int left = 1 + input.pick(3); left > 0 && !bytes.empty(); --left) {
            bytes[input.byte() % bytes.size()] = input.byte();
        }
        if (input.flag()) bytes.resize(input.byte() % (bytes.size() + 1));
    }
    return bytes;
}

std::vector<uint8_t> encode(const SdfProto::ClientMsg& message) {
    const std::string bytes = message.SerializeAsString();
    return {bytes.begin(), bytes.end()};
}
