// SPDX-License-Identifier: Apache-2.0
// The floor of a request: what a request through the library stands for, with the same hand-offs
// between threads and the same writes of as many bytes, and nothing else.
//
//   application -> queue with a descriptor -> thread that sends, and waits for the reply
//   service: thread that reads, and sends the answer and the reply
//   thread that reads, and calls back; or, with a reply -> the thread that waits
//
// And the same with threads that do nothing but read, on both sides: two hand-offs more.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <queue>
#include <thread>

#include "bench/requests.h"

namespace {

enum Kind : uint32_t { kCall, kAnswer, kReply, kEnd };

// As long as a call through the library.
struct Frame {
    Kind kind;
    std::array<char, 172> rest;
};

// From one thread to another.
class HandOff {
  public:
    void push(Kind kind) {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mKinds.push(kind);
        }
        mChanged.notify_one();
    }
    Kind pop() {
        std::unique_lock<std::mutex> lock(mMutex);
        while (mKinds.empty()) mChanged.wait(lock);
        const Kind kind = mKinds.front();
        mKinds.pop();
        return kind;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::queue<Kind> mKinds;
};

int waitFor(int fd) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    return epoll;
}

void sendFrame(int socket, Kind kind) {
    const Frame frame{kind, {}};
    if (send(socket, &frame, sizeof frame, MSG_NOSIGNAL) != sizeof frame) abort();
}

// Until the other side ends.
template <typename Take>
void readFrames(int socket, const Take& take) {
    const int epoll = waitFor(socket);
    std::array<Frame, 64> frames;
    for (;;) {
        epoll_event event{};
        epoll_wait(epoll, &event, 1, -1);
        const ssize_t size = recv(socket, frames.data(), sizeof frames, MSG_DONTWAIT);
        if (size <= 0) break;
        const auto count = static_cast<size_t>(size) / sizeof(Frame);
        for (size_t i = 0; i < count; ++i) take(frames[i].kind);
    }
    close(epoll);
}

void answer() {
    sendFrame(Helper::kGiven, kAnswer);
    sendFrame(Helper::kGiven, kReply);
}

void serve(const std::string& /*argument*/) {
    Helper::report(0);
    readFrames(Helper::kGiven, [](Kind) { answer(); });
    exit(0);
}

void serveApart(const std::string& /*argument*/) {
    HandOff calls;
    std::thread([&calls] {
        for (;;) {
            calls.pop();
            answer();
        }
    }).detach();
    Helper::report(0);
    readFrames(Helper::kGiven, [&calls](Kind kind) { calls.push(kind); });
    exit(0);
}
const bool gRoles = Helper::addRole("floor", serve) && Helper::addRole("floor apart", serveApart);

struct Connection {
    Connection() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) abort();
    }
    ~Connection() {
        close(sockets[0]);
        close(sockets[1]);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    std::array<int, 2> sockets{};
};

// kApart: whether the threads that read do nothing else.
template <bool kApart>
class Floor : Connection {
  public:
    Floor()
        : mService(kApart ? "floor apart" : "floor", "", sockets[1]),
          mQueueEvent(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK)) {
        mThreads.emplace_back([this] { sendCalls(); });
        mThreads.emplace_back([this] {
            readFrames(sockets[0], [this](Kind kind) { onFrame(kind); });
            mReplies.push(kEnd);  // the last answer comes before its reply
        });
        if (!kApart) return;
        mThreads.emplace_back([this] {
            while (mCallbacks.pop() != kEnd) mAnswers.add();
        });
    }
    ~Floor() {
        post(kEnd);
        shutdown(sockets[0], SHUT_RDWR);
        mCallbacks.push(kEnd);
        for (std::thread& thread : mThreads) thread.join();
        close(mQueueEvent);
    }
    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;

    std::vector<pid_t> others() const { return {mService.pid()}; }
    void send() { post(kCall); }
    void wait(int count) const { mAnswers.wait(count); }

  private:
    void onFrame(Kind kind) {
        if (kind != kAnswer) {
            mReplies.push(kind);
        } else if (kApart) {
            mCallbacks.push(kind);
        } else {
            mAnswers.add();
        }
    }

    void post(Kind kind) {
        const std::lock_guard<std::mutex> lock(mQueueLock);
        mQueue.push(kind);
        const uint64_t one = 1;
        if (write(mQueueEvent, &one, sizeof one) != sizeof one) abort();
    }

    void sendCalls() {
        const int epoll = waitFor(mQueueEvent);
        for (bool ended = false; !ended;) {
            epoll_event event{};
            epoll_wait(epoll, &event, 1, -1);
            uint64_t count = 0;
            std::unique_lock<std::mutex> lock(mQueueLock);
            while (!ended && read(mQueueEvent, &count, sizeof count) == sizeof count) {
                ended = mQueue.front() == kEnd;
                mQueue.pop();
                lock.unlock();
                if (!ended) {
                    sendFrame(sockets[0], kCall);
                    mReplies.pop();
                }
                lock.lock();
            }
        }
        close(epoll);
    }

    Helper mService;
    Answers mAnswers;
    const int mQueueEvent;
    std::mutex mQueueLock;
    std::queue<Kind> mQueue;
    HandOff mReplies;
    HandOff mCallbacks;
    std::vector<std::thread> mThreads;
};
const bool gFloors = registerRequests<Floor<false>>("floor", {1, 64}) &&
                     registerRequests<Floor<true>>("readers apart", {1, 64});

}  // namespace
