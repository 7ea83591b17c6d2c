// SPDX-License-Identifier: Apache-2.0
#include <android/binder_process.h>

#include "platform/linux/src/Link.h"
#include "platform/linux/src/Threads.h"

void ABinderProcess_startThreadPool() {
    ServiceRegistry::instance().startThreadPool();
    nameBinderThread();
}
