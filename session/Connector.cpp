// SPDX-License-Identifier: Apache-2.0
#include "session/Connector.h"

#include <lum_sdf_session.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include "session/Inbox.h"
#include "session/Lane.h"

namespace {

// Signals are the application's: a thread made while this lives blocks all but those of a fault, so
// that a crash reaches the process's crash handler, and those that the C library keeps for itself.
class NoSignals {
  public:
    NoSignals() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&blocked, fault);
        }
        constexpr int kFirstRealTime = 32;
        for (int kept = kFirstRealTime; kept < SIGRTMIN; ++kept) sigdelset(&blocked, kept);
        pthread_sigmask(SIG_SETMASK, &blocked, &mBefore);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

  private:
    sigset_t mBefore{};
};

// The library ends the process when there are no descriptors for its event loop.
bool descriptorsAreLeft() {
    std::array<int, 8> spare{};
    bool left = true;
    for (int& fd : spare) {
        fd = eventfd(0, EFD_CLOEXEC);
        left = left && fd >= 0;
    }
    for (const int fd : spare) {
        if (fd >= 0) close(fd);
    }
    return left;
}

long long makeClient(const Lane& lane) {
    if (!descriptorsAreLeft()) return SDF_V2_INTERNAL_ERROR;
    return createSdfClient(lane.status);
}

void destroyClient() {
    // Short of memory the client stays, and with it what a next one must not meet.
    while (destroySdfClient() == SDF_V2_INTERNAL_ERROR) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// A request that could not be valid gets that far only where there is a client.
bool hasClient() {
    return sdfUpdateOod(0, SDF_OOD_UNSPECIFIED_LVL) != SDF_V2_INVALID_OPERATION;
}

}  // namespace

Connector& Connector::instance() {
    static Connector& connector = *new Connector;
    return connector;
}

int Connector::open() {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mSession == Session::kOpen) return SDF_SESSION_EXISTS;
    if (mSession == Session::kClosing) return SDF_SESSION_CLOSING;
    if (hasClient()) return SDF_SESSION_CLIENT_EXISTS;
    try {
        const NoSignals noSignals;
        std::thread([this] { run(); }).detach();
    } catch (const std::exception&) {
        return SDF_SESSION_NO_RESOURCES;
    }
    mSession = Session::kOpen;
    return 0;
}

void Connector::connect() {
    const std::lock_guard<std::mutex> guard(mLock);
    mWanted = true;
    mChanged.notify_all();
}

int Connector::lane() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mLane;
}

bool Connector::close(unsigned int milliseconds) {
    std::unique_lock<std::mutex> lock(mLock);
    mSession = Session::kClosing;
    mChanged.notify_all();
    return mChanged.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [this] { return mSession == Session::kNone; });
}

void Connector::run() {
    pthread_setname_np(pthread_self(), "lum_sdf_session");
    bool client = false;
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mChanged.wait(lock, [this] { return mWanted || mSession == Session::kClosing; });
        mWanted = false;
        lock.unlock();
        if (client) destroyClient();
        lock.lock();
        if (mSession == Session::kClosing) break;
        mLane = (mLane + 1) % Lane::kLanes;
        const int lane = mLane;
        lock.unlock();
        Inbox::instance().accept(lane);
        const long long result = makeClient(Lane::at(lane));
        client = client || result == SDF_V2_SUCCESS;
        Inbox::instance().push(lane, ClientMadeEvent{result});
        lock.lock();
    }
    mSession = Session::kNone;
    mChanged.notify_all();
}
