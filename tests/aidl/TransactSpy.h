// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstdint>
#include <functional>
#include <vector>

// Stands in for AIBinder_transact in a test program: TransactSpy.cpp defines it, which goes before
// libbinder_ndk's for calls made by the generated code.

// One call as the generated code handed it over.
struct Transaction {
    AIBinder* binder;
    transaction_code_t code;
    binder_flags_t flags;
    ::ndk::ScopedAParcel request;  // a copy
    std::vector<uint8_t> bytes;    // of the request, interface token included
};

// Records every call of this process while it lives, and lets it through. One at a time.
class TransactSpy {
  public:
    // Takes the place of the real function where set: returns the status, and may set the reply.
    using Answer = std::function<binder_status_t(AParcel** out)>;

    TransactSpy();
    ~TransactSpy();
    TransactSpy(const TransactSpy&) = delete;
    TransactSpy& operator=(const TransactSpy&) = delete;

    void answerWith(Answer answer) { mAnswer = std::move(answer); }

    const std::vector<Transaction>& calls() const { return mCalls; }

  private:
    friend binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code,
                                             AParcel** in, AParcel** out, binder_flags_t flags);

    Answer mAnswer;
    std::vector<Transaction> mCalls;
};

// Does what libbinder_ndk's AIBinder_transact does.
binder_status_t realTransact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                             binder_flags_t flags);
