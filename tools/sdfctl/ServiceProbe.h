// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// What a step met.
struct Trouble {
    enum class Kind {
        kNone,     // it went well
        kOther,    // what only this step can meet
        kDied,     // the service died of it
        kStuck,    // the service does not return from the call
        kRefused,  // the service refused the call
        kBroken,   // the call failed in between, or the service does not know it
        kLeft,     // the service was up, and then said that it no longer is
    };
    Kind kind = Kind::kNone;
    std::string text{};    // what happened; empty when it went well
    std::string advice{};  // what to do about it, where the kind and the step do not tell
};

// A client of the service beside the library: it sees the result of each step that the library
// takes without telling. A device's service and the emulator see one more client of this process,
// which leaves again.
//
// Each function takes one step and returns what trouble it met. Each waits for the limit at most; a
// step that needs an earlier one is to be taken only when that went well. For one thread.
class ServiceProbe {
  public:
    // limit: seconds for each step.
    explicit ServiceProbe(double limit);
    ~ServiceProbe();
    ServiceProbe(const ServiceProbe&) = delete;
    ServiceProbe& operator=(const ServiceProbe&) = delete;

    // Takes any step.
    Trouble call(std::function<Trouble()> body);
    // Looks the service up.
    Trouble find();
    // Gives it a callback object.
    Trouble registerCallback();
    // Sends the request to serve this client.
    Trouble sendEnable();
    // Waits for the first status that the service reports, which has to be that it is up.
    Trouble waitForUp();
    // Sends a request that changes nothing and waits for the answer: the list of this client's
    // filters. The service must still be up then.
    Trouble askForFilters();
    // Tells the service that this client leaves.
    Trouble sendDisable();

    // Whether a call has not come back in time. Its thread is still in it.
    bool isStuck() const { return mStuck; }

  private:
    struct Parts;

    Trouble send(const std::vector<uint8_t>& bytes);
    Trouble silence() const;

    const double mLimit;  // seconds
    bool mStuck = false;
    const std::shared_ptr<Parts> mParts;  // also its threads'
};
