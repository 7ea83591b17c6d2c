// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

#include <memory>
#include <optional>

// Something that a thread has still to do, though not at once: with its next call of another
// process, when it comes back for work, or at its end. On a device the runtime queues what it has
// to say to the kernel's driver in the same way, and a thread that sleeps keeps it to itself.
class LateCommand {
  public:
    LateCommand() = default;
    virtual ~LateCommand() = default;
    LateCommand(const LateCommand&) = delete;
    LateCommand& operator=(const LateCommand&) = delete;

    // Leaves a command to this thread; carries it out at once if the thread has no place for it.
    static void queue(std::unique_ptr<LateCommand> command) noexcept;
    // Carries out what is left to this thread. To be called with nothing locked.
    static void runQueued() noexcept;

  private:
    virtual void run() noexcept = 0;

    static const std::optional<pthread_key_t>& key();
    static void runAll(void* last) noexcept;

    LateCommand* mBefore = nullptr;
};
