// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/src/KernelDriver.h"
#include "platform/linux/src/KernelObjects.h"
#include "platform/linux/src/Link.h"

// The link over the kernel's binder driver, one for all processes. The driver keeps the order of
// calls, hands a call that is nested in another to the thread that waits in it, and asks for
// threads when all are busy. What a call has stays in the driver's buffer while it is carried out,
// and counts there.
class KernelLink final : public Link, public std::enable_shared_from_this<KernelLink> {
  public:
    explicit KernelLink(const std::string& device) : mDriver(device) {}

    // Whether there is a driver.
    bool isOpen() const { return mDriver.isOpen(); }

    // Makes the first of the threads that carry out calls. Later calls do nothing, unless a thread
    // could not be made.
    void startThreadPool();
    // Carries out calls on this thread until that fails.
    // enter: the command by which the driver gets to know the thread: BC_ENTER_LOOPER unless it has
    // asked for one.
    // Returns STATUS_NO_MEMORY if there is none to know the thread, otherwise STATUS_DEAD_OBJECT.
    binder_status_t serve(uint32_t enter);
    // Makes a local object the one that every process reaches as handle 0, and keeps it. Returns 0
    // or an error number.
    int setContextManager(AIBinder& object);

    binder_status_t transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                             binder_flags_t flags, std::unique_ptr<AParcel>* out) override;
    void releaseProxy(RemoteBinder& proxy) noexcept override { mObjects.release(proxy); }
    // Whether an object is, only a call or the announcement of its death can tell, and both mark
    // its proxy.
    bool isAlive() override { return isOpen(); }
    binder_status_t watchDeath(uint32_t handle, std::unique_ptr<LateCommand>* late) override;
    void unwatchDeath(uint32_t handle) noexcept override { mObjects.unregister(handle); }

  private:
    using ThreadMain = void* (*)(void*);

    static void* firstThreadMain(void* link);
    static void* threadMain(void* link);
    void addThread(ThreadMain body);
    // Tries again to make a thread that could not be made: with each call that this process makes
    // or one of its pool threads carries out, and with startThreadPool(). A timer would need a
    // thread, too.
    void addOwedThread();
    // body: what this thread runs.
    void serveInPool(ThreadMain body, uint32_t enter);

    // Has a transaction sent, and waits for its answer. reply: set to the reply; null if there is
    // none to come, and only its acceptance is waited for.
    binder_status_t send(KernelCommands commands, std::unique_ptr<AParcel>* reply) noexcept;
    binder_status_t takeReply(const binder_transaction_data& data,
                              std::unique_ptr<AParcel>* reply) noexcept;
    // Carries out what the driver has for this thread besides the answer it may be waiting for.
    void handle(const KernelReturns& returned) noexcept;
    void carryOut(const binder_transaction_data& call) noexcept;
    void answer(KernelCommands* commands, binder_status_t status, const AParcel& out) noexcept;

    KernelDriver mDriver;
    KernelObjects mObjects{mDriver};
    std::atomic<bool> mStarted{false};
    // What the thread was to run that could not be made, null if there is none. There is no second
    // one: the driver asks for one at a time, and for none before the first has come.
    std::atomic<ThreadMain> mOwedThread{nullptr};
};
