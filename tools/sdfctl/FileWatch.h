// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

// Notices that a file has been written, or replaced by another one of its name, as editors do.
class FileWatch {
  public:
    // Watches the directory of the file, and where the file is a link also that of its target.
    // Throws std::system_error, and UsageError when there is no such directory.
    explicit FileWatch(const std::string& path);
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    // Readable when something has been noticed.
    int fd() const { return mFd; }
    // Takes what has been noticed. Returns whether it may be about the file.
    bool take() const;

  private:
    void add(const std::string& path);

    const int mFd;
    std::set<std::string> mNames;
};
