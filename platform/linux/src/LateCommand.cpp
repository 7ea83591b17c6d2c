// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LateCommand.h"

#include <utility>

// Where a thread has its list: the command that was left to it last. Thread-specific data, since a
// thread-local variable takes memory for its destructor, and a thread may let go of its last
// reference when there is none.
const std::optional<pthread_key_t>& LateCommand::key() {
    static const std::optional<pthread_key_t> sKey = []() -> std::optional<pthread_key_t> {
        pthread_key_t key{};
        if (pthread_key_create(&key, &LateCommand::runAll) != 0) return std::nullopt;
        return key;
    }();
    return sKey;
}

void LateCommand::queue(std::unique_ptr<LateCommand> command) noexcept {
    LateCommand* const last = command.release();
    if (key()) {
        last->mBefore = static_cast<LateCommand*>(pthread_getspecific(*key()));
        if (pthread_setspecific(*key(), last) == 0) return;
        last->mBefore = nullptr;
    }
    runAll(last);
}

void LateCommand::runQueued() noexcept {
    if (!key()) return;
    void* const last = pthread_getspecific(*key());
    if (last == nullptr) return;
    pthread_setspecific(*key(), nullptr);
    runAll(last);
}

// Also what the system calls at a thread's end, which has emptied the list.
void LateCommand::runAll(void* last) noexcept {
    std::unique_ptr<LateCommand> command(static_cast<LateCommand*>(last));
    while (command != nullptr) {
        command->run();
        command.reset(std::exchange(command->mBefore, nullptr));
    }
}
