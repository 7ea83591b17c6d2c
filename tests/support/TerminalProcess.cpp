// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TerminalProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "tests/support/ChildProcess.h"

bool TerminalProcess::canBe() {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0) perror("there are no pseudo-terminals (in a chroot, mount devpts)");
    if (terminal >= 0) close(terminal);
    return terminal >= 0;
}

TerminalProcess::TerminalProcess(const std::vector<std::string>& command,
                                 const std::vector<std::string>& environment) {
    // Ready before the fork: what comes after it must not need memory.
    std::vector<std::string> words{"/usr/bin/env"};
    words.insert(words.end(), environment.begin(), environment.end());
    words.insert(words.end(), command.begin(), command.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    winsize size{};
    size.ws_row = 50;
    size.ws_col = 500;  // so wide that no line is broken
    mPid = forkpty(&mTerminal, nullptr, nullptr, &size);
    if (mPid < 0) throw std::system_error(errno, std::generic_category(), "forkpty");
    if (mPid == 0) {
        execv(pointers[0], pointers.data());
        _exit(127);
    }
}

TerminalProcess::~TerminalProcess() {
    if (mPid > 0) kill(mPid, SIGKILL);
    if (mPid > 0) wait();
    close(mTerminal);
}

void TerminalProcess::type(const std::string& keys) const {
    if (write(mTerminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
        throw std::system_error(errno, std::generic_category(), "write to a terminal");
    }
}

void TerminalProcess::resize(unsigned short rows, unsigned short columns) const {
    const winsize size{rows, columns, 0, 0};
    if (ioctl(mTerminal, TIOCSWINSZ, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "size of a terminal");
    }
}

bool TerminalProcess::isOrdinary() const {
    termios modes{};
    if (tcgetattr(mTerminal, &modes) != 0) {
        throw std::system_error(errno, std::generic_category(), "modes of a terminal");
    }
    return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
}

bool TerminalProcess::waitFor(const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + ChildProcess::kLimit;
    for (;;) {
        const size_t found = mWritten.find(text);
        if (found != std::string::npos) {
            mWritten.erase(0, found + text.size());
            return true;
        }
        if (std::chrono::steady_clock::now() > end || !readSome(100)) {
            // What says why; the caller only knows that it failed.
            fprintf(stderr, "not \"%s\" but \"%s\"\n", text.c_str(), mWritten.c_str());
            return false;
        }
    }
}

// Returns false when there is nothing more to come.
bool TerminalProcess::readSome(int milliseconds) {
    pollfd waited{mTerminal, POLLIN, 0};
    if (poll(&waited, 1, milliseconds) <= 0) return true;
    char text[4096];
    const ssize_t length = read(mTerminal, text, sizeof text);
    if (length < 0 && errno == EINTR) return true;
    if (length > 0) mWritten.append(text, static_cast<size_t>(length));
    return length > 0;  // EIO: the other side is closed
}

int TerminalProcess::wait() {
    const auto end = std::chrono::steady_clock::now() + ChildProcess::kLimit;
    while (readSome(100)) {  // who does not read holds it up
        if (std::chrono::steady_clock::now() > end) kill(mPid, SIGKILL);
    }
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
