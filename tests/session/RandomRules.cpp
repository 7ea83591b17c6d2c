// SPDX-License-Identifier: Apache-2.0
#include "tests/session/RandomRules.h"

#include <iterator>

std::vector<std::string> randomRules(const std::function<size_t(size_t)>& pick,
                                     const std::string& when) {
    constexpr const char* kKinds[] = {"enable",
                                      "add_filter",
                                      "set_latency_level",
                                      "update_latency_level",
                                      "update_ood",
                                      "update_pdcp_timer",
                                      "update_target_dscp",
                                      "delete_filter",
                                      "en_high_perf_gaming",
                                      "prioritize_data",
                                      "reg_filter_status",
                                      "register"};
    constexpr const char* kActions[] = {"refuse",
                                        "never",
                                        "late 20",
                                        "twice",
                                        "flood 20",
                                        "wrong-id",
                                        "mismatch",
                                        "empty-body",
                                        "no-body",
                                        "truncate",
                                        "garbage ff 00 80",
                                        "garbage random 100",
                                        "unknown-event",
                                        "status SERVICE_DOWN",
                                        "status INTERNAL_ERROR",
                                        "status SERVICE_UP",
                                        "status 77",
                                        "die before",
                                        "die after"};
    std::vector<std::string> options;
    for (size_t count = 1 + pick(6); count > 0; --count) {
        options.push_back("--rule");
        options.push_back(std::string("on ") + kKinds[pick(std::size(kKinds))] + " " + when + " " +
                          std::to_string(1 + pick(8)) + ": " + kActions[pick(std::size(kActions))]);
    }
    return options;
}
