// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fuzz/ClientModel.h"
#include "fuzz/Input.h"
#include "transport/SdkClientBase.h"

// The client library on the transport of tests/api/FakeTransport.h, and a model of it that does the
// same step by step. Ends the process when they disagree: about a result, a callback or its
// arguments, a request posted, or what is on record.
//
// A step is a call of the interface, or something that the transport does. From inside callbacks
// come further steps, as the input says. The library goes first, and what happens inside each of
// its callbacks is written down; the model then finds the same callbacks, and does what was done
// inside them.
class ClientInStep : private ClientObserver {
  public:
    // One at a time.
    explicit ClientInStep(Input& input);
    ~ClientInStep();
    ClientInStep(const ClientInStep&) = delete;
    ClientInStep& operator=(const ClientInStep&) = delete;

    // Whether there are decisions to be made, and transaction ids to be drawn.
    bool canGoOn() const;
    // One step of any kind.
    void anyStep();
    // One message of the service, to the latest client.
    void message(const std::vector<uint8_t>& bytes);
    // A client with all callbacks set, the service up, requests pending and a filter confirmed.
    void startUpWithAll();
    // A transaction or filter that is on record, or any number.
    unsigned int anyId();

  private:
    ClientInStep(Input& input, const std::vector<int>& random);

    struct Step;
    struct Seen {
        std::string text;
        std::vector<Step> inside;
    };
    struct Step {
        std::string name;
        std::function<long long()> library;
        std::function<long long(ClientModel&)> model;
        long long result = 0;
        std::vector<Seen> seen{};
    };

    Step makeStep();
    Step makeLifecycle(unsigned int which);
    Step makeRequest(unsigned int which);
    Step makeAddFilter();
    Step makeReport();
    SdfAddFilterInfo makeFlow();
    // Null rarely, else one of two.
    template <typename Callback>
    Callback oneOf(Callback first, Callback other);

    // Both sides of one step that no other one is inside of.
    void run(Step step);
    void runLibrary(Step& step);
    void runModel(Step& step);
    // The library has called the application, or is just destroying the client.
    void onCalled(const std::string& text);
    void compareRequests();
    void compareRecords() const;
    [[noreturn]] void disagree(const std::string& what) const;

    void called(const std::string& text) override;
    void posted(const std::string& text) override { mExpected.push_back(text); }

    Input* mInput;
    ClientModel mModel;
    std::vector<SdkClientBase::Listener> mListeners;
    Step* mStep = nullptr;  // that is being done, by the library or by the model
    size_t mNextSeen = 0;   // of what the library did in it, for the model
    unsigned int mDepth = 0;
    unsigned int mSteps = 0;
    std::vector<std::string> mExpected;  // requests
    std::string mPath;                   // the steps that led here
};
