// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>
#include <linux/android/binder.h>
#include <pthread.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/linux/src/UniqueFd.h"

// An address in the form in which the driver has it.
template <typename T>
T* addressOf(binder_uintptr_t number) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the driver has only numbers
    return reinterpret_cast<T*>(static_cast<uintptr_t>(number));
}

// Commands for the driver, which it carries out in this order.
class KernelCommands {
  public:
    template <typename Argument>
    KernelCommands& add(uint32_t command, const Argument& argument) {
        append(&command, sizeof command);
        append(&argument, sizeof argument);
        return *this;
    }
    KernelCommands& add(uint32_t command) {
        append(&command, sizeof command);
        return *this;
    }
    // Removes the first bytes, which have been carried out.
    void removeFirst(size_t size) {
        mSize -= size;
        memmove(mBytes.data(), mBytes.data() + size, mSize);
    }

    const uint8_t* data() const { return mBytes.data(); }
    size_t size() const { return mSize; }

  private:
    void append(const void* bytes, size_t size) {
        memcpy(mBytes.data() + mSize, bytes, size);
        mSize += size;
    }

    // A reply and the end of the buffer that the call came in take the most.
    std::array<uint8_t, 96> mBytes;
    size_t mSize = 0;
};

// What the driver has for a thread: one command after the other. What begins with a call or a
// death, and so runs code of the application, comes last.
class KernelReturns {
  public:
    // Those of this thread: what comes with the answer to a nested call may be the answer to the
    // outer one.
    static KernelReturns& ofThread();

    // Moves to the next command that asks for something. Returns false when there is none. Errors
    // are logged.
    bool next();

    uint32_t command() const { return mCommand; }
    // argument: what came with the command, of the type that belongs to it.
    template <typename Argument>
    Argument argument() const {
        Argument argument;
        memcpy(&argument, mArgument, sizeof argument);
        return argument;
    }

  private:
    friend class KernelDriver;

    // What one read may give.
    static constexpr size_t kReadSize = 256;

    // Where the next read goes, behind what is unread and asks for something. Returns null when too
    // much does.
    uint8_t* space();

    // One read, and what came with the errors that held up commands before it was worked off.
    alignas(8) std::array<uint8_t, 4 * kReadSize> mBytes;
    size_t mSize = 0;
    size_t mPosition = 0;
    uint32_t mCommand = BR_NOOP;
    const uint8_t* mArgument = nullptr;
};

// The kernel's binder driver, as this process has it open: one file for all threads, each of which
// the driver knows by its number. To be destroyed only with the process. A child made by fork() has
// no part in it: there, every function fails. Thread-safe.
class KernelDriver {
  public:
    // Opens the device. One that cannot be opened, or is no driver of this version, is logged; then
    // every function fails.
    explicit KernelDriver(const std::string& device);

    bool isOpen() const { return mFd.valid(); }

    // Has commands carried out. Does not wait. Returns false if that fails.
    bool write(KernelCommands commands);
    // Has commands carried out, and removes those that were, then waits until there is something
    // for this thread, and adds that to KernelReturns::ofThread(). It may be nothing. The driver
    // carries out none as long as it has an error for this thread.
    //
    // Returns STATUS_OK; STATUS_NO_MEMORY if there is none to know this thread, with nothing
    // carried out; otherwise STATUS_DEAD_OBJECT.
    binder_status_t exchange(KernelCommands* commands);

    // Lets the driver ask for that many threads.
    bool setMaxThreads(uint32_t count);
    // Makes a local object the one that every process reaches as handle 0. Returns 0 or an error
    // number.
    int setContextManager(const flat_binder_object& object);

  private:
    static void endThread(void* driver) noexcept;
    bool hasVersion() const;
    // What else it takes to use the device. Returns 0 or an error number.
    int prepare();
    // returns: null to read nothing.
    binder_status_t exchange(KernelCommands* commands, KernelReturns* returns);

    UniqueFd mFd;
    pthread_key_t mUsed{};
};
