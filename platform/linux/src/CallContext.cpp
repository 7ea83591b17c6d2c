// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/CallContext.h"

#include <android/binder_ibinder.h>
#include <unistd.h>

namespace {
thread_local const CallContext* tCurrent = nullptr;
}

const CallContext* currentCall() {
    return tCurrent;
}

CallScope::CallScope(const CallContext& context) : mOuter(tCurrent) {
    tCurrent = &context;
}

CallScope::~CallScope() {
    tCurrent = mOuter;
}

uid_t AIBinder_getCallingUid() {
    return tCurrent == nullptr ? getuid() : tCurrent->uid;
}

pid_t AIBinder_getCallingPid() {
    return tCurrent == nullptr ? getpid() : tCurrent->pid;
}
