// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/KernelDriver.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <cerrno>

#include "utils/Log.h"

namespace {

// Where the driver puts what comes in; each end has an unused page. One-way calls get half of it.
constexpr size_t kBufferSize = size_t{1024} * 1024 - size_t{2} * 4096;

KernelDriver* gDriver = nullptr;

}  // namespace

KernelReturns& KernelReturns::ofThread() {
    static thread_local KernelReturns tReturns;
    return tReturns;
}

bool KernelReturns::next() {
    while (mPosition < mSize) {
        memcpy(&mCommand, mBytes.data() + mPosition, sizeof mCommand);
        mPosition += sizeof mCommand;
        mArgument = mBytes.data() + mPosition;
        if (mCommand == BR_ERROR) {
            // What belongs to it, the driver leaves out.
            LUM_LOGE(
                "binder: the driver reports an error; it may have no memory to announce a death");
            continue;
        }
        mPosition += _IOC_SIZE(mCommand);
        if (mCommand != BR_NOOP && mCommand != BR_CLEAR_DEATH_NOTIFICATION_DONE) return true;
    }
    return false;
}

uint8_t* KernelReturns::space() {
    size_t kept = 0;
    while (next()) {
        const size_t size = sizeof mCommand + _IOC_SIZE(mCommand);
        memmove(mBytes.data() + kept, mBytes.data() + mPosition - size, size);
        kept += size;
    }
    mSize = kept;
    mPosition = 0;
    return mBytes.size() - mSize < kReadSize ? nullptr : mBytes.data() + mSize;
}

KernelDriver::KernelDriver(const std::string& device) {
    mFd.reset(open(device.c_str(), O_RDWR | O_CLOEXEC));
    if (!mFd.valid()) {
        LUM_LOGE("binder: cannot open %s (%s)", device.c_str(), strerror(errno));
        return;
    }
    if (!hasVersion()) {
        LUM_LOGE("binder: %s is no binder driver of version %d", device.c_str(),
                 BINDER_CURRENT_PROTOCOL_VERSION);
        mFd.reset();
        return;
    }
    const int error = prepare();
    if (error == 0) return;
    LUM_LOGE("binder: cannot use %s (%s)", device.c_str(), strerror(error));
    mFd.reset();
}

int KernelDriver::prepare() {
    // Unmapped with the process, as its threads run until then.
    if (mmap(nullptr, kBufferSize, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, mFd.get(), 0) ==
        MAP_FAILED) {
        return errno;
    }
    const int error = pthread_key_create(&mUsed, &KernelDriver::endThread);
    if (error != 0) return error;
    // The child's copy of the descriptor would keep the driver from noticing that this process has
    // died, and what it did there would count as done here.
    gDriver = this;
    return pthread_atfork(nullptr, nullptr, [] { gDriver->mFd.reset(); });
}

bool KernelDriver::hasVersion() const {
    binder_version version{};
    return ioctl(mFd.get(), BINDER_VERSION, &version) == 0 &&
           version.protocol_version == BINDER_CURRENT_PROTOCOL_VERSION;
}

// The driver keeps what it knows of a thread until it hears that the thread has ended.
void KernelDriver::endThread(void* driver) noexcept {
    int unused = 0;
    ioctl(static_cast<KernelDriver*>(driver)->mFd.get(), BINDER_THREAD_EXIT, &unused);
}

bool KernelDriver::write(KernelCommands commands) {
    while (exchange(&commands, nullptr) == STATUS_OK) {
        if (commands.size() == 0) return true;
        // An error for this thread is in the way. It is there: reading it does not wait.
        KernelCommands none;
        if (exchange(&none) != STATUS_OK) return false;
    }
    return false;
}

binder_status_t KernelDriver::exchange(KernelCommands* commands) {
    return exchange(commands, &KernelReturns::ofThread());
}

binder_status_t KernelDriver::exchange(KernelCommands* commands, KernelReturns* returns) {
    if (!mFd.valid()) return STATUS_DEAD_OBJECT;
    // Again also for a thread that is ending: what its other destructors do comes here. A call can
    // be refused when there is no memory for that, the end of a reference cannot: the driver knows
    // of the thread until the process ends then.
    if (pthread_getspecific(mUsed) == nullptr && pthread_setspecific(mUsed, this) != 0 &&
        returns != nullptr) {
        LUM_LOGE("binder: no memory for a thread that calls");
        return STATUS_NO_MEMORY;
    }
    binder_write_read exchange{};
    exchange.write_buffer = reinterpret_cast<uintptr_t>(commands->data());
    exchange.write_size = commands->size();
    if (returns != nullptr) {
        uint8_t* const space = returns->space();
        // No driver has that much for a thread which reads nothing.
        if (space == nullptr) return STATUS_DEAD_OBJECT;
        exchange.read_buffer = reinterpret_cast<uintptr_t>(space);
        exchange.read_size = KernelReturns::kReadSize;
    }
    // What has been consumed is kept when a signal interrupts it.
    while (ioctl(mFd.get(), BINDER_WRITE_READ, &exchange) != 0) {
        if (errno == EINTR) continue;
        const int error = errno;
        LUM_LOGE("binder: the driver refuses to go on (%s)", strerror(error));
        return error == ENOMEM ? STATUS_NO_MEMORY : STATUS_DEAD_OBJECT;
    }
    commands->removeFirst(static_cast<size_t>(exchange.write_consumed));
    if (returns != nullptr) returns->mSize += static_cast<size_t>(exchange.read_consumed);
    return STATUS_OK;
}

bool KernelDriver::setMaxThreads(uint32_t count) {
    return ioctl(mFd.get(), BINDER_SET_MAX_THREADS, &count) == 0;
}

int KernelDriver::setContextManager(const flat_binder_object& object) {
    flat_binder_object manager = object;
    return ioctl(mFd.get(), BINDER_SET_CONTEXT_MGR_EXT, &manager) == 0 ? 0 : errno;
}
