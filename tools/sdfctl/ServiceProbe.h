// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A client of the service beside the library: it sees the result of each step that the library
// takes without telling. A device's service and the emulator see one more client of this process,
// which leaves again.
//
// Each function takes one step and returns an empty text when it went well, otherwise what
// happened. Each waits for the limit at most; a step that needs an earlier one is to be taken only
// when that went well. For one thread.
class ServiceProbe {
  public:
    // limit: seconds for each step.
    explicit ServiceProbe(double limit);
    ~ServiceProbe();
    ServiceProbe(const ServiceProbe&) = delete;
    ServiceProbe& operator=(const ServiceProbe&) = delete;

    // Looks the service up.
    std::string find();
    // Gives it a callback object.
    std::string registerCallback();
    // Sends the request to serve this client.
    std::string sendEnable();
    // Waits until the service says that it is up.
    std::string waitForUp();
    // Sends a request that changes nothing and waits for the answer: the list of this client's
    // filters.
    std::string askForFilters();
    // Tells the service that this client leaves.
    std::string sendDisable();

    // Whether a call has not come back in time. Its thread is still in it.
    bool isStuck() const { return mStuck; }

  private:
    struct Parts;

    std::string send(const std::vector<uint8_t>& bytes);
    std::string resultOf(const std::optional<std::string>& returned);

    const std::chrono::duration<double> mLimit;
    bool mStuck = false;
    const std::shared_ptr<Parts> mParts;  // also its threads'
};
