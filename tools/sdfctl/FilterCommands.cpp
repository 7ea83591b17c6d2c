// SPDX-License-Identifier: Apache-2.0
#include <optional>

#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/Requests.h"

namespace {

// A filter's description, with the smallest valid values where the user gives none.
struct AddValues {
    SdfAddFilterInfo info{};
    std::optional<unsigned char> extra;
    std::optional<sa_family_t> srcFamily;
    std::optional<sa_family_t> destFamily;
    CallbackChoice<SdfFilterStatusCb> callback{callbacks::onFilterAdded};

    AddValues() {
        info.first_level = SDF_LATENCY_LVL_1;
        info.second_level = SDF_LATENCY_LVL_1;
        info.ood = SDF_OOD_UNSPECIFIED_LVL;
    }
};

void declareFlow(Arguments& arguments, AddValues& values) {
    SdfAddFilterInfo& info = values.info;
    arguments.address("--src", info.src_addr, "Source address and port (default: none)");
    arguments.address("--dest", info.dest_addr, "Destination address and port (default: none)");
    arguments.number("--src-range", info.src_port_range, "Further source ports");
    arguments.number("--dest-range", info.dest_port_range, "Further destination ports");
    arguments.family("--src-family", values.srcFamily,
                     "Family of the source address, whatever the address");
    arguments.family("--dest-family", values.destFamily,
                     "Family of the destination address, whatever the address");
    arguments.word("--protocol", info.protocol, protocolWords(), "Protocol (default: none)");
    arguments.word("--app-type", info.app_type, appTypeWords(),
                   "Application type (default: unspecified)");
}

void declareTreatment(Arguments& arguments, AddValues& values) {
    SdfAddFilterInfo& info = values.info;
    arguments.word("--first", info.first_level, levelWords(), "First level (default: level-1)");
    arguments.word("--second", info.second_level, levelWords(), "Second level (default: level-1)");
    arguments.word("--ood", info.ood, oodWords(), "Out-of-order delivery (default: unspecified)");
    arguments.number("--pdcp-timer", info.pdcp_timer, "PDCP timer, in the service's unit");
    arguments.number("--arg6", info.filter_arg6, "filter_arg6, passed through");
    arguments.number("--arg11", info.filter_arg11, "filter_arg11, passed through");
    arguments.number("--arg13", info.filter_arg13, "filter_arg13, passed through");
    arguments.number("--arg16", info.filter_arg16, "filter_arg16, passed through");
    arguments.number("--arg17", info.filter_arg17, "filter_arg17, passed through");
    arguments.number("--arg19", info.filter_arg19, "filter_arg19, passed through");
    arguments.number("--arg20", info.filter_arg20, "filter_arg20, passed through");
    arguments.number("--extra", values.extra, "Call sdfAddFilterV2() with this value");
    values.callback.declare(arguments);
}

long long issueAdd(Session& session, const AddValues& values) {
    const SdfFilterStatusCb cb = values.callback.chosen();
    Fields fields = describe(values.info);
    if (!values.extra) {
        return session.call("sdfAddFilter", fields, [&] { return sdfAddFilter(values.info, cb); });
    }
    fields.push_back(plain("extra", *values.extra));
    return session.call("sdfAddFilterV2", fields,
                        [&] { return sdfAddFilterV2(values.info, *values.extra, cb); });
}

void setFamily(sockaddr_storage& address, std::optional<sa_family_t> family) {
    if (family) address.ss_family = *family;
}

Action addFilter(Arguments& arguments) {
    const auto values = valuesOf<AddValues>();
    declareFlow(arguments, *values);
    declareTreatment(arguments, *values);
    return [values](Session& session) {
        session.ready();
        setFamily(values->info.src_addr, values->srcFamily);
        setFamily(values->info.dest_addr, values->destFamily);
        const long long id = issueAdd(session, *values);
        if (id <= 0) return;
        session.filters().asked(static_cast<unsigned int>(id));
        session.expectAnswer("filter-added",
                             [id](const Event& event) { return event.number("filter") == id; });
    };
}

Action getFilters(Arguments& arguments) {
    const auto callback =
        std::make_shared<CallbackChoice<SdfGetFiltersCb>>(callbacks::onFilterListed);
    callback->declare(arguments);
    return [callback](Session& session) {
        session.ready();
        const long long result =
            session.call("sdfGetFilters", {}, [&] { return sdfGetFilters(callback->chosen()); });
        if (result != SDF_V2_SUCCESS) return;
        // An empty list brings no event at all.
        const size_t known = session.filters().confirmed().size();
        session.expectAnswers("filter-listed", known, known > 0);
    };
}

Action deleteFilter(Arguments& arguments) {
    const auto filter = valuesOf<FilterName>();
    arguments.filter("FILTER", *filter, "Its number, or \"last\"");
    return [filter](Session& session) {
        const long long result =
            requestAbout(session, *filter, "sdfDeleteFilter", {}, sdfDeleteFilter);
        if (result == SDF_V2_SUCCESS) session.filters().deleted(idOf(session, *filter));
    };
}

Action deleteAllFilters(Arguments&) {
    return [](Session& session) {
        session.ready();
        const long long result = session.call("sdfDeleteAllFilter", {}, [&] {
            return session.retryWhileNoneKnown(sdfDeleteAllFilter);
        });
        if (result == SDF_V2_SUCCESS) session.filters().clear();
    };
}

}  // namespace

std::vector<Command> filterCommands() {
    return {
        {"add-filter", "sdfAddFilter(), sdfAddFilterV2(): add a filter", addFilter},
        {"get-filters", "sdfGetFilters(): list this client's filters", getFilters},
        {"delete-filter", "sdfDeleteFilter(): delete a filter", deleteFilter},
        {"delete-all-filters", "sdfDeleteAllFilter(): delete all confirmed filters",
         deleteAllFilters},
    };
}
