// SPDX-License-Identifier: Apache-2.0
#include <android/binder_process.h>

#include "platform/linux/src/ThreadPool.h"
#include "platform/linux/src/Threads.h"

void ABinderProcess_startThreadPool() {
    ThreadPool::instance().start();
    nameBinderThread();
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    ThreadPool::instance().setMaxExtraThreads(numThreads);
    return true;
}

bool ABinderProcess_isThreadPoolStarted() {
    return ThreadPool::instance().started();
}

void ABinderProcess_joinThreadPool() {
    ThreadPool::instance().join();
}
