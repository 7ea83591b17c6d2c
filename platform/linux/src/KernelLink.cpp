// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/KernelLink.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "platform/linux/src/CallContext.h"
#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/Status.h"
#include "platform/linux/src/Threads.h"
#include "utils/Log.h"

namespace {

// Besides the first.
constexpr uint32_t kMaxThreads = 15;

// BR_TRANSACTION_PENDING_FROZEN, which kernels since 6.3 have: a one-way call was accepted, and
// waits until its receiver is no longer frozen.
constexpr uint32_t kPendingFrozen = _IO('r', 20);

// Ends the registration that a proxy has left behind.
class LateUnregistration final : public LateCommand {
  public:
    explicit LateUnregistration(KernelObjects& objects) : mObjects(objects) {}

    void setCookie(binder_uintptr_t cookie) { mCookie = cookie; }

  private:
    void run() noexcept override { mObjects.unregisterLate(mCookie); }

    KernelObjects& mObjects;
    binder_uintptr_t mCookie = 0;
};

// Sends a status instead of a reply. It must outlive the driver's answer.
void putStatus(const binder_status_t& status, binder_transaction_data* data) {
    data->flags |= TF_STATUS_CODE;
    data->data_size = sizeof status;
    data->data.ptr.buffer = reinterpret_cast<uintptr_t>(&status);
}

// Reads what was sent so. As anything else that a peer sends, it may be short, or have objects.
binder_status_t readStatus(const AParcel& reply) {
    binder_status_t status = STATUS_OK;
    return reply.readValue(&status) == STATUS_OK ? knownStatus(status) : STATUS_UNKNOWN_ERROR;
}

}  // namespace

void KernelLink::startThreadPool() {
    if (!mDriver.isOpen()) return;
    if (mStarted.exchange(true)) return addOwedThread();
    mDriver.setMaxThreads(kMaxThreads);
    addThread(&KernelLink::firstThreadMain);
}

int KernelLink::setContextManager(AIBinder& object) {
    flat_binder_object manager{};
    manager.hdr.type = BINDER_TYPE_BINDER;
    manager.binder = reinterpret_cast<uintptr_t>(&object);
    manager.cookie = manager.binder;
    const int error = mDriver.setContextManager(manager);
    // The driver takes these for granted.
    if (error == 0) object.incStrong();
    return error;
}

void* KernelLink::firstThreadMain(void* link) {
    static_cast<KernelLink*>(link)->serveInPool(&KernelLink::firstThreadMain, BC_ENTER_LOOPER);
    return nullptr;
}

void* KernelLink::threadMain(void* link) {
    static_cast<KernelLink*>(link)->serveInPool(&KernelLink::threadMain, BC_REGISTER_LOOPER);
    return nullptr;
}

void KernelLink::addThread(ThreadMain body) {
    const int error = startDetachedThread(body, this);
    if (error == 0) return;
    // Once, not each time that it is tried again.
    LUM_LOGE(
        "binder: no thread for incoming calls (%s), tried again with the next call "
        "that this process makes or carries out",
        strerror(error));
    mOwedThread = body;
}

void KernelLink::addOwedThread() {
    if (mOwedThread == nullptr) return;
    const ThreadMain body = mOwedThread.exchange(nullptr);
    if (body != nullptr && startDetachedThread(body, this) != 0) mOwedThread = body;
}

void KernelLink::serveInPool(ThreadMain body, uint32_t enter) {
    nameBinderThread();
    // The driver has not heard of this one.
    if (serve(enter) == STATUS_NO_MEMORY) mOwedThread = body;
}

binder_status_t KernelLink::serve(uint32_t enter) {
    KernelCommands commands;
    commands.add(enter);
    KernelReturns& returned = KernelReturns::ofThread();
    binder_status_t status = STATUS_OK;
    while ((status = mDriver.exchange(&commands)) == STATUS_OK) {
        while (returned.next()) handle(returned);
        LateCommand::runQueued();
        addOwedThread();
    }
    return status;
}

binder_status_t KernelLink::transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                                     binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    const bool oneway = (flags & FLAG_ONEWAY) != 0;
    std::unique_ptr<AParcel> reply = oneway ? std::make_unique<AParcel>() : nullptr;
    const KernelParcel parcel(in);
    binder_transaction_data call{};
    call.target.handle = handle;
    call.code = code;
    call.flags = oneway ? TF_ACCEPT_FDS | TF_ONE_WAY : TF_ACCEPT_FDS;
    parcel.putInto(&call);
    const binder_status_t status =
        send(KernelCommands().add(BC_TRANSACTION, call), oneway ? nullptr : &reply);
    LateCommand::runQueued();
    addOwedThread();
    if (status == STATUS_OK) *out = std::move(reply);
    return status;
}

binder_status_t KernelLink::watchDeath(uint32_t handle, std::unique_ptr<LateCommand>* late) {
    if (!isOpen()) return STATUS_DEAD_OBJECT;
    auto lateUnregistration = std::make_unique<LateUnregistration>(mObjects);
    lateUnregistration->setCookie(mObjects.registerForDeath(handle));
    *late = std::move(lateUnregistration);
    return STATUS_OK;
}

binder_status_t KernelLink::send(KernelCommands commands,
                                 std::unique_ptr<AParcel>* reply) noexcept {
    KernelReturns& returned = KernelReturns::ofThread();
    for (;;) {
        if (!returned.next()) {
            const binder_status_t status = mDriver.exchange(&commands);
            if (status != STATUS_OK) return status;
            continue;
        }
        switch (returned.command()) {
            case BR_TRANSACTION_COMPLETE:
            case BR_ONEWAY_SPAM_SUSPECT:
            case kPendingFrozen:
                if (reply == nullptr) return STATUS_OK;
                break;
            case BR_REPLY: return takeReply(returned.argument<binder_transaction_data>(), reply);
            case BR_DEAD_REPLY: return STATUS_DEAD_OBJECT;
            case BR_FAILED_REPLY:
            case BR_FROZEN_REPLY: return STATUS_FAILED_TRANSACTION;
            default: handle(returned);
        }
    }
}

binder_status_t KernelLink::takeReply(const binder_transaction_data& data,
                                      std::unique_ptr<AParcel>* reply) noexcept {
    const binder_status_t status = withoutThrowing(
        [&]() -> binder_status_t {
            *reply = mObjects.import(data, shared_from_this());
            return (data.flags & TF_STATUS_CODE) == 0 ? STATUS_OK : readStatus(**reply);
        },
        STATUS_NO_MEMORY);
    mDriver.write(KernelCommands().add(BC_FREE_BUFFER, data.data.ptr.buffer));
    return status;
}

void KernelLink::handle(const KernelReturns& returned) noexcept {
    switch (returned.command()) {
        case BR_INCREFS:
        case BR_ACQUIRE:
        case BR_RELEASE:
        case BR_DECREFS:
            return mObjects.count(returned.command(), returned.argument<binder_ptr_cookie>());
        case BR_TRANSACTION: return carryOut(returned.argument<binder_transaction_data>());
        case BR_DEAD_BINDER: {
            const auto notification = mObjects.takeDead(returned.argument<binder_uintptr_t>());
            if (notification != nullptr) notification->run();
            return;
        }
        case BR_SPAWN_LOOPER: return addThread(&KernelLink::threadMain);
        default: return;  // nothing that asks for an answer
    }
}

void KernelLink::carryOut(const binder_transaction_data& call) noexcept {
    const bool oneway = (call.flags & TF_ONE_WAY) != 0;
    AParcel out;
    binder_status_t status = STATUS_NO_MEMORY;
    std::unique_ptr<AParcel> in;
    if (withoutThrowing([&] { in = mObjects.import(call, shared_from_this()); })) {
        const BinderRef target = refTo(addressOf<AIBinder>(call.cookie));
        const CallContext context{call.sender_euid, call.sender_pid, nullptr};
        const CallScope scope(context);
        status = target->asLocal()->transact(call.code, *in, &out);
        in.reset();
    }
    LateCommand::runQueued();
    // Not before: the object's next one-way call comes when this one's buffer is free.
    KernelCommands commands;
    commands.add(BC_FREE_BUFFER, call.data.ptr.buffer);
    if (oneway) {
        mDriver.write(commands);
    } else {
        answer(&commands, status, out);
    }
}

void KernelLink::answer(KernelCommands* commands, binder_status_t status,
                        const AParcel& out) noexcept {
    binder_transaction_data data{};
    std::optional<KernelParcel> parcel;
    if (status == STATUS_OK && !withoutThrowing([&] { parcel.emplace(out); })) {
        status = STATUS_NO_MEMORY;
    }
    if (parcel) {
        parcel->putInto(&data);
    } else {
        putStatus(status, &data);
    }
    // What becomes of the reply is its receiver's business.
    send(commands->add(BC_REPLY, data), nullptr);
}
