// SPDX-License-Identifier: Apache-2.0
#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace {

struct Pipe {
    int read = -1;
    int write = -1;

    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        read = ends[0];
        write = ends[1];
    }
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command,
                           const std::vector<std::string>& environment) {
    const Pipe input;
    const Pipe output;
    const Pipe errors;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.read, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.write, STDERR_FILENO);
    std::vector<std::string> words;
    if (!environment.empty()) words = {"/usr/bin/env"};
    words.insert(words.end(), environment.begin(), environment.end());
    words.insert(words.end(), command.begin(), command.end());
    const int error =
        posix_spawn(&mPid, words[0].c_str(), &actions, nullptr, pointersTo(words).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input.read);
    close(output.write);
    close(errors.write);
    if (error != 0) {
        close(input.write);
        close(output.read);
        close(errors.read);
        throw std::system_error(error, std::generic_category(), command[0]);
    }
    mInput = input.write;
    mOutput.fd = output.read;
    mErrors.fd = errors.read;
    mReader = std::thread([this] { readOutput(); });
}

ChildProcess::~ChildProcess() {
    closeInput();  // processes that it has started may still read from it
    kill();
}

void ChildProcess::signal(int number) const {
    if (mStatus < 0) ::kill(mPid, number);
}

int ChildProcess::wait() {
    if (mStatus >= 0) return mStatus;
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mReader.join();
    mStatus = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return mStatus;
}

int ChildProcess::kill() {
    signal(SIGKILL);
    return wait();
}

void ChildProcess::writeLine(const std::string& line) const {
    const std::string whole = line + "\n";
    if (write(mInput, whole.data(), whole.size()) != static_cast<ssize_t>(whole.size())) {
        throw std::system_error(errno, std::generic_category(), "write to a child");
    }
}

void ChildProcess::closeInput() {
    if (mInput >= 0) close(mInput);
    mInput = -1;
}

std::vector<std::string> ChildProcess::lines() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mOutput.lines;
}

std::vector<std::string> ChildProcess::errorLines() const {
    const std::lock_guard<std::mutex> guard(mLock);
    std::vector<std::string> lines = mErrors.lines;
#ifdef LUM_LEAK_CHECK
    // The one at a program's end interrupts the threads that wait then.
    const auto isOfTheCheck = [](const std::string& line) {
        return line.find("epoll_wait error") != std::string::npos;
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isOfTheCheck), lines.end());
#endif
    return lines;
}

bool ChildProcess::waitFor(const std::function<bool(const std::string&)>& wanted,
                           size_t times) const {
    return waitFor(mOutput, wanted, times);
}

bool ChildProcess::waitForLine(const std::string& line, size_t times) const {
    return waitFor(
        mOutput, [&](const std::string& written) { return written == line; }, times);
}

bool ChildProcess::waitForError(const std::string& line, size_t times) const {
    return waitFor(
        mErrors, [&](const std::string& written) { return written == line; }, times);
}

bool ChildProcess::waitFor(const Stream& stream,
                           const std::function<bool(const std::string&)>& wanted,
                           size_t times) const {
    std::unique_lock<std::mutex> guard(mLock);
    const auto enough = [&] {
        const std::vector<std::string>& lines = stream.lines;
        return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), wanted)) >= times;
    };
    mGrown.wait_for(guard, kLimit, [&] { return enough() || stream.ended; });
    return enough();
}

bool ChildProcess::hasEnded() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mOutput.ended;
}

bool ChildProcess::waitForOutputEnd() const {
    std::unique_lock<std::mutex> guard(mLock);
    return mGrown.wait_for(guard, kLimit, [&] { return mOutput.ended; });
}

void ChildProcess::readOutput() {
    // A descriptor of -1, which poll() passes over, stands for a stream that has ended.
    pollfd waited[] = {{mOutput.fd, POLLIN, 0}, {mErrors.fd, POLLIN, 0}};
    while (waited[0].fd >= 0 || waited[1].fd >= 0) {
        if (poll(waited, 2, -1) < 0) continue;
        if (waited[0].revents != 0) readSome(mOutput, false);
        if (waited[1].revents != 0) readSome(mErrors, true);
        if (mOutput.ended) waited[0].fd = -1;
        if (mErrors.ended) waited[1].fd = -1;
    }
}

void ChildProcess::readSome(Stream& stream, bool passOn) {
    char text[4096];
    const ssize_t length = read(stream.fd, text, sizeof text);
    if (length < 0 && errno == EINTR) return;
    const std::lock_guard<std::mutex> guard(mLock);
    if (length <= 0) {
        close(stream.fd);
        stream.ended = true;
    } else {
        const auto count = static_cast<size_t>(length);
        if (passOn && write(STDERR_FILENO, text, count) < 0) return;
        stream.rest.append(text, count);
        for (size_t end = 0; (end = stream.rest.find('\n')) != std::string::npos;) {
            stream.lines.push_back(stream.rest.substr(0, end));
            stream.rest.erase(0, end + 1);
        }
    }
    mGrown.notify_all();
}
