// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "tools/sdfctl/Record.h"

// Text from elsewhere as it is shown to people: control characters, which a terminal would act on,
// as \xNN, and of what nobody would read only beginning and end.
std::string printable(const std::string& text);

// Writes to standard output what happens, one whole line each. For one thread.
class Printer {
  public:
    // json: one object a line, and nothing else, instead of text for people.
    explicit Printer(bool json) : mJson(json) {}

    bool isJson() const { return mJson; }

    // Each throws std::system_error when standard output cannot be written to.
    void print(const Call& call) const;
    void print(const Event& event) const;
    // text: for people, may have several lines; object: the same for programs.
    void print(const std::string& text, const Fields& object) const;
    // Writes text that is in the form asked for already, as it is.
    void copy(const std::string& text) const;
    // Text for people, on standard error when standard output is for programs. Newlines at its end
    // are left out.
    void help(std::string text) const;

    // Called before each line, to make space for it where somebody is typing. May be empty.
    void onLine(std::function<void()> beforeLine) { mBeforeLine = std::move(beforeLine); }

  private:
    void write(const std::string& line) const { copy(line + "\n"); }

    const bool mJson;
    std::function<void()> mBeforeLine;
};
