// SPDX-License-Identifier: Apache-2.0
#include "fuzz/InlinePool.h"

#include <utility>

#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/ThreadPool.h"
#include "utils/NoDestroy.h"

namespace {

NoDestroy<ThreadPool> gPool;
NoDestroy<WorkQueue> gPosted;

}  // namespace

ThreadPool& ThreadPool::instance() {
    return gPool.value;
}

int ThreadPool::startWaiting() {
    return 0;
}

void ThreadPool::start() {}

void ThreadPool::post(std::unique_ptr<Work> work) {
    gPosted.value.push(std::move(work));
}

void runPosted(bool onlyFirst) {
    while (std::unique_ptr<Work> work = gPosted.value.pop()) {
        work->run();
        work.reset();
        LateCommand::runQueued();
        if (onlyFirst) return;
    }
}
