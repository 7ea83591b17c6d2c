// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "platform/linux/src/IoLoop.h"
#include "platform/linux/src/OutBuffer.h"
#include "platform/linux/src/UniqueFd.h"

// A connected, non-blocking socket with what waits to be written to it. Not locked.
class LinkSocket {
  public:
    // source: what is called when this socket is ready.
    LinkSocket(UniqueFd socket, IoSource& source) : mSocket(std::move(socket)), mSource(source) {}

    int fd() const { return mSocket.get(); }
    // Whether nothing more can be sent, since the peer is gone or giveUp() was called.
    bool broken() const { return mBroken; }
    // Asks the socket: its source may not know of a death yet.
    bool peerHungUp() const;
    size_t unwritten() const { return mOut.size(); }

    // Appends one frame, as OutBuffer::append() does.
    template <typename Append>
    void append(Append&& append, std::vector<SharedFd> descriptors = {}) {
        mOut.append(append, std::move(descriptors));
    }
    // Writes what can be written at once, and has the source called when more can be. Gives up if
    // the connection has failed.
    void flush();
    // Sends nothing more. The source still reads what the peer has sent, then finds the end.
    void giveUp();
    // Ends it, and does not have the source called any more. To be called by the source.
    void close();

  private:
    UniqueFd mSocket;
    IoSource& mSource;
    bool mBroken = false;
    OutBuffer mOut;
    bool mWantsOutput = false;
};
