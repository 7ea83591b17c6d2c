// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Table.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "tools/sdfctl/Printer.h"

namespace {

constexpr size_t kMostRows = 1000;  // of a section: keys of reports may be without end

bool isCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80;
}

// In characters, which are as wide as a column.
size_t widthOf(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), isCharacter));
}

std::string cut(const std::string& text, size_t width) {
    size_t end = 0;
    for (size_t count = 0; end < text.size(); ++end) {
        if (isCharacter(text[end]) && ++count > width) break;
    }
    return text.substr(0, end);
}

const std::string& cellOf(const Field& field) {
    static const std::string empty;
    return field.quiet ? empty : field.shown;
}

// The rows in columns below their keys.
void addRows(std::vector<std::string>& lines, const std::vector<Fields>& rows) {
    std::vector<std::string> texts(rows.size() + 1, " ");
    for (size_t column = 0; column < rows[0].size(); ++column) {
        std::vector<std::string> cells{rows[0][column].key};
        for (const Fields& row : rows) cells.push_back(cellOf(row[column]));
        size_t width = 0;
        for (const std::string& cell : cells) width = std::max(width, widthOf(cell));
        for (size_t i = 0; i < cells.size(); ++i) {
            texts[i] += " " + cells[i] + std::string(width - widthOf(cells[i]), ' ');
        }
    }
    for (std::string& text : texts) {
        text.erase(text.find_last_not_of(' ') + 1);
        lines.push_back(text);
    }
}

size_t orElse(size_t size, size_t usual) {
    return size == 0 ? usual : size;
}

}  // namespace

Table::Section* Table::find(const std::string& event) {
    const auto found = std::find_if(mSections.begin(), mSections.end(),
                                    [&](const Section& one) { return one.event == event; });
    return found == mSections.end() ? nullptr : &*found;
}

void Table::put(const Event& event) {
    Section& section = *find(event.name);
    std::vector<Fields>& rows = section.rows;
    const auto old = std::find_if(rows.begin(), rows.end(), [&](const Fields& row) {
        return section.isOne || row[0].shown == event.fields[0].shown;
    });
    const bool isGone = event.name == "filter" && event.has("removed");
    if (old != rows.end() && isGone) {
        rows.erase(old);
    } else if (old != rows.end()) {
        *old = event.fields;
    } else if (!isGone) {
        if (rows.size() == kMostRows) rows.erase(rows.begin());
        rows.push_back(event.fields);
    }
    if (event.name == "session" && event.has("down")) {
        for (const char* const ended : {"levels", "queue-report", "auto-filter"}) {
            find(ended)->rows.clear();
        }
    }
}

std::vector<std::string> Table::lines(size_t rows, size_t columns) const {
    std::vector<std::string> lines;
    for (const Section& section : mSections) {
        if (section.rows.empty()) continue;
        if (section.isOne) {
            lines.push_back(std::string(section.event) + ": " + shown(section.rows[0], " "));
        } else {
            lines.emplace_back(section.event);
            addRows(lines, section.rows);
        }
    }
    if (!mNote.empty()) lines.insert(lines.begin(), mNote);
    if (lines.size() > rows) {
        const size_t more = lines.size() - rows + 1;
        lines.resize(rows - 1);
        lines.push_back("... " + std::to_string(more) + " more lines");
    }
    for (std::string& line : lines) line = cut(line, columns);
    return lines;
}

bool Screen::isThere() {
    const char* const terminal = getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string(terminal) != "dumb";
}

Screen::Screen() {
    hideTyping();
    if (isatty(STDERR_FILENO) != 1) return;
    mErrors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (mErrors >= 0 && null >= 0) (void)dup2(null, STDERR_FILENO);
    if (null >= 0) close(null);
}

Screen::~Screen() {
    showTyping();
    if (mErrors < 0) return;
    (void)dup2(mErrors, STDERR_FILENO);
    close(mErrors);
}

void Screen::hideTyping() {
    if (tcgetattr(STDOUT_FILENO, &mModes) != 0) return;
    termios quiet = mModes;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    (void)tcsetattr(STDOUT_FILENO, TCSADRAIN, &quiet);
}

// What has been typed is nobody's.
void Screen::showTyping() {
    (void)tcsetattr(STDOUT_FILENO, TCSAFLUSH, &mModes);
}

void Screen::obey() {
    while (const int signal = mSignals.take()) {
        if (signal == SIGTSTP || signal == SIGQUIT) {
            showTyping();
            Signals::letAct(signal);
        } else if (signal == SIGCONT) {
            hideTyping();
            mBefore.clear();  // behind what others have written
        } else {
            mBefore = "\033[H\033[2J";  // clears the terminal, whose lines may lie otherwise
        }
    }
}

void Screen::draw(const Table& table) {
    winsize size{};
    (void)ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    // The last line stays free for the cursor, and so does the last column.
    const size_t rows = std::max<size_t>(orElse(size.ws_row, 24), 3) - 1;
    const size_t columns = std::max<size_t>(orElse(size.ws_col, 80), 2) - 1;
    const std::vector<std::string> lines = table.lines(rows, columns);
    std::string text = mBefore;
    for (const std::string& line : lines) text += line + "\033[K\n";  // erases the rest of it
    text += "\033[J";                                                 // and all below
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
    mBefore = lines.empty() ? "\r" : "\r\033[" + std::to_string(lines.size()) + "A";
}
