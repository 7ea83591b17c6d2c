// SPDX-License-Identifier: Apache-2.0
#include "tests/soak/Member.h"

#include <system_error>
#include <utility>

Member::Member(std::string name, std::vector<std::string> command, bool mortal)
    : mName(std::move(name)),
      mCommand(std::move(command)),
      mMortal(mortal),
      mProcess(std::make_unique<ChildProcess>(mCommand)) {}

void Member::tell(const std::string& command) {
    mLast = command;
    mReports = reports().size();
    try {
        mProcess->writeLine(command);
    } catch (const std::system_error&) {
        // It has ended, which hasEnded() says.
    }
}

void Member::restart() {
    mProcess->kill();
    mProcess = std::make_unique<ChildProcess>(mCommand);
    tell(mLast);
}

bool Member::isAtRest() const {
    return reports().size() > mReports;
}

const Member::Rest& Member::noteRest() {
    mRests.push_back({ProcessFigures::of(pid()), reported("blocks="), reported("bytes=")});
    return mRests.back();
}

int Member::end() {
    mProcess->closeInput();
    return mProcess->wait();
}

std::vector<std::string> Member::reports() const {
    std::vector<std::string> found;
    for (std::string& line : mProcess->lines()) {
        if (line.rfind("rest ", 0) == 0) found.push_back(std::move(line));
    }
    return found;
}

int64_t Member::reported(const char* label) const {
    const std::vector<std::string> all = reports();
    if (all.empty()) return 0;
    const size_t place = all.back().find(label);
    if (place == std::string::npos) return 0;
    return std::stoll(all.back().substr(place + std::string(label).size()));
}
