// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ReceivedDescriptors.h"

#include <sys/socket.h>

#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/linux/src/Frame.h"

namespace {

// One more than allowed, so that too many show.
constexpr size_t kSpace = kMaxDescriptors + 1;
using Descriptors = std::array<UniqueFd, kSpace>;

// Takes over those that came with a message. Returns how many.
size_t takeOver(msghdr& message, Descriptors* taken) {
    size_t count = 0;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t end = header->cmsg_len - CMSG_LEN(0);
        for (size_t at = 0; at + sizeof(int) <= end && count < taken->size(); at += sizeof(int)) {
            int fd = -1;
            memcpy(&fd, CMSG_DATA(header) + at, sizeof fd);
            (*taken)[count++].reset(fd);
        }
    }
    return count;
}

}  // namespace

ssize_t ReceivedDescriptors::receive(int socket, uint8_t* bytes, size_t size) {
    iovec buffer{bytes, size};
    alignas(cmsghdr) char control[CMSG_SPACE(kSpace * sizeof(int))];
    msghdr message{};
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t received = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (received < 0) return received;

    Descriptors taken;
    const size_t count = takeOver(message, &taken);
    require(count <= kMaxDescriptors, "too many descriptors");
    // The kernel closes what it finds no number for.
    const bool complete = (message.msg_flags & MSG_CTRUNC) == 0;
    if (complete && count == 0) return received;
    Batch batch{{}, complete};
    for (size_t i = 0; i < count; ++i) {
        batch.descriptors.push_back(std::make_shared<UniqueFd>(std::move(taken[i])));
    }
    mBatches.push_back(std::move(batch));
    return received;
}

bool ReceivedDescriptors::take(size_t count, std::vector<SharedFd>* taken) {
    if (count == 0) return true;
    require(!mBatches.empty(), "descriptors that did not come");
    const Batch batch = std::move(mBatches.front());
    mBatches.pop_front();
    if (!batch.complete) return false;
    require(batch.descriptors.size() == count, "another number of descriptors than it says");
    *taken = batch.descriptors;
    return true;
}

void ReceivedDescriptors::check(bool unfinished) const {
    require(mBatches.size() <= (unfinished ? 1 : 0), "descriptors that belong to no frame");
}

size_t ReceivedDescriptors::size() const {
    size_t size = 0;
    for (const Batch& batch : mBatches) size += batch.descriptors.size();
    return size;
}
