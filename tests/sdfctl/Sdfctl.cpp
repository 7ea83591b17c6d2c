// SPDX-License-Identifier: Apache-2.0
#include "tests/sdfctl/Sdfctl.h"

#include <sys/wait.h>

#include <csignal>
#include <sstream>

#include "tests/support/ChildProcess.h"

Lines sdfctlCommand(const std::string& arguments) {
    Lines command{LUM_SDFCTL_PROGRAM};
    std::istringstream words(arguments);
    for (std::string word; words >> word;) command.push_back(word);
    return command;
}

Outcome runSdfctl(const std::string& arguments, const Lines& input, const Lines& environment) {
    ChildProcess child(sdfctlCommand(arguments), environment);
    for (const std::string& line : input) child.writeLine(line);
    child.closeInput();
    const int status = child.wait();
    return {status, child.lines(), child.errorLines()};
}

bool stopChild(pid_t pid) {
    siginfo_t info{};
    return kill(pid, SIGSTOP) == 0 &&
           waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WEXITED | WNOWAIT) == 0 &&
           info.si_code == CLD_STOPPED;
}

Lines withClient(const Lines& lines) {
    Lines all{"createSdfClient() = 0 (success)", "event status: status=-7 (service up)"};
    all.insert(all.end(), lines.begin(), lines.end());
    all.emplace_back("destroySdfClient() = 0 (success)");
    return all;
}
