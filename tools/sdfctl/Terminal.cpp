// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tools/sdfctl/Completion.h"

namespace {

constexpr int kHistoryLines = 1000;

// In the directory where programs keep such things; empty when it cannot be made.
std::string historyFile() {
    const char* const state = getenv("XDG_STATE_HOME");
    const char* const home = getenv("HOME");
    std::filesystem::path directory;
    if (state != nullptr && *state != '\0') {
        directory = state;
    } else if (home != nullptr && *home != '\0') {
        directory = std::filesystem::path(home) / ".local" / "state";
    } else {
        return "";
    }
    directory /= "sdfctl";
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    return error ? "" : (directory / "history").string();
}

// The terminal, to be read without blocking and without others at it noticing. An interrupt drops
// what has been typed, also behind the back of poll(), which has just reported it: a read that
// blocks would then wait for the next key, deaf to the interrupt. One that blocks if the terminal
// cannot be opened again; negative if no descriptor is left.
int openInput() {
    const int input = open("/proc/self/fd/0", O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    return input >= 0 ? input : fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
}

Terminal& terminalOf(EditLine* line) {
    void* terminal = nullptr;
    el_get(line, EL_CLIENTDATA, &terminal);
    return *static_cast<Terminal*>(terminal);
}

void list(const std::vector<std::string>& candidates) {
    std::string text = "\n";
    for (const std::string& candidate : candidates) text += candidate + "  ";
    text += "\n";
    fputs(text.c_str(), stderr);
}

}  // namespace

bool Terminal::isThere() {
    return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

Terminal::Terminal(Session& session)
    : mSession(session),
      mHistory(history_init(), history_end),
      mLine(el_init("sdfctl", stdin, stderr, stderr), el_end),
      mHistoryFile(historyFile()),
      mInput(openInput()) {
    mSignals.unblock();
    if (!mHistory || !mLine || mInput < 0)
        throw std::runtime_error("cannot edit lines at this terminal");
    HistEvent event{};
    history(mHistory.get(), &event, H_SETSIZE, kHistoryLines);
    history(mHistory.get(), &event, H_SETUNIQUE, 1);
    if (!mHistoryFile.empty()) history(mHistory.get(), &event, H_LOAD, mHistoryFile.c_str());
    EditLine* const line = mLine.get();
    el_set(line, EL_CLIENTDATA, this);
    el_set(line, EL_PROMPT, prompt);
    el_set(line, EL_EDITOR, "emacs");
    el_set(line, EL_HIST, history, mHistory.get());
    el_set(line, EL_GETCFN, readCharacter);
    // The narrow function would make copies of the texts that nobody frees.
    el_wset(line, EL_ADDFN, L"complete-word", L"Completes the word before the cursor",
            completeWord);
    el_set(line, EL_BIND, "^I", "complete-word", nullptr);
    el_source(line, nullptr);
    mSession.printer().onLine([this] { clearLine(); });
}

Terminal::~Terminal() {
    mSession.printer().onLine({});
    HistEvent event{};
    if (!mHistoryFile.empty()) history(mHistory.get(), &event, H_SAVE, mHistoryFile.c_str());
    close(mInput);
}

bool Terminal::nextLine(std::string& line) {
    int length = 0;
    mSignals.block();
    el_resize(mLine.get());
    // Before the prompt: a key that ends the input is lost if the terminal still takes it itself.
    el_set(mLine.get(), EL_PREP_TERM, 1);
    mTyping = true;
    const char* const text = el_gets(mLine.get(), &length);
    mTyping = false;
    mSignals.unblock();
    if (mThrown) std::rethrow_exception(std::exchange(mThrown, nullptr));
    if (text == nullptr || length <= 0) {
        fputs("\n", stderr);
        return false;
    }
    line.assign(text, static_cast<size_t>(length));
    while (!line.empty() && line.back() == '\n') line.pop_back();
    remember(line);
    return true;
}

void Terminal::remember(const std::string& line) {
    if (line.find_first_not_of(' ') == std::string::npos) return;
    HistEvent event{};
    history(mHistory.get(), &event, H_ENTER, line.c_str());
}

char* Terminal::prompt(EditLine*) {
    static char text[] = "sdfctl> ";
    return text;
}

int Terminal::readCharacter(EditLine* line, wchar_t* character) {
    Terminal& terminal = terminalOf(line);
    try {
        unsigned char byte = 0;
        do {
            if (!terminal.waitForCharacter()) continue;
            const ssize_t length = read(terminal.mInput, &byte, 1);
            if (length == 0) return 0;
            if (length < 0 && errno != EINTR && errno != EAGAIN) return -1;
            // No command has letters beyond ASCII.
            if (length == 1 && byte < 0x80) break;
        } while (true);
        *character = static_cast<wchar_t>(byte);
        return 1;
    } catch (...) {
        terminal.mThrown = std::current_exception();
        return -1;
    }
}

// Prints what has come. Returns whether there is a character to read.
bool Terminal::waitForCharacter() {
    (void)mSession.inputReady(mInput, mSignals.fd());
    while (const int signal = mSignals.take()) obey(signal);
    if (mCleared) el_set(mLine.get(), EL_REFRESH);
    mCleared = false;
    pollfd typed{mInput, POLLIN, 0};
    return poll(&typed, 1, 0) > 0;
}

void Terminal::obey(int signal) {
    EditLine* const line = mLine.get();
    if (signal == SIGTSTP || signal == SIGQUIT) {
        el_set(line, EL_PREP_TERM, 0);  // as others expect the terminal
        Signals::letAct(signal);
        el_set(line, EL_PREP_TERM, 1);
    } else {
        el_resize(line);
    }
    if (signal == SIGCONT) {
        el_set(line, EL_PREP_TERM, 1);  // whatever a shell has left
        clearLine();
    }
}

void Terminal::clearLine() {
    if (!mTyping || mCleared) return;
    mCleared = true;
    fputs("\r\033[K", stderr);  // erases the line
}

unsigned char Terminal::completeWord(EditLine* line, int) {
    const LineInfo* const info = el_line(line);
    const std::string text(info->buffer, info->cursor);
    Terminal& terminal = terminalOf(line);
    try {
        const Completion found = complete(text);
        if (found.candidates.empty()) return CC_REFRESH_BEEP;
        std::string more = commonStart(found.candidates).substr(found.typed.size());
        if (found.candidates.size() == 1) more += " ";
        if (more.empty()) {
            list(found.candidates);
            return CC_REDISPLAY;
        }
        return el_insertstr(line, more.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    } catch (...) {
        terminal.mThrown = std::current_exception();
        return CC_ERROR;
    }
}
