// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LinkSocket.h"

#include <poll.h>

bool LinkSocket::peerHungUp() const {
    pollfd socket{mSocket.get(), POLLRDHUP, 0};
    return poll(&socket, 1, 0) == 1;
}

void LinkSocket::flush() {
    if (mOut.writeTo(mSocket.get()) != 0) {
        giveUp();
        return;
    }
    const bool wantsOutput = !mOut.empty();
    if (wantsOutput == mWantsOutput) return;
    mWantsOutput = wantsOutput;
    IoLoop::instance().wantOutput(&mSource, wantsOutput);
}

void LinkSocket::giveUp() {
    mBroken = true;
    mOut.clear();
    shutdown(mSocket.get(), SHUT_RDWR);
}

void LinkSocket::close() {
    mBroken = true;
    mOut.clear();
    IoLoop::instance().remove(&mSource);
    mSocket.reset();
}
