// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

// The incoming call that a thread is carrying out.
struct CallContext {
    uid_t uid;  // of the calling process, from the kernel
    pid_t pid;  // the same; 0 for a one-way call, whose caller may be gone
    // The blocking calls that led here, outermost first, as the link names them; null if the link
    // itself knows. Only the link looks at them: a call made from here may be carried out by a
    // thread that waits in one of them.
    const std::vector<uint64_t>* chain;
};

// The innermost incoming call of this thread, null outside of calls.
const CallContext* currentCall();

// Makes a context the current one of this thread while it lives.
class CallScope {
  public:
    explicit CallScope(const CallContext& context);
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

  private:
    const CallContext* const mOuter;
};
