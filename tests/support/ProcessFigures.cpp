// SPDX-License-Identifier: Apache-2.0
#include "tests/support/ProcessFigures.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

int64_t entriesOf(const fs::path& directory) {
    std::error_code error;
    const fs::directory_iterator entries(directory, error);
    return error ? 0 : std::distance(begin(entries), end(entries));
}

int64_t memoryOf(const fs::path& process) {
    std::ifstream file(process / "statm");
    int64_t size = 0;
    int64_t resident = 0;
    int64_t shared = 0;
    file >> size >> resident >> shared;
    return (resident - shared) * sysconf(_SC_PAGESIZE);
}

int64_t processorMsOf(const fs::path& process) {
    std::ifstream file(process / "stat");
    std::string line;
    std::getline(file, line);
    // The name before it may have blanks.
    std::istringstream rest(line.substr(line.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) rest >> skipped;
    int64_t user = 0;
    int64_t system = 0;
    rest >> user >> system;
    return (user + system) * 1000 / sysconf(_SC_CLK_TCK);
}

fs::path directoryOf(pid_t pid) {
    return fs::path("/proc") / std::to_string(pid);
}

}  // namespace

int64_t ProcessFigures::wakeUpsOf(pid_t pid, pid_t except) {
    int64_t sum = 0;
    std::error_code error;
    for (const auto& task : fs::directory_iterator(directoryOf(pid) / "task", error)) {
        if (task.path().filename() == std::to_string(except)) continue;
        std::ifstream status(task.path() / "status");
        const std::string label = "voluntary_ctxt_switches:";
        for (std::string line; std::getline(status, line);) {
            if (line.rfind(label, 0) == 0) sum += std::stoll(line.substr(label.size()));
        }
    }
    return sum;
}

ProcessFigures ProcessFigures::of(pid_t pid) {
    const fs::path process = directoryOf(pid);
    ProcessFigures figures;
    figures.memory = memoryOf(process);
    figures.descriptors = entriesOf(process / "fd");
    figures.threads = entriesOf(process / "task");
    figures.processorMs = processorMsOf(process);
    figures.wakeUps = wakeUpsOf(pid);
    return figures;
}
