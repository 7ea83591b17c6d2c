// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "platform/linux/src/IoThread.h"
#include "platform/linux/src/OutBuffer.h"
#include "platform/linux/src/UniqueFd.h"

// A connected, non-blocking socket with what waits to be written to it. Not locked.
class LinkSocket {
  public:
    // source: whom the I/O thread calls for this socket.
    LinkSocket(UniqueFd socket, IoSource& source) : mSocket(std::move(socket)), mSource(source) {}

    int fd() const { return mSocket.get(); }
    // Whether nothing more can be sent, since the peer is gone or giveUp() was called.
    bool broken() const { return mBroken; }
    // Asks the socket: the I/O thread may not know of a death yet.
    bool peerHungUp() const;
    size_t unwritten() const { return mOut.size(); }

    // Appends one frame, as OutBuffer::append() does.
    template <typename Append>
    void append(Append&& append, std::vector<SharedFd> descriptors = {}) {
        mOut.append(append, std::move(descriptors));
    }
    // Writes what can be written at once, and has the I/O thread call when more can be. Gives up if
    // the connection has failed.
    void flush();
    // Sends nothing more. The I/O thread still reads what the peer has sent, then finds the end.
    void giveUp();
    // Ends it, and does not have the I/O thread call any more. To be called by the I/O thread.
    void close();

  private:
    UniqueFd mSocket;
    IoSource& mSource;
    bool mBroken = false;
    OutBuffer mOut;
    bool mWantsOutput = false;
};
