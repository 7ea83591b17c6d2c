// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

// The statuses that the process ends with.
enum ExitStatus {
    kExitSuccess = 0,
    kExitCallFailed = 1,
    kExitUsage = 2,
    kExitNotUp = 3,
    kExitNoAnswer = 4,
    kExitSignal = 128,  // plus the signal's number
};

// Thrown when a command cannot be carried out.
struct Failure : std::runtime_error {
    Failure(ExitStatus failed, const std::string& what)
        : std::runtime_error(what), status(failed) {}

    const ExitStatus status;
};

// What the user has typed is wrong.
struct UsageError : Failure {
    explicit UsageError(const std::string& what) : Failure(kExitUsage, what) {}
};

// The service is not up in time.
struct NotUp : Failure {
    explicit NotUp(const std::string& what) : Failure(kExitNotUp, what) {}
};

// The client's end does not come in time. The client counts as gone then.
struct NotDestroyed : Failure {
    explicit NotDestroyed(const std::string& what) : Failure(kExitNoAnswer, what) {}
};
