// SPDX-License-Identifier: Apache-2.0
// The commands that issue requests: one row each in the table at the end.

#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>

#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/Commands.h"

namespace {

// The parameters of the library's functions as arguments of a command. Value: what the command line
// fills; declare() and show() make the argument, and print it; pass() makes what the library gets.

// Passed as it is.
template <typename Plain>
struct Same {
    using Value = Plain;
    using Passed = Plain;
    static Passed pass(Session& /*session*/, Value value) { return value; }
};

template <typename Enumeration>
struct WordParameter : Same<Enumeration> {
    const char* name;
    const char* key;
    const Words& words;
    const char* about;

    void declare(Arguments& arguments, Enumeration& value) const {
        arguments.word(name, value, words, about);
    }
    void show(Fields& fields, Enumeration value) const {
        fields.push_back(worded(key, value, words));
    }
};

struct Number : Same<unsigned int> {
    const char* name;
    const char* key;
    const char* about;

    void declare(Arguments& arguments, Value& value) const { arguments.number(name, value, about); }
    void show(Fields& fields, Passed value) const { fields.push_back(plain(key, value)); }
};

struct Switch : Same<bool> {
    static void declare(Arguments& arguments, Value& value) {
        arguments.onOff("SWITCH", value, "on or off");
    }
    static void show(Fields& fields, Passed value) { fields.push_back(switched("enable", value)); }
};

struct Flag : Same<bool> {
    static void declare(Arguments& arguments, Value& value) {
        arguments.flag("--flag", value, "Set the flag that is passed to the service");
    }
    static void show(Fields& fields, Passed value) { fields.push_back(switched("flag", value)); }
};

// The callback, or null where the user wants to see what the library says to that.
template <typename Function>
struct Callback {
    using Value = bool;
    using Passed = Function;
    Function function;

    static void declare(Arguments& arguments, Value& null) {
        arguments.flag("--null-callback", null, "Give the library a null callback");
    }
    Passed pass(Session& /*session*/, Value null) const { return null ? nullptr : function; }
    static void show(Fields& /*fields*/, Passed /*function*/) {}
};
template <typename Function>
Callback(Function) -> Callback<Function>;

struct FilterId {
    unsigned int number;
    // NOLINTNEXTLINE(google-explicit-constructor): as the library takes it
    operator unsigned int() const { return number; }
};

struct Filter {
    using Value = FilterName;
    using Passed = FilterId;

    static void declare(Arguments& arguments, Value& value) {
        arguments.filter("FILTER", value, "Its number, or \"last\"");
    }
    static Passed pass(Session& session, const Value& value) {
        if (!value.isLast) return {value.id};
        if (!session.lastFilter()) throw UsageError("FILTER: no filter has been added yet");
        return {*session.lastFilter()};
    }
    static void show(Fields& fields, Passed id) { fields.push_back(plain("filter", id.number)); }
};

template <typename... Rest>
long long issue(Session& session, const std::function<long long()>& body, FilterId filter,
                const Rest&... /*rest*/) {
    return session.retryWhileEarly(filter, SDF_V2_INVALID_ARG, body);
}
template <typename... Passed>
long long issue(Session& /*session*/, const std::function<long long()>& body,
                const Passed&... /*passed*/) {
    return body();
}

// Declares the parameters. The action calls body() with them, and then after(session, its result,
// what was passed...).
template <typename Body, typename After, typename... Parameters>
Action requestThen(Arguments& arguments, const char* function, Body body, After after,
                   Parameters... parameters) {
    using Values = std::tuple<typename Parameters::Value...>;
    const auto values = std::make_shared<Values>();
    const auto declare = [&](auto&... value) { (parameters.declare(arguments, value), ...); };
    std::apply(declare, *values);
    return [=](Session& session) {
        const auto run = [&](const auto&... passed) {
            session.ready();
            Fields fields;
            (parameters.show(fields, passed), ...);
            const long long result = session.call(function, fields, [&] {
                return issue(
                    session, [&] { return body(passed...); }, passed...);
            });
            after(session, result, passed...);
        };
        const auto pass = [&](const auto&... value) { run(parameters.pass(session, value)...); };
        std::apply(pass, *values);
    };
}

template <typename Body, typename... Parameters>
Action request(Arguments& arguments, const char* function, Body body, Parameters... parameters) {
    const auto nothing = [](Session&, long long, const auto&...) {};
    return requestThen(arguments, function, body, nothing, parameters...);
}

WordParameter<SdfSlotID> slot() {
    return {{}, "SLOT", "slot", slotWords(), "SIM slot"};
}
WordParameter<SdfLatencyLvl> first() {
    return {{}, "FIRST", "first", levelWords(), "First level"};
}
WordParameter<SdfLatencyLvl> second() {
    return {{}, "SECOND", "second", levelWords(), "Second level"};
}
WordParameter<SdfOod> ood() {
    return {{}, "OOD", "ood", oodWords(), "Out-of-order delivery"};
}
constexpr Number kTimer{{}, "TIMER", "pdcp_timer", "PDCP timer, in the service's unit"};

// Waits for the answer that names the request.
void awaitAnswer(Session& session, const char* event, const char* key, long long id) {
    if (id <= 0) return;
    session.expectAnswer(event, [=](const Event& answer) { return answer.number(key) == id; });
}

// A filter's description, with the smallest valid values where the user gives none.
struct AddValues {
    SdfAddFilterInfo info{};
    std::optional<unsigned char> extra;
    std::optional<sa_family_t> srcFamily;
    std::optional<sa_family_t> destFamily;
    bool nullCallback = false;

    AddValues() {
        info.first_level = SDF_LATENCY_LVL_1;
        info.second_level = SDF_LATENCY_LVL_1;
        info.ood = SDF_OOD_UNSPECIFIED_LVL;
    }
};

void declareFilter(Arguments& arguments, AddValues& values) {
    SdfAddFilterInfo& info = values.info;
    arguments.address("--src", info.src_addr, "Source address and port (default: none)");
    arguments.address("--dest", info.dest_addr, "Destination address and port (default: none)");
    forEachMember(info,
                  [&](const char* option, auto& member, const Words* words, const char* about) {
                      if constexpr (std::is_enum_v<std::decay_t<decltype(member)>>) {
                          arguments.word(option, member, *words, about);
                      } else {
                          arguments.number(option, member, about);
                      }
                  });
    arguments.family("--src-family", values.srcFamily,
                     "Family of the source address, whatever the address");
    arguments.family("--dest-family", values.destFamily,
                     "Family of the destination address, whatever the address");
    arguments.number("--extra", values.extra, "Call sdfAddFilterV2() with this value");
    Callback<SdfFilterStatusCb>::declare(arguments, values.nullCallback);
}

Action addFilter(Arguments& arguments) {
    const auto values = std::make_shared<AddValues>();
    declareFilter(arguments, *values);
    return [values](Session& session) {
        session.ready();
        SdfAddFilterInfo& info = values->info;
        if (values->srcFamily) info.src_addr.ss_family = *values->srcFamily;
        if (values->destFamily) info.dest_addr.ss_family = *values->destFamily;
        const SdfFilterStatusCb cb = values->nullCallback ? nullptr : callbacks::onFilterAdded;
        Fields fields = describe(info);
        if (values->extra) fields.push_back(plain("extra", *values->extra));
        const long long id =
            session.call(values->extra ? "sdfAddFilterV2" : "sdfAddFilter", fields, [&] {
                return values->extra ? sdfAddFilterV2(info, *values->extra, cb)
                                     : sdfAddFilter(info, cb);
            });
        if (id > 0) session.filterAsked(static_cast<unsigned int>(id));
        awaitAnswer(session, "filter-added", "filter", id);
    };
}

Action deleteAllFilters(Arguments& /*arguments*/) {
    return [](Session& session) {
        session.ready();
        session.call("sdfDeleteAllFilter", {}, [&] {
            return session.retryWhileEarly(0, SDF_V2_INVALID_OPERATION, sdfDeleteAllFilter);
        });
    };
}

}  // namespace

std::vector<Command> requestCommands() {
    using A = Arguments;
    return {
        {"set-latency", "sdfSetLatencyLvl(): ask for latency levels of a SIM slot",
         [](A& a) {
             return requestThen(
                 a, "sdfSetLatencyLvl", sdfSetLatencyLvl,
                 [](Session& session, long long id, const auto&...) {
                     awaitAnswer(session, "levels", "id", id);
                 },
                 slot(), first(), second(), Flag{}, Callback{callbacks::onLevels});
         }},
        {"update-latency", "sdfUpdateLatencyLvl(): change a filter's levels",
         [](A& a) {
             return request(a, "sdfUpdateLatencyLvl", sdfUpdateLatencyLvl, Filter{}, first(),
                            second());
         }},
        {"update-ood", "sdfUpdateOod(): change a filter's out-of-order delivery",
         [](A& a) { return request(a, "sdfUpdateOod", sdfUpdateOod, Filter{}, ood()); }},
        {"update-pdcp-timer", "sdfUpdatePdcpTimer(): change a filter's timer",
         [](A& a) {
             return request(a, "sdfUpdatePdcpTimer", sdfUpdatePdcpTimer, Filter{}, kTimer);
         }},
        {"update-target-dscp", "sdfUpdateTargetDscp(): change a filter's DSCP",
         [](A& a) {
             return request(a, "sdfUpdateTargetDscp", sdfUpdateTargetDscp, Filter{},
                            Number{{}, "DSCP", "target_dscp", "Target DSCP"});
         }},
        {"update-dds-ood", "sdfUpdateDdsOod(): out-of-order delivery of default data",
         [](A& a) { return request(a, "sdfUpdateDdsOod", sdfUpdateDdsOod, ood()); }},
        {"update-dds-pdcp-timer", "sdfUpdateDdsPdcpTimer(): timer of default data",
         [](A& a) { return request(a, "sdfUpdateDdsPdcpTimer", sdfUpdateDdsPdcpTimer, kTimer); }},
        {"high-perf-gaming", "sdfEnHighPerfGaming(): high-performance gaming",
         [](A& a) { return request(a, "sdfEnHighPerfGaming", sdfEnHighPerfGaming, Switch{}); }},
        {"prioritize-data", "sdfPrioritizeData(): prioritise a SIM slot's data",
         [](A& a) { return request(a, "sdfPrioritizeData", sdfPrioritizeData, slot(), Switch{}); }},
        {"prioritize-dds", "sdfPrioritizeDds(): prioritise default data",
         [](A& a) { return request(a, "sdfPrioritizeDds", sdfPrioritizeDds, Switch{}); }},
        {"add-filter", "sdfAddFilter(), sdfAddFilterV2(): add a filter", addFilter},
        {"get-filters", "sdfGetFilters(): list this client's filters",
         [](A& a) {
             return request(a, "sdfGetFilters", sdfGetFilters, Callback{callbacks::onFilterListed});
         }},
        {"delete-filter", "sdfDeleteFilter(): delete a filter",
         [](A& a) { return request(a, "sdfDeleteFilter", sdfDeleteFilter, Filter{}); }},
        {"delete-all-filters", "sdfDeleteAllFilter(): delete all confirmed filters",
         deleteAllFilters},
        {"reg-filter-status", "sdfRegFilterStatus(): be notified of what becomes of filters",
         [](A& a) {
             return request(a, "sdfRegFilterStatus", sdfRegFilterStatus,
                            Callback{callbacks::onFilterStatus});
         }},
        {"reg-auto-filter-info", "sdfRegAutoFilterInfo(): be notified of the service's own filters",
         [](A& a) {
             return request(a, "sdfRegAutoFilterInfo", sdfRegAutoFilterInfo,
                            Callback{callbacks::onAutoFilter});
         }},
        {"reg-priority-queue-reports", "sdfRegPriorityQueueReports(): ask for reports, or stop",
         [](A& a) {
             return request(
                 a, "sdfRegPriorityQueueReports", sdfRegPriorityQueueReports, Switch{},
                 Number{
                     {}, "VALUE", "report_value", "Report value, which the service knows to read"},
                 Callback{callbacks::onQueueReport});
         }},
        {"get-priority-queue-report", "sdfGetPriorityQueueReport(): ask for one report",
         [](A& a) {
             return requestThen(
                 a, "sdfGetPriorityQueueReport", sdfGetPriorityQueueReport,
                 [](Session& session, long long result, SdfPriorityQueueReportCb) {
                     if (result == SDF_V2_SUCCESS) session.expectAnswers("queue-answer");
                 },
                 Callback{callbacks::onQueueAnswer});
         }},
    };
}
