// SPDX-License-Identifier: Apache-2.0
// What the kernel's driver has for a process, as the input says within its rules: calls and replies
// of any content, references, deaths, errors; to a link whose objects are called, passed on,
// watched and let go meanwhile. A model of the driver takes the commands: each buffer is given back
// once, references are ended as often as they were begun, each death is acknowledged, nothing is
// left at the end.
#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "fuzz/Objects.h"
#include "platform/linux/src/KernelLink.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/RawPeer.h"

extern "C" int __real_ioctl(int fd, unsigned long request, ...);

namespace {

constexpr unsigned int kMostSteps = 48;
constexpr unsigned int kMostDepth = 3;

// One at a time: the driver.
class Driver {
  public:
    explicit Driver(Input& input) : mInput(input) {}

    int exchange(binder_write_read& exchange);
    // Lets go of everything that others hold, with the next answers.
    void letGo() { mLettingGo = true; }
    void checkAtEnd() const;

  private:
    // What the other processes have of an object of this one.
    struct Node {
        bool acquired = false;
        bool awaitsDone = false;
    };
    // What this process has of an object of others.
    struct Handle {
        int strong = 0;
        int weak = 0;
        int inBuffers = 0;
        binder_uintptr_t cookie = 0;  // of its registration for death
        bool dead = false;            // announced
    };
    struct Buffer {
        std::unique_ptr<uint8_t[]> data;
        std::vector<binder_size_t> offsets;
        std::vector<uint32_t> handles;
        binder_uintptr_t node = 0;  // that is being called
    };
    // What the thread waits for.
    struct Wait {
        bool isCall;  // with a reply, once it is complete
        bool complete = false;
    };

    void take(const uint8_t* bytes, size_t size);
    void takeTransaction(bool isReply, const binder_transaction_data& data);
    void give(binder_write_read& exchange);
    void fill(binder_transaction_data* data, bool isCall);

    template <typename Argument>
    static Argument read(const uint8_t* bytes) {
        Argument argument;
        memcpy(&argument, bytes, sizeof argument);
        return argument;
    }
    void put(uint32_t command) { append(&command, sizeof command); }
    template <typename Argument>
    void put(uint32_t command, const Argument& argument) {
        put(command);
        append(&argument, sizeof argument);
    }
    void append(const void* bytes, size_t size) {
        const auto* const first = static_cast<const uint8_t*>(bytes);
        mReturns.insert(mReturns.end(), first, first + size);
    }
    bool isCalled(binder_uintptr_t node) const {
        return std::any_of(mBuffers.begin(), mBuffers.end(),
                           [node](const auto& buffer) { return buffer.second.node == node; });
    }

    Input& mInput;
    std::vector<uint8_t> mReturns;
    std::map<binder_uintptr_t, Node> mNodes;
    std::map<uint32_t, Handle> mHandles;
    std::map<binder_uintptr_t, Buffer> mBuffers;
    std::vector<Wait> mWaits;
    std::vector<binder_uintptr_t> mCleared;
    std::set<binder_uintptr_t> mAnnounced;
    unsigned int mDepth = 0;
    bool mLettingGo = false;
};

Driver* gDriver = nullptr;

int Driver::exchange(binder_write_read& exchange) {
    if (exchange.write_consumed == 0 && exchange.write_size != 0) {
        take(addressOf<const uint8_t>(exchange.write_buffer), exchange.write_size);
        exchange.write_consumed = exchange.write_size;
    }
    if (exchange.read_size == 0) return 0;
    if (mInput.rarely(16)) {
        // What has been written is not to be written again.
        exchange.write_size = 0;
        errno = EINTR;
        return -1;
    }
    give(exchange);
    return 0;
}

void Driver::take(const uint8_t* bytes, size_t size) {
    for (const uint8_t* const end = bytes + size; bytes < end;) {
        const auto command = read<uint32_t>(bytes);
        bytes += sizeof command;
        check(bytes + _IOC_SIZE(command) <= end, "a command that is cut off");
        switch (command) {
            case BC_TRANSACTION:
            case BC_REPLY:
                takeTransaction(command == BC_REPLY, read<binder_transaction_data>(bytes));
                break;
            case BC_FREE_BUFFER: {
                const auto found = mBuffers.find(read<binder_uintptr_t>(bytes));
                check(found != mBuffers.end(), "gave back a buffer that it does not have");
                for (const uint32_t handle : found->second.handles) --mHandles[handle].inBuffers;
                mBuffers.erase(found);
                break;
            }
            case BC_ACQUIRE:
            case BC_INCREFS: {
                const auto number = read<uint32_t>(bytes);
                Handle& handle = mHandles[number];
                check(number == 0 || handle.strong + handle.weak + handle.inBuffers > 0,
                      "referred to an object that nobody gave it");
                ++(command == BC_ACQUIRE ? handle.strong : handle.weak);
                break;
            }
            case BC_RELEASE:
            case BC_DECREFS: {
                Handle& handle = mHandles[read<uint32_t>(bytes)];
                int& count = command == BC_RELEASE ? handle.strong : handle.weak;
                check(count-- > 0, "ended a reference that it does not have");
                break;
            }
            case BC_INCREFS_DONE:
            case BC_ACQUIRE_DONE: {
                const auto object = read<binder_ptr_cookie>(bytes);
                const auto found = mNodes.find(object.ptr);
                check(found != mNodes.end() && object.cookie == object.ptr,
                      "confirmed a reference to no object of its own");
                if (command == BC_ACQUIRE_DONE) found->second.awaitsDone = false;
                break;
            }
            case BC_REQUEST_DEATH_NOTIFICATION: {
                const auto registration = read<binder_handle_cookie>(bytes);
                Handle& handle = mHandles[registration.handle];
                check(handle.cookie == 0, "registered for a death twice");
                check(handle.weak > 0, "registered for the death of what it does not refer to");
                handle.cookie = registration.cookie;
                handle.dead = false;
                break;
            }
            case BC_CLEAR_DEATH_NOTIFICATION: {
                const auto registration = read<binder_handle_cookie>(bytes);
                Handle& handle = mHandles[registration.handle];
                check(handle.cookie == registration.cookie && handle.cookie != 0,
                      "ended a registration that it does not have");
                mCleared.push_back(std::exchange(handle.cookie, 0));
                break;
            }
            case BC_DEAD_BINDER_DONE:
                check(mAnnounced.erase(read<binder_uintptr_t>(bytes)) == 1,
                      "acknowledged a death that was not announced");
                break;
            default: fail("an unknown command");
        }
        bytes += _IOC_SIZE(command);
    }
}

void Driver::takeTransaction(bool isReply, const binder_transaction_data& data) {
    const auto* const bytes = addressOf<const uint8_t>(data.data.ptr.buffer);
    const auto* const offsets = addressOf<const binder_size_t>(data.data.ptr.offsets);
    binder_size_t before = 0;
    for (size_t i = 0; i < data.offsets_size / sizeof *offsets; ++i) {
        const binder_size_t offset = offsets[i];
        check(offset % 4 == 0 && offset >= before &&
                  offset + sizeof(flat_binder_object) <= data.data_size,
              "sent an object at an impossible place");
        before = offset + sizeof(flat_binder_object);
        const auto object = read<flat_binder_object>(bytes + offset);
        if (object.hdr.type == BINDER_TYPE_BINDER) {
            check(object.binder == object.cookie && object.binder != 0,
                  "sent an object by two names");
            if (mNodes.emplace(object.binder, Node{false, true}).second) {
                put(BR_INCREFS, binder_ptr_cookie{object.binder, object.cookie});
                put(BR_ACQUIRE, binder_ptr_cookie{object.binder, object.cookie});
                mNodes[object.binder].acquired = true;
            }
        } else if (object.hdr.type == BINDER_TYPE_HANDLE) {
            const Handle& handle = mHandles[object.handle];
            check(handle.strong + handle.inBuffers > 0 || object.handle == 0,
                  "sent an object that it does not hold");
        } else {
            check(object.hdr.type == BINDER_TYPE_FD &&
                      fcntl(static_cast<int>(object.handle), F_GETFD) >= 0,
                  "sent what is no object");
        }
    }
    if (isReply) --mDepth;
    mWaits.push_back({!isReply && (data.flags & TF_ONE_WAY) == 0});
}

// One answer: what asks for nothing, then at most one call, death or end of what is waited for.
void Driver::give(binder_write_read& exchange) {
    if (mInput.rarely(8)) put(BR_NOOP);
    for (const binder_uintptr_t cookie : std::exchange(mCleared, {})) {
        put(BR_CLEAR_DEATH_NOTIFICATION_DONE, cookie);
    }
    for (auto node = mNodes.begin(); node != mNodes.end();) {
        const bool idle = !node->second.awaitsDone && !isCalled(node->first);
        if (!idle || !(mLettingGo || mInput.rarely(16)) || mReturns.size() > 100) {
            ++node;
            continue;
        }
        put(BR_RELEASE, binder_ptr_cookie{node->first, node->first});
        put(BR_DECREFS, binder_ptr_cookie{node->first, node->first});
        node = mNodes.erase(node);
    }
    check(!mWaits.empty(), "waits for nothing");
    Wait& wait = mWaits.back();
    if (!wait.complete) {
        const unsigned int kind = mInput.pick(16);
        wait.complete = wait.isCall && kind < 14;
        if (kind < 12) put(BR_TRANSACTION_COMPLETE);
        if (kind == 12) put(BR_ONEWAY_SPAM_SUSPECT);
        if (kind == 13) put(_IO('r', 20));  // BR_TRANSACTION_PENDING_FROZEN, since Linux 6.3
        if (kind == 14) put(BR_DEAD_REPLY);
        if (kind == 15) put(BR_FAILED_REPLY);
        if (!wait.complete) mWaits.pop_back();
    } else if (mInput.rarely(4) && mDepth < kMostDepth && !mNodes.empty()) {
        binder_transaction_data call{};
        fill(&call, true);
        if (call.cookie != 0) put(BR_TRANSACTION, call);
    } else if (mInput.rarely(4)) {
        for (auto& handle : mHandles) {
            if (handle.second.cookie == 0 || handle.second.dead) continue;
            handle.second.dead = true;
            mAnnounced.insert(handle.second.cookie);
            put(BR_DEAD_BINDER, handle.second.cookie);
            break;
        }
    } else {
        const unsigned int kind = mInput.pick(8);
        mWaits.pop_back();
        if (kind < 6) {
            binder_transaction_data reply{};
            fill(&reply, false);
            put(BR_REPLY, reply);
        } else {
            put(kind == 6 ? BR_DEAD_REPLY : BR_FAILED_REPLY);
        }
    }
    // Whole commands, as many as fit.
    size_t size = 0;
    while (size < mReturns.size()) {
        const size_t next =
            size + sizeof(uint32_t) + _IOC_SIZE(read<uint32_t>(mReturns.data() + size));
        if (next > exchange.read_size) break;
        size = next;
    }
    memcpy(addressOf<uint8_t>(exchange.read_buffer), mReturns.data(), size);
    exchange.read_consumed = size;
    mReturns.erase(mReturns.begin(), mReturns.begin() + static_cast<std::ptrdiff_t>(size));
}

void Driver::fill(binder_transaction_data* data, bool isCall) {
    Buffer buffer;
    Bytes bytes;
    if (isCall) {
        std::vector<binder_uintptr_t> nodes;
        for (const auto& node : mNodes) {
            if (node.second.acquired && !node.second.awaitsDone) nodes.push_back(node.first);
        }
        if (nodes.empty()) return;
        buffer.node = nodes[mInput.byte() % nodes.size()];
        data->target.ptr = buffer.node;
        data->cookie = buffer.node;
        data->code = mInput.rarely(8) ? mInput.number<uint32_t>() : mInput.pick(16);
        data->flags = mInput.flag() ? TF_ONE_WAY : 0;
        data->sender_pid = mInput.byte();
        if (data->flags == 0) ++mDepth;
        if (!mInput.rarely(8)) bytes = tokenOf(kPeerDescriptor);
    } else if (mInput.rarely(8)) {
        data->flags = TF_STATUS_CODE;
    }
    for (unsigned int left = mInput.pick(4); left > 0; --left) {
        const unsigned int kind = mInput.pick(8);
        if (kind > 3) {
            const auto number = mInput.number<uint32_t>();
            const auto* const word = reinterpret_cast<const uint8_t*>(&number);
            bytes.insert(bytes.end(), word, word + sizeof number);
            continue;
        }
        ObjectEntry entry{BINDER_TYPE_WEAK_HANDLE, 0, 0, 0, mInput.flag() ? 3 : 0};
        if (kind == 0) {
            entry.type = BINDER_TYPE_HANDLE;
            const uint32_t handle = mInput.pick(6);
            entry.handle = handle;
            ++mHandles[handle].inBuffers;
            buffer.handles.push_back(handle);
        } else if (kind == 1 && !mNodes.empty()) {
            entry.type = BINDER_TYPE_BINDER;
            const auto node = std::next(mNodes.begin(),
                                        static_cast<std::ptrdiff_t>(mInput.byte() % mNodes.size()));
            entry.handle = node->first;
            entry.cookie = node->first;
            // The buffer keeps it.
            if (buffer.node == 0)
                buffer.node = node->first;
            else if (node->first != buffer.node)
                entry = {BINDER_TYPE_BINDER, 0, 0, 0, 0};
        } else if (kind == 2) {
            entry.type = BINDER_TYPE_FD;
            entry.handle = static_cast<uint32_t>(dup(STDERR_FILENO));
        }
        buffer.offsets.push_back(bytes.size());
        const auto* const first = reinterpret_cast<const uint8_t*>(&entry);
        // A peer need not send the stability, which the driver does not know.
        const size_t size = mInput.rarely(8) ? sizeof(flat_binder_object) : entrySize(entry.type);
        bytes.insert(bytes.end(), first, first + size);
    }
    // As long as it is, so that the sanitizer notices what is read behind it.
    buffer.data = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), buffer.data.get());
    data->data_size = bytes.size();
    data->offsets_size = buffer.offsets.size() * sizeof(binder_size_t);
    data->data.ptr.buffer = reinterpret_cast<uintptr_t>(buffer.data.get());
    data->data.ptr.offsets = reinterpret_cast<uintptr_t>(buffer.offsets.data());
    mBuffers[data->data.ptr.buffer] = std::move(buffer);
}

void Driver::checkAtEnd() const {
    check(mBuffers.empty(), "kept a buffer");
    check(mNodes.empty(), "objects that others still hold");
    check(mAnnounced.empty(), "did not acknowledge a death");
    for (const auto& handle : mHandles) {
        check(handle.second.strong == 0 && handle.second.weak == 0 && handle.second.cookie == 0,
              "kept an object of others");
    }
}

// The application.
class Program {
  public:
    Program(Input& input, KernelLink& link)
        : mInput(input),
          mLink(link),
          mObjects(
              input,
              [this](const ndk::SpAIBinder& object) { call(object.get()->asRemote()->handle()); },
              [this] {
                  if (!mInput.empty() && mInput.rarely(8)) call(0);
              }) {}
    void run();

  private:
    void call(uint32_t handle);

    Input& mInput;
    KernelLink& mLink;
    Objects mObjects;
};

void Program::run() {
    for (unsigned int steps = 0; steps < kMostSteps && !mInput.empty(); ++steps) {
        if (mObjects.holdsAny() && mInput.flag()) {
            mObjects.use();
        } else {
            call(0);
        }
    }
    mObjects.checkDeaths(false);
    mObjects.letGo();
    gDriver->letGo();
    // Until the driver has nothing more for this thread.
    for (int calls = 0; calls < 64; ++calls) {
        const AParcel nothing;
        std::unique_ptr<AParcel> out;
        (void)mLink.transact(0, 1, nothing, 0, &out);
        mObjects.letGo();
    }
    gDriver->checkAtEnd();
    check(Objects::alive() == 0, "objects are left");
}

void Program::call(uint32_t handle) {
    AParcel in;
    mObjects.put(&in);
    std::unique_ptr<AParcel> out;
    const binder_status_t status =
        mLink.transact(handle, mInput.byte(), in, mInput.rarely(4) ? FLAG_ONEWAY : 0, &out);
    if (status == STATUS_OK) mObjects.take(out.get());
}

}  // namespace

extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == BINDER_VERSION) {
        static_cast<binder_version*>(argument)->protocol_version = BINDER_CURRENT_PROTOCOL_VERSION;
        return 0;
    }
    if (request == BINDER_WRITE_READ) {
        return gDriver->exchange(*static_cast<binder_write_read*>(argument));
    }
    return request == BINDER_THREAD_EXIT ? 0 : __real_ioctl(fd, request, argument);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // Can be mapped, as the driver can.
    static const auto& kLink =
        *new std::shared_ptr<KernelLink>(std::make_shared<KernelLink>("/dev/zero"));
    Input input(bytes, size);
    Driver driver(input);
    gDriver = &driver;
    Program(input, *kLink).run();
    gDriver = nullptr;
    return 0;
}
