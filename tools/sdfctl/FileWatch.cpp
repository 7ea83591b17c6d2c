// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/FileWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>

#include "tools/sdfctl/Failure.h"

FileWatch::FileWatch(const std::string& path) : mFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (mFd < 0) throw std::system_error(errno, std::generic_category(), "inotify");
    add(path);
    const std::unique_ptr<char, decltype(&free)> target(realpath(path.c_str(), nullptr), free);
    if (target) add(target.get());
}

FileWatch::~FileWatch() {
    close(mFd);
}

bool FileWatch::take() const {
    bool isOurs = false;
    alignas(inotify_event) char events[4096];
    for (ssize_t length; (length = read(mFd, events, sizeof events)) > 0;) {
        for (ssize_t at = 0; at < length;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
            isOurs = isOurs || (event->mask & IN_Q_OVERFLOW) != 0 ||
                     (event->len > 0 && mNames.count(event->name) != 0);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
    return isOurs;
}

void FileWatch::add(const std::string& path) {
    const size_t slash = path.rfind('/');
    std::string directory = ".";
    if (slash != std::string::npos) directory = slash == 0 ? "/" : path.substr(0, slash);
    if (inotify_add_watch(mFd, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
        throw UsageError(directory + ": cannot be watched: " + strerror(errno));
    }
    mNames.insert(path.substr(slash + 1));  // behind the last slash, if there is one
}
