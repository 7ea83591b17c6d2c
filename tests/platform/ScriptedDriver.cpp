// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/ScriptedDriver.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

using lum::utils::MutexLock;

namespace {

// Kept without memory, of which a test may leave none.
constexpr size_t kMostCommands = 1000;

thread_local bool tOfPool = false;
thread_local bool tNoData = false;

}  // namespace

ThreadDataRefusal::ThreadDataRefusal() {
    tNoData = true;
}
ThreadDataRefusal::~ThreadDataRefusal() {
    tNoData = false;
}

ScriptedDriver& ScriptedDriver::instance() {
    static ScriptedDriver* const sDriver = new ScriptedDriver();
    return *sDriver;
}

void ScriptedDriver::reset() {
    const MutexLock lock(mLock);
    mCommands.clear();
    mCommands.reserve(kMostCommands);
    mAnswers.clear();
    mPoolAnswers.clear();
    mReadsToHoldUp = -1;
    mRefuses = false;
}

void ScriptedDriver::answer(const KernelCommands& answer) {
    const MutexLock lock(mLock);
    mAnswers.push_back(answer);
}

void ScriptedDriver::answerPool(const KernelCommands& answer) {
    const MutexLock lock(mLock);
    mPoolAnswers.push_back(answer);
    mAnswered.notifyAll();
}

void ScriptedDriver::holdUp(int reads) {
    const MutexLock lock(mLock);
    mReadsToHoldUp = reads;
}

void ScriptedDriver::refuseOnce() {
    const MutexLock lock(mLock);
    mRefuses = true;
}

bool ScriptedDriver::hasRefused() const {
    const MutexLock lock(mLock);
    return !mRefuses;
}

std::vector<ScriptedDriver::Command> ScriptedDriver::commands() const {
    const MutexLock lock(mLock);
    return mCommands;
}

size_t ScriptedDriver::count(uint32_t code) const {
    const std::vector<Command> all = commands();
    return static_cast<size_t>(std::count_if(
        all.begin(), all.end(), [=](const Command& command) { return command.code == code; }));
}

size_t ScriptedDriver::count(uint32_t code, uint64_t argument) const {
    const std::vector<Command> all = commands();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [=](const Command& command) {
        return command.code == code && command.argument == argument;
    }));
}

void ScriptedDriver::keep(const binder_write_read& exchange) {
    const auto* from = addressOf<const uint8_t>(exchange.write_buffer);
    const uint8_t* const end = from + exchange.write_size;
    while (from != end && mCommands.size() < kMostCommands) {
        Command command{};
        memcpy(&command.code, from, sizeof command.code);
        from += sizeof command.code;
        const size_t size = _IOC_SIZE(command.code);
        const size_t wanted = std::min(size, sizeof command.argument);
        memcpy(&command.argument, from + size - wanted, wanted);
        if (command.code == BC_TRANSACTION || command.code == BC_REPLY) {
            binder_transaction_data data;
            memcpy(&data, from, sizeof data);
            command.argument = data.code;
            if ((data.flags & TF_STATUS_CODE) != 0) {
                memcpy(&command.status, addressOf<const void>(data.data.ptr.buffer),
                       sizeof command.status);
            }
        }
        from += size;
        tOfPool = tOfPool || command.code == BC_ENTER_LOOPER || command.code == BC_REGISTER_LOOPER;
        mCommands.push_back(command);
    }
}

bool ScriptedDriver::carryOut(int fd, binder_write_read* exchange) {
    if (fd == mFd && std::exchange(mRefuses, false)) return false;
    if (mReadsToHoldUp == 0 && !tOfPool) return true;
    if (fd == mFd) keep(*exchange);
    exchange->write_consumed = exchange->write_size;
    return true;
}

bool ScriptedDriver::read(int fd, binder_write_read* exchange) {
    if (!tOfPool && mReadsToHoldUp >= 0 && mReadsToHoldUp-- == 0) {
        mAnswers.push_front(KernelCommands()
                                .add(BR_NOOP)
                                .add(BR_CLEAR_DEATH_NOTIFICATION_DONE, binder_uintptr_t{})
                                .add(BR_ERROR));
    }
    std::deque<KernelCommands>& answers = tOfPool ? mPoolAnswers : mAnswers;
    while (tOfPool && (fd != mFd || answers.empty())) mAnswered.wait(mLock);
    if (answers.empty()) return false;
    memcpy(addressOf<void>(exchange->read_buffer), answers.front().data(), answers.front().size());
    exchange->read_consumed = answers.front().size();
    answers.pop_front();
    return true;
}

int ScriptedDriver::ioctl(int fd, unsigned long request, void* argument) {
    const MutexLock lock(mLock);
    if (request == BINDER_VERSION) {
        mFd = fd;
        static_cast<binder_version*>(argument)->protocol_version = BINDER_CURRENT_PROTOCOL_VERSION;
    }
    if (request != BINDER_WRITE_READ) return 0;
    auto& exchange = *static_cast<binder_write_read*>(argument);
    if (!carryOut(fd, &exchange)) {
        errno = ENOMEM;
        return -1;
    }
    if (exchange.read_size == 0 || read(fd, &exchange)) return 0;
    ADD_FAILURE() << "waits for more than the driver has";
    errno = EIO;
    return -1;
}

// The linker turns every call of ioctl and pthread_setspecific into one of these.
extern "C" int __wrap_ioctl(int fd, unsigned long request, void* argument);
int __wrap_ioctl(int fd, unsigned long request, void* argument) {
    return ScriptedDriver::instance().ioctl(fd, request, argument);
}

extern "C" int __real_pthread_setspecific(pthread_key_t key, const void* value);
extern "C" int __wrap_pthread_setspecific(pthread_key_t key, const void* value);
int __wrap_pthread_setspecific(pthread_key_t key, const void* value) {
    return tNoData ? ENOMEM : __real_pthread_setspecific(key, value);
}
