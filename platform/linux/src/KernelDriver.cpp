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
    if (mPosition >= mSize) return false;
    memcpy(&mCommand, mBytes.data() + mPosition, sizeof mCommand);
    mPosition += sizeof mCommand;
    mArgument = mBytes.data() + mPosition;
    // The driver leaves out what belongs to an error.
    if (mCommand != BR_ERROR) mPosition += _IOC_SIZE(mCommand);
    return true;
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
    // Unmapped with the process, as its threads run until then.
    if (mmap(nullptr, kBufferSize, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, mFd.get(), 0) ==
            MAP_FAILED ||
        pthread_key_create(&mUsed, &KernelDriver::endThread) != 0) {
        LUM_LOGE("binder: no memory for the buffer of %s (%s)", device.c_str(), strerror(errno));
        mFd.reset();
        return;
    }
    // The child's copy of the descriptor would keep the driver from noticing that this process has
    // died, and what it did there would count as done here.
    gDriver = this;
    pthread_atfork(nullptr, nullptr, [] { gDriver->mFd.reset(); });
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

bool KernelDriver::exchange(const KernelCommands& commands, KernelReturns* returns) {
    if (!mFd.valid()) return false;
    // Again also for a thread that is ending: what its other destructors do comes here.
    if (pthread_getspecific(mUsed) == nullptr) pthread_setspecific(mUsed, this);
    binder_write_read exchange{};
    exchange.write_buffer = reinterpret_cast<uintptr_t>(commands.data());
    exchange.write_size = commands.size();
    if (returns != nullptr) {
        exchange.read_buffer = reinterpret_cast<uintptr_t>(returns->mBytes.data());
        exchange.read_size = returns->mBytes.size();
        returns->mSize = 0;
        returns->mPosition = 0;
    }
    // What has been consumed is kept when a signal interrupts it.
    while (ioctl(mFd.get(), BINDER_WRITE_READ, &exchange) != 0) {
        if (errno == EINTR) continue;
        LUM_LOGE("binder: the driver refuses to go on (%s)", strerror(errno));
        return false;
    }
    if (returns != nullptr) returns->mSize = static_cast<size_t>(exchange.read_consumed);
    return true;
}

bool KernelDriver::setMaxThreads(uint32_t count) {
    return ioctl(mFd.get(), BINDER_SET_MAX_THREADS, &count) == 0;
}

int KernelDriver::setContextManager(const flat_binder_object& object) {
    flat_binder_object manager = object;
    return ioctl(mFd.get(), BINDER_SET_CONTEXT_MGR_EXT, &manager) == 0 ? 0 : errno;
}
