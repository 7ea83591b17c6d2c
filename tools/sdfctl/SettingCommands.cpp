// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/Requests.h"

namespace {

Fields levelFields(SdfLatencyLvl first, SdfLatencyLvl second) {
    return {worded("first", first, levelWords()), worded("second", second, levelWords())};
}

Action setLatency(Arguments& arguments) {
    struct Values {
        SdfSlotID slot{};
        SdfLatencyLvl first{};
        SdfLatencyLvl second{};
        bool flag = false;
        CallbackChoice<SdfEffectiveLevelsCb> callback{callbacks::onLevels};
    };
    const auto values = valuesOf<Values>();
    arguments.word("SLOT", values->slot, slotWords(), "SIM slot");
    arguments.word("FIRST", values->first, levelWords(), "First level");
    arguments.word("SECOND", values->second, levelWords(), "Second level");
    arguments.flag("--flag", values->flag, "Set the flag that is passed to the service");
    values->callback.declare(arguments);
    return [values](Session& session) {
        session.ready();
        Fields fields{worded("slot", values->slot, slotWords())};
        for (const Field& level : levelFields(values->first, values->second)) {
            fields.push_back(level);
        }
        fields.push_back(switched("flag", values->flag));
        const long long id = session.call("sdfSetLatencyLvl", fields, [&] {
            return sdfSetLatencyLvl(values->slot, values->first, values->second, values->flag,
                                    values->callback.chosen());
        });
        if (id <= 0) return;
        session.expectAnswer("levels",
                             [id](const Event& event) { return event.number("id") == id; });
    };
}

Action updateLatency(Arguments& arguments) {
    struct Values {
        FilterName filter;
        SdfLatencyLvl first{};
        SdfLatencyLvl second{};
    };
    const auto values = valuesOf<Values>();
    arguments.filter("FILTER", values->filter, "Its number, or \"last\"");
    arguments.word("FIRST", values->first, levelWords(), "First level");
    arguments.word("SECOND", values->second, levelWords(), "Second level");
    return [values](Session& session) {
        requestAbout(session, values->filter, "sdfUpdateLatencyLvl",
                     levelFields(values->first, values->second), [&](unsigned int id) {
                         return sdfUpdateLatencyLvl(id, values->first, values->second);
                     });
    };
}

Action updateOod(Arguments& arguments) {
    struct Values {
        FilterName filter;
        SdfOod ood{};
    };
    const auto values = valuesOf<Values>();
    arguments.filter("FILTER", values->filter, "Its number, or \"last\"");
    arguments.word("OOD", values->ood, oodWords(), "Out-of-order delivery");
    return [values](Session& session) {
        requestAbout(session, values->filter, "sdfUpdateOod",
                     {worded("ood", values->ood, oodWords())},
                     [&](unsigned int id) { return sdfUpdateOod(id, values->ood); });
    };
}

// The requests that change one number of a filter.
Action updateNumber(Arguments& arguments, const char* name, const char* key, const char* about,
                    const char* function, long long (*body)(unsigned int, unsigned int)) {
    struct Values {
        FilterName filter;
        unsigned int number = 0;
    };
    const auto values = valuesOf<Values>();
    arguments.filter("FILTER", values->filter, "Its number, or \"last\"");
    arguments.number(name, values->number, about);
    return [values, key, function, body](Session& session) {
        requestAbout(session, values->filter, function, {plain(key, values->number)},
                     [&](unsigned int id) { return body(id, values->number); });
    };
}

Action updatePdcpTimer(Arguments& arguments) {
    return updateNumber(arguments, "TIMER", "pdcp_timer", "PDCP timer, in the service's unit",
                        "sdfUpdatePdcpTimer", sdfUpdatePdcpTimer);
}

Action updateTargetDscp(Arguments& arguments) {
    return updateNumber(arguments, "DSCP", "target_dscp", "Target DSCP", "sdfUpdateTargetDscp",
                        sdfUpdateTargetDscp);
}

Action updateDdsOod(Arguments& arguments) {
    const auto ood = valuesOf<SdfOod>();
    arguments.word("OOD", *ood, oodWords(), "Out-of-order delivery");
    return [ood](Session& session) {
        request(session, "sdfUpdateDdsOod", {worded("ood", *ood, oodWords())},
                [&] { return sdfUpdateDdsOod(*ood); });
    };
}

Action updateDdsPdcpTimer(Arguments& arguments) {
    const auto timer = valuesOf<unsigned int>();
    arguments.number("TIMER", *timer, "PDCP timer, in the service's unit");
    return [timer](Session& session) {
        request(session, "sdfUpdateDdsPdcpTimer", {plain("pdcp_timer", *timer)},
                [&] { return sdfUpdateDdsPdcpTimer(*timer); });
    };
}

// The requests that are one switch.
Action enableRequest(Arguments& arguments, const char* function, long long (*body)(bool)) {
    const auto on = valuesOf<bool>();
    arguments.onOff("SWITCH", *on, "on or off");
    return [on, function, body](Session& session) {
        request(session, function, {switched("enable", *on)}, [&] { return body(*on); });
    };
}

Action highPerfGaming(Arguments& arguments) {
    return enableRequest(arguments, "sdfEnHighPerfGaming", sdfEnHighPerfGaming);
}

Action prioritizeDds(Arguments& arguments) {
    return enableRequest(arguments, "sdfPrioritizeDds", sdfPrioritizeDds);
}

Action prioritizeData(Arguments& arguments) {
    struct Values {
        SdfSlotID slot{};
        bool on = false;
    };
    const auto values = valuesOf<Values>();
    arguments.word("SLOT", values->slot, slotWords(), "SIM slot");
    arguments.onOff("SWITCH", values->on, "on or off");
    return [values](Session& session) {
        request(session, "sdfPrioritizeData",
                {worded("slot", values->slot, slotWords()), switched("enable", values->on)},
                [&] { return sdfPrioritizeData(values->slot, values->on); });
    };
}

}  // namespace

std::vector<Command> settingCommands() {
    return {
        {"set-latency", "sdfSetLatencyLvl(): ask for latency levels of a SIM slot", setLatency},
        {"update-latency", "sdfUpdateLatencyLvl(): change a filter's levels", updateLatency},
        {"update-ood", "sdfUpdateOod(): change a filter's out-of-order delivery", updateOod},
        {"update-pdcp-timer", "sdfUpdatePdcpTimer(): change a filter's timer", updatePdcpTimer},
        {"update-target-dscp", "sdfUpdateTargetDscp(): change a filter's DSCP", updateTargetDscp},
        {"update-dds-ood", "sdfUpdateDdsOod(): out-of-order delivery of default data",
         updateDdsOod},
        {"update-dds-pdcp-timer", "sdfUpdateDdsPdcpTimer(): timer of default data",
         updateDdsPdcpTimer},
        {"high-perf-gaming", "sdfEnHighPerfGaming(): high-performance gaming", highPerfGaming},
        {"prioritize-data", "sdfPrioritizeData(): prioritise a SIM slot's data", prioritizeData},
        {"prioritize-dds", "sdfPrioritizeDds(): prioritise default data", prioritizeDds},
    };
}
