// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tests/support/Driver.h"

// What the kernel's binder driver counts for a process: all 0 over sockets.
struct DriverCounts {
    int nodes = 0;       // its own objects that others know
    int refs = 0;        // objects of others that it knows
    int strongRefs = 0;  // how often it holds these, all together
    int weakRefs = 0;
    int buffers = 0;  // calls that it has not given back
    int threads = 0;

    // Leaves out the threads, which stay.
    bool holdsNoMoreThan(const DriverCounts& limit) const {
        return nodes <= limit.nodes && refs <= limit.refs && strongRefs <= limit.strongRefs &&
               weakRefs <= limit.weakRefs && buffers <= limit.buffers;
    }
};

inline std::ostream& operator<<(std::ostream& out, const DriverCounts& counts) {
    return out << counts.nodes << " nodes, " << counts.refs << " refs (" << counts.strongRefs
               << " strong, " << counts.weakRefs << " weak), " << counts.buffers << " buffers";
}

constexpr char kDriverStats[] = "/sys/kernel/debug/binder/stats";

// Throws when the driver is used and does not say, as without debugfs. A process that has no device
// open holds nothing.
inline DriverCounts driverCountsOf(pid_t pid) {
    std::ifstream stats(kDriverStats);
    if (overDriver() && !stats) {
        throw std::system_error(errno, std::generic_category(), kDriverStats);
    }
    std::map<std::string, int> counts;
    bool wanted = false;
    for (std::string line; std::getline(stats, line);) {
        std::istringstream words(line);
        std::string name;
        int number = 0;
        while (words >> name >> number) {  // one line is "refs: COUNT s STRONG w WEAK"
            if (name == "proc") {
                wanted = number == pid;
            } else if (wanted) {
                counts.emplace(name, number);
            }
        }
    }
    if (counts.empty()) return {};
    const auto countOf = [&](const char* name) {
        const auto found = counts.find(name);
        if (found != counts.end()) return found->second;
        throw std::runtime_error(std::string(kDriverStats) + ": no count \"" + name + '"');
    };
    return {countOf("nodes:"), countOf("refs:"),    countOf("s"),
            countOf("w"),      countOf("buffers:"), countOf("threads:")};
}
