// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Threads.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "utils/SignalMask.h"

int startDetachedThread(void* (*body)(void*), void* argument) {
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes); error != 0) return error;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    // The new thread inherits the mask, so that there is no moment at which it could be
    // interrupted.
    const SignalMask mask;
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return error;
}

void nameBinderThread() {
    static std::atomic<unsigned int> sLast{0};
    char name[32];
    snprintf(name, sizeof name, "binder:%d_%X", getpid(), ++sLast);
    prctl(PR_SET_NAME, name);
}
