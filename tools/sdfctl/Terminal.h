// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <histedit.h>

#include <exception>
#include <memory>
#include <string>

#include "tools/sdfctl/Session.h"

// A user at a terminal: lines with editing, completion and history. What happens meanwhile is
// printed above the line being typed. The prompt and the line go to standard error.
class Terminal {
  public:
    // Reads the history. session: must outlive this object.
    explicit Terminal(Session& session);
    // Writes the history.
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Whether there is one: standard input and standard error are a terminal.
    static bool isThere();

    // Asks for a line. Returns false at the end of the input. Throws Interrupted, and what printing
    // throws.
    bool nextLine(std::string& line);

  private:
    static char* prompt(EditLine* line);
    // Called by the line editor for each character. Nothing may be thrown through it.
    static int readCharacter(EditLine* line, wchar_t* character);
    static unsigned char completeWord(EditLine* line, int key);

    bool waitForCharacter();
    void obey(int signal);
    void clearLine();
    void remember(const std::string& line);

    Session& mSession;
    std::unique_ptr<History, void (*)(History*)> mHistory;
    std::unique_ptr<EditLine, void (*)(EditLine*)> mLine;
    const std::string mHistoryFile;  // empty: none
    const int mInput;                // what is read
    // That a terminal where a line is typed needs something done for, while one is. The line
    // editor's own handlers do it once in a line, and do not show the line again.
    const Signals mSignals{SIGTSTP, SIGQUIT, SIGCONT, SIGWINCH};
    bool mTyping = false;
    bool mCleared = false;
    std::exception_ptr mThrown;  // while the line editor was running
};
