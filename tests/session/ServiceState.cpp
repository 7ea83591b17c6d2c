// SPDX-License-Identifier: Apache-2.0
#include "tests/session/ServiceState.h"

#include <aidl/vendor/orn/data/lumservice/ILumService.h>
#include <android/binder_manager.h>
#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

using nlohmann::json;

namespace {

// Empty when there is no service.
std::string dumpService() {
    const ndk::SpAIBinder service(
        AServiceManager_checkService(aidl::vendor::orn::data::lumservice::ILumService::descriptor));
    if (service.get() == nullptr) return "";
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    const char* arg = "--json";
    std::string text;
    if (AIBinder_dump(service.get(), fd, &arg, 1) == STATUS_OK) {
        text.resize(static_cast<size_t>(lseek(fd, 0, SEEK_END)));
        if (pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
            text.clear();
    }
    close(fd);
    return text;
}

}  // namespace

json serviceState() {
    const json dump = json::parse(dumpService(), nullptr, false);
    if (dump.is_discarded()) return nullptr;
    for (const json& client : dump["clients"]) {
        if (client["pid"] != getpid() || client["features"].empty()) continue;
        json state = client["features"][0];
        json filters = json::object();
        for (const json& filter : state["filters"]) {
            const std::string port = std::to_string(filter["dest_port"].get<int>());
            // Two of one port show as a filter with more members than one has.
            json& place = filters[filters.contains(port) ? port + " again" : port];
            for (const char* member : {"first_level", "second_level", "ood", "pdcp_timer",
                                       "filter_arg18", "target_dscp"}) {
                place[member] = filter[member];
            }
        }
        state["filters"] = filters;
        // What was never set is as what was set back.
        if (state["dds_ood"].is_null()) state["dds_ood"] = "SDF_OOD_UNSPECIFIED";
        for (const char* member : {"type", "report_interval_ms", "auto_filter_id", "filter_status",
                                   "auto_filter_info"}) {
            state.erase(member);
        }
        return state;
    }
    return nullptr;
}
