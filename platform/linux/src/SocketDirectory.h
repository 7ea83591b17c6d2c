// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <utility>

// The directory in which services and clients of one user meet. A service's name is a symbolic link
// there, to the socket at which its object is reached: it is turned from one socket to another in
// one step, so that whoever looks finds either, and never half of one.
//
// The directory is $LUM_BINDER_DIR, or else lum-binder in $XDG_RUNTIME_DIR, or else
// /tmp/lum-binder-<uid>; whichever applies at the moment.
class SocketDirectory {
  public:
    SocketDirectory();

    // How many bytes the path may have, so that those of its sockets fit an address.
    static constexpr size_t kLongestPath = 64;

    const std::string& path() const { return mPath; }
    // Whether the path is short enough. Logs if not.
    bool fits() const;
    // The path of the socket that the link of a name leads to as `socket`.
    std::string pathOf(const std::string& socket) const { return mPath + "/" + socket; }

    // Makes the directory unless it is there. Logs why it cannot.
    bool make() const;
    bool exists() const;
    // Whether what happens there can be of this user's making only: it belongs to this user and is
    // closed to all others. Logs why not.
    bool isSafe() const;

    // The socket that a name leads to, as pathOf() takes it; empty if nobody has taken the name.
    // name: one that isServiceName() accepts, here and below.
    std::string socketOf(const std::string& name) const;

    // Makes a name lead to a socket; replaced: set to the one that it led to so far, empty if none.
    // Returns whether that could be done; logs why not.
    bool turn(const std::string& name, const std::string& socket, std::string* replaced) const;

  private:
    std::string linkOf(const std::string& name) const;

    const std::string mPath;
};
