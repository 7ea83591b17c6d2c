// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <termios.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/sdfctl/Record.h"
#include "tools/sdfctl/Waiter.h"

// The latest of each event that there is one of, or one for each filter, slot or key, as lines.
class Table {
  public:
    void put(const Event& event);
    // The latest message; empty for none.
    void note(const std::string& message) { mNote = message; }

    // As many lines as fit, each as long as fits.
    std::vector<std::string> lines(size_t rows, size_t columns) const;

  private:
    struct Section {
        const char* event;
        bool isOne;  // row
        std::vector<Fields> rows{};
    };

    Section* find(const std::string& event);

    std::vector<Section> mSections{{"session", true},       {"file", true},
                                   {"filter", false},       {"levels", false},
                                   {"queue-report", false}, {"auto-filter", false}};
    std::string mNote;
};

// Shows a table at the terminal that is standard output, in place. What would move the table is not
// shown while this object lives: what is typed, and log lines on a standard error that is a
// terminal.
class Screen {
  public:
    static bool isThere();

    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // Readable when there is something for obey().
    int fd() const { return mSignals.fd(); }
    // Does what is to be done about the signals of a terminal that have come.
    void obey();

    // Throws std::system_error when it cannot be written to.
    void draw(const Table& table);

  private:
    void hideTyping();
    void showTyping();

    const Signals mSignals{SIGTSTP, SIGQUIT, SIGCONT, SIGWINCH};
    int mErrors = -1;     // standard error; -1: where it was
    termios mModes{};     // of the terminal before
    std::string mBefore;  // what to write before the lines, to get where they belong
};
