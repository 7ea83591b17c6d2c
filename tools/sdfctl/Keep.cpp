// SPDX-License-Identifier: Apache-2.0
// "keep" and "watch".
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <system_error>

#include "tools/sdfctl/FileWatch.h"
#include "tools/sdfctl/Keeper.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Programs.h"
#include "tools/sdfctl/Table.h"

namespace {

constexpr char kAboutKeep[] =
    R"(Keeps the flows and settings of a file with the service until it is ended by SIGINT or SIGTERM, also when
the service is lost and comes back, and prints each change of state. When the file has changed, or upon
SIGHUP, it is read again, and the difference is sent; with an error in it all stays as it was.)";
constexpr char kAboutWatch[] =
    R"(Shows the session with the service and what comes of it until it is ended: at a terminal as a table,
otherwise line by line. With a file its flows and settings are kept with the service, as "sdfctl keep"
does; without one the filters that the service makes on its own are asked for.)";
constexpr char kForm[] =
    R"(The file is a JSON object; docs/flows.md and flows.schema.json describe it. Exit status: 128 and the
signal's number when ended by SIGINT or SIGTERM, as it should be; 1 something failed; 2 the command line
or the file is wrong.)";

std::string readFile(const std::string& path) {
    constexpr size_t kMost = size_t{16} * 1024 * 1024;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw UsageError(path + ": " + strerror(errno));
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fdopen(fd, "r"), fclose);
    std::string text;
    char part[65536];
    for (size_t length; (length = fread(part, 1, sizeof part, file.get())) > 0;) {
        text.append(part, length);
        if (text.size() > kMost) throw UsageError(path + ": is larger than 16 MiB");
    }
    if (ferror(file.get()) != 0) throw UsageError(path + ": " + strerror(errno));
    return text;
}

std::chrono::milliseconds inMilliseconds(double seconds) {
    constexpr double kMost = 86400;
    return std::chrono::milliseconds(static_cast<long>(std::min(seconds, kMost) * 1000));
}

// The file, and what was last in it.
class Source {
  public:
    explicit Source(const std::string& path) : mPath(path), mWatch(path) {}

    const FileWatch& watch() const { return mWatch; }
    // SIGHUP, upon which it is to be read again.
    const Signals& hangUp() const { return mHangUp; }
    const std::string& path() const { return mPath; }

    // Throws UsageError. Nothing where it has not changed.
    std::optional<Wishes> readIfChanged() {
        std::string text = readFile(mPath);
        if (text == mText) return std::nullopt;
        mText = std::move(text);
        return readWishes(*mText, mPath);
    }
    Wishes read() {
        mText.reset();
        return *readIfChanged();
    }

  private:
    const std::string mPath;
    const FileWatch mWatch;
    const Signals mHangUp{SIGHUP};
    std::optional<std::string> mText;
};

class Run {
  public:
    Run(const Settings& settings, const std::string& path, bool atTerminal)
        : mSettings(settings), mPrinter(settings.json) {
        if (!path.empty()) mSource = std::make_unique<Source>(path);
        if (atTerminal) mScreen = std::make_unique<Screen>();
    }

    int run() {
        // Before there is a session: a file that is wrong from the start ends the run.
        Wishes wishes;
        wishes.autoFilters = true;
        if (mSource) wishes = mSource->read();
        const Waiter waiter(mSource ? Waiter::HangUp::kIsOthers : Waiter::HangUp::kEnds);
        Keeper keeper([this](const Event& event) { show(event); });
        int status = kExitSuccess;
        try {
            want(keeper, std::move(wishes));
            serve(keeper, waiter);
        } catch (const Interrupted& interrupted) {
            status = kExitSignal + interrupted.signal;
        }
        mScreen.reset();
        waiter.letSignalsAct();
        const double limit = mSettings.endLimit();
        if (!keeper.session().close(inMilliseconds(limit))) {
            complain(notDestroyedText("it has not left", limit));
        }
        return status;
    }

  private:
    [[noreturn]] void serve(Keeper& keeper, const Waiter& waiter) {
        const int session = keeper.session().fd();
        const int file = mSource ? mSource->watch().fd() : -1;
        const int hangUp = mSource ? mSource->hangUp().fd() : -1;
        const int screen = mScreen ? mScreen->fd() : -1;
        for (;;) {
            if (mScreen) mScreen->draw(mTable);
            waiter.wait({}, {session, file, hangUp, screen});
            keeper.session().dispatch();
            if (mScreen) mScreen->obey();
            const bool changed = mSource && mSource->watch().take();
            const bool asked = mSource && mSource->hangUp().take() != 0;
            if (asked || changed) readAgain(keeper, asked);
        }
    }

    void readAgain(Keeper& keeper, bool asked) try {
        std::optional<Wishes> wishes = asked ? mSource->read() : mSource->readIfChanged();
        if (wishes) want(keeper, std::move(*wishes));
    } catch (const UsageError& error) {
        complain(error.what());
    }

    void want(Keeper& keeper, Wishes wishes) {
        const auto count = static_cast<unsigned int>(wishes.filters.size());
        const Keeper::Difference difference = keeper.want(std::move(wishes));
        mTable.note("");
        if (!mSource) return;
        show({"file",
              {plain("path", printable(mSource->path())), plain("filters", count),
               plain("added", difference.added), plain("removed", difference.removed),
               plain("changed", difference.changed)}});
    }

    void show(const Event& event) {
        if (mScreen) {
            mTable.put(event);
        } else {
            mPrinter.print(event);
        }
    }

    void complain(const std::string& message) {
        if (mScreen) {
            mTable.note("sdfctl: " + printable(message));
        } else {
            fprintf(stderr, "sdfctl: %s\n", printable(message).c_str());
        }
    }

    const Settings mSettings;
    const Printer mPrinter;
    Table mTable;
    std::unique_ptr<Screen> mScreen;  // none: lines are printed
    std::unique_ptr<Source> mSource;  // none: nothing is kept
};

std::function<int(const Settings&)> declare(Arguments& arguments, bool isWatch) {
    const auto path = std::make_shared<std::string>();
    arguments.text(
        "FILE", *path, {}, "the path of a file", "The flows and settings",
        [](const std::string& text) { return !text.empty(); }, !isWatch);
    return [=](const Settings& settings) {
        const bool atTerminal = isWatch && !settings.json && Screen::isThere();
        return Run(settings, *path, atTerminal).run();
    };
}

}  // namespace

Program keepProgram() {
    return {"keep", "Keep the flows and settings of a file with the service", kAboutKeep, kForm,
            [](Arguments& arguments) { return declare(arguments, false); }};
}

Program watchProgram() {
    return {"watch", "Show the session with the service as it changes", kAboutWatch, kForm,
            [](Arguments& arguments) { return declare(arguments, true); }};
}
