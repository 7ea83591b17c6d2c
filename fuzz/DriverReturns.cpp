// SPDX-License-Identifier: Apache-2.0
// What the kernel's driver has for a process, as the input says within its rules: calls and replies
// of any content, references, deaths, errors, threads that it asks for; to a link whose objects are
// called, passed on, watched and let go meanwhile. A model of the driver takes the commands: each
// buffer is given back once, references are ended as often as they were begun, each death is
// reported and acknowledged once, each call returns what it was answered, nothing is left at the
// end.
#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <functional>
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
#include "platform/linux/src/Status.h"
#include "platform/linux/src/Threads.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/RawPeer.h"
#include "tools/emulator/ProcessStats.h"

extern "C" int __real_ioctl(int fd, unsigned long request, ...);

namespace {

constexpr unsigned int kMostSteps = 48;
constexpr unsigned int kMostDepth = 3;

// One at a time: the driver.
class Driver {
  public:
    explicit Driver(Input& input) : mInput(input) {}

    int exchange(binder_write_read& exchange);
    // What the call that ended last is to return.
    binder_status_t outcome() const { return mOutcome; }
    // The handles of the objects whose deaths have been announced since.
    std::vector<uint32_t> takeDead() { return std::exchange(mDead, {}); }
    // A thread that the link wants. Returns an error number, or has runThread() play it.
    int addThread(void* (*body)(void*), void* argument);
    void runThread();
    // Lets go of everything that others hold, with the next answers.
    void letGo() { mLettingGo = true; }
    void checkAtEnd() const;

  private:
    // What the other processes have of an object of this one.
    struct Node {
        binder_uintptr_t name;
        bool awaitsDone = true;
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
        enum Kind { kAcceptance, kReply, kAnything } kind;
        bool accepted = false;
    };

    bool refuses(const binder_write_read& exchange);
    void take(binder_write_read& exchange);
    void takeCommand(uint32_t command, const uint8_t* bytes);
    void takeTransaction(bool isReply, const binder_transaction_data& data);
    void give(binder_write_read& exchange);
    void giveReferences();
    void giveAnswer();
    void giveDeath();
    static binder_status_t statusOf(const binder_transaction_data& reply);
    void end(binder_status_t outcome) {
        mWaits.pop_back();
        mOutcome = outcome;
    }
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
    std::vector<Node>::iterator findNode(binder_uintptr_t name) {
        return std::find_if(mNodes.begin(), mNodes.end(),
                            [name](const Node& node) { return node.name == name; });
    }
    bool isCalled(binder_uintptr_t node) const {
        return std::any_of(mBuffers.begin(), mBuffers.end(),
                           [node](const auto& buffer) { return buffer.second.node == node; });
    }

    Input& mInput;
    std::vector<uint8_t> mReturns;
    std::vector<Node> mNodes;  // in an order that does not depend on addresses
    std::map<uint32_t, Handle> mHandles;
    std::map<binder_uintptr_t, Buffer> mBuffers;
    std::vector<Wait> mWaits;
    binder_status_t mOutcome = STATUS_OK;
    std::vector<binder_uintptr_t> mCleared;
    std::set<binder_uintptr_t> mAnnounced;
    std::vector<uint32_t> mDead;
    std::set<binder_uintptr_t> mRefused;  // registrations for which there was no memory
    bool mError = false;                  // which holds up the commands until it is read
    bool mAsked = false;                  // for a thread that has not come yet
    std::function<void()> mThread;
    unsigned int mDepth = 0;
    bool mLettingGo = false;
};

Driver* gDriver = nullptr;

// As in the kernel, what has been consumed counts whatever comes then, and nothing else says so.
int Driver::exchange(binder_write_read& exchange) {
    if (refuses(exchange)) return -1;
    take(exchange);
    if (exchange.read_size == 0) return 0;
    if (!mError && mInput.rarely(16)) {
        errno = EINTR;
        return -1;
    }
    give(exchange);
    return 0;
}

// There may be no memory for a thread that the driver does not know yet. One that serves ends only
// with an error.
bool Driver::refuses(const binder_write_read& exchange) {
    if (exchange.read_size == 0 || mError) return false;
    if (exchange.write_consumed == exchange.write_size) {
        if (mWaits.empty() || mWaits.back().kind != Wait::kAnything) return false;
        if (!mLettingGo && mInput.pick(4) != 0) return false;
        end(STATUS_DEAD_OBJECT);
        errno = EINVAL;
        return true;
    }
    const auto first =
        read<uint32_t>(addressOf<const uint8_t>(exchange.write_buffer) + exchange.write_consumed);
    if (first != BC_TRANSACTION && first != BC_ENTER_LOOPER && first != BC_REGISTER_LOOPER) {
        return false;
    }
    if (mLettingGo || !mInput.rarely(16)) return false;
    mOutcome = STATUS_NO_MEMORY;
    errno = ENOMEM;
    return true;
}

void Driver::take(binder_write_read& exchange) {
    const auto* const bytes = addressOf<const uint8_t>(exchange.write_buffer);
    binder_size_t& at = exchange.write_consumed;
    while (at < exchange.write_size && !mError) {
        const auto command = read<uint32_t>(bytes + at);
        at += sizeof command;
        check(at + _IOC_SIZE(command) <= exchange.write_size, "a command that is cut off");
        takeCommand(command, bytes + at);
        at += _IOC_SIZE(command);
    }
}

void Driver::takeCommand(uint32_t command, const uint8_t* bytes) {
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
            const auto found = findNode(object.ptr);
            check(found != mNodes.end() && object.cookie == object.ptr,
                  "confirmed a reference to no object of its own");
            if (command == BC_ACQUIRE_DONE) found->awaitsDone = false;
            break;
        }
        case BC_REQUEST_DEATH_NOTIFICATION: {
            const auto registration = read<binder_handle_cookie>(bytes);
            Handle& handle = mHandles[registration.handle];
            check(handle.cookie == 0, "registered for a death twice");
            check(handle.weak > 0, "registered for the death of what it does not refer to");
            if (mInput.rarely(8)) {
                mError = true;
                mRefused.insert(binder_uintptr_t{registration.cookie});
                break;
            }
            handle.cookie = registration.cookie;
            handle.dead = false;
            break;
        }
        case BC_CLEAR_DEATH_NOTIFICATION: {
            const auto registration = read<binder_handle_cookie>(bytes);
            if (mRefused.erase(binder_uintptr_t{registration.cookie}) == 1) break;
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
        case BC_REGISTER_LOOPER:
            check(std::exchange(mAsked, false), "a thread that was not asked for");
            mWaits.push_back({Wait::kAnything});
            break;
        case BC_ENTER_LOOPER: mWaits.push_back({Wait::kAnything}); break;
        default: fail("an unknown command");
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
            if (findNode(object.binder) == mNodes.end()) {
                put(BR_INCREFS, binder_ptr_cookie{object.binder, object.cookie});
                put(BR_ACQUIRE, binder_ptr_cookie{object.binder, object.cookie});
                mNodes.push_back({object.binder});
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
    const bool blocks = !isReply && (data.flags & TF_ONE_WAY) == 0;
    mWaits.push_back({blocks ? Wait::kReply : Wait::kAcceptance});
}

// References, which are only counted, then at most one call, death or end of what is waited for;
// none of these with an error.
void Driver::give(binder_write_read& exchange) {
    const bool inPool = std::any_of(mWaits.begin(), mWaits.end(),
                                    [](const Wait& wait) { return wait.kind == Wait::kAnything; });
    const bool asks = mInput.rarely(8) && inPool && !mAsked && !mLettingGo;
    const uint32_t first = asks ? BR_SPAWN_LOOPER : BR_NOOP;
    mAsked = mAsked || asks;
    const bool error = std::exchange(mError, false);
    if (error) put(BR_ERROR);
    giveReferences();
    if (!error) giveAnswer();
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&first);
    mReturns.insert(mReturns.begin(), bytes, bytes + sizeof first);
    check(mReturns.size() <= exchange.read_size, "reads too little");
    memcpy(addressOf<uint8_t>(exchange.read_buffer), mReturns.data(), mReturns.size());
    exchange.read_consumed = mReturns.size();
    mReturns.clear();
}

// So many that what follows fits in any case.
void Driver::giveReferences() {
    constexpr size_t kMost = 100;
    for (; !mCleared.empty() && mReturns.size() < kMost; mCleared.pop_back()) {
        put(BR_CLEAR_DEATH_NOTIFICATION_DONE, mCleared.back());
    }
    for (auto node = mNodes.begin(); node != mNodes.end();) {
        const bool idle = !node->awaitsDone && !isCalled(node->name);
        if (!idle || !(mLettingGo || mInput.rarely(16)) || mReturns.size() > kMost) {
            ++node;
            continue;
        }
        put(BR_RELEASE, binder_ptr_cookie{node->name, node->name});
        put(BR_DECREFS, binder_ptr_cookie{node->name, node->name});
        node = mNodes.erase(node);
    }
}

void Driver::giveAnswer() {
    check(!mWaits.empty(), "waits for nothing");
    Wait& wait = mWaits.back();
    if (wait.kind != Wait::kAnything && !wait.accepted) {
        constexpr uint32_t kPendingFrozen = _IO('r', 20);  // since Linux 6.3
        constexpr uint32_t kAnswers[] = {BR_TRANSACTION_COMPLETE, BR_ONEWAY_SPAM_SUSPECT,
                                         kPendingFrozen,          BR_DEAD_REPLY,
                                         BR_FAILED_REPLY,         BR_FROZEN_REPLY};
        const unsigned int kind = mInput.pick(16);
        const uint32_t answer = kAnswers[kind < 6 ? kind : 0];
        put(answer);
        if (answer == BR_DEAD_REPLY) return end(STATUS_DEAD_OBJECT);
        if (answer == BR_FAILED_REPLY || answer == BR_FROZEN_REPLY) {
            return end(STATUS_FAILED_TRANSACTION);
        }
        if (wait.kind == Wait::kAcceptance) return end(STATUS_OK);
        wait.accepted = true;
    } else if (mInput.rarely(4) && mDepth < kMostDepth && !mNodes.empty()) {
        binder_transaction_data call{};
        fill(&call, true);
        if (call.cookie != 0) put(BR_TRANSACTION, call);
    } else if (mInput.rarely(4)) {
        giveDeath();
    } else if (wait.kind == Wait::kReply) {
        const unsigned int kind = mInput.pick(8);
        if (kind == 6) {
            put(BR_DEAD_REPLY);
            return end(STATUS_DEAD_OBJECT);
        }
        if (kind == 7) {
            put(BR_FAILED_REPLY);
            return end(STATUS_FAILED_TRANSACTION);
        }
        binder_transaction_data reply{};
        fill(&reply, false);
        put(BR_REPLY, reply);
        end(statusOf(reply));
    }
}

binder_status_t Driver::statusOf(const binder_transaction_data& reply) {
    if ((reply.flags & TF_STATUS_CODE) == 0) return STATUS_OK;
    if (reply.data_size < sizeof(int32_t)) return STATUS_UNKNOWN_ERROR;
    return knownStatus(read<int32_t>(addressOf<const uint8_t>(reply.data.ptr.buffer)));
}

void Driver::giveDeath() {
    for (auto& [number, handle] : mHandles) {
        if (handle.cookie == 0 || handle.dead) continue;
        handle.dead = true;
        mAnnounced.insert(handle.cookie);
        mDead.push_back(number);
        return put(BR_DEAD_BINDER, handle.cookie);
    }
}

void Driver::fill(binder_transaction_data* data, bool isCall) {
    Buffer buffer;
    Bytes bytes;
    const auto addNumber = [&] {
        const auto number = mInput.number<int32_t>();
        const auto* const word = reinterpret_cast<const uint8_t*>(&number);
        bytes.insert(bytes.end(), word, word + sizeof number);
    };
    unsigned int left = mInput.pick(4);
    if (isCall) {
        std::vector<binder_uintptr_t> nodes;
        for (const Node& node : mNodes) {
            if (!node.awaitsDone) nodes.push_back(node.name);
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
        if (left > 0) addNumber();
    }
    for (; left > 0; --left) {
        const unsigned int kind = mInput.pick(8);
        if (kind > 3) {
            addNumber();
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
            const binder_uintptr_t node = mNodes[mInput.byte() % mNodes.size()].name;
            entry.handle = node;
            entry.cookie = node;
            // The buffer keeps it.
            if (buffer.node == 0)
                buffer.node = node;
            else if (node != buffer.node)
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

int Driver::addThread(void* (*body)(void*), void* argument) {
    check(mThread == nullptr, "a second thread at once");
    if (!mLettingGo && mInput.rarely(4)) return EAGAIN;
    mThread = [=] { body(argument); };
    return 0;
}

void Driver::runThread() {
    if (const auto thread = std::exchange(mThread, nullptr)) thread();
}

void Driver::checkAtEnd() const {
    check(mWaits.empty(), "made a call twice");
    check(!mAsked, "did not make a thread");
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
    void step();
    void call(uint32_t handle);

    Input& mInput;
    KernelLink& mLink;
    Objects mObjects;
};

void Program::run() {
    for (unsigned int steps = 0; steps < kMostSteps && !mInput.empty(); ++steps) {
        step();
        gDriver->runThread();
        for (const uint32_t handle : gDriver->takeDead()) mObjects.expectDeath(handle);
        mObjects.checkDeaths();
    }
    mObjects.letGo();
    gDriver->letGo();
    // Until the driver has nothing more for this thread.
    for (int calls = 0; calls < 64; ++calls) {
        const AParcel nothing;
        std::unique_ptr<AParcel> out;
        (void)mLink.transact(0, 1, nothing, 0, &out);
        gDriver->runThread();
        mObjects.letGo();
    }
    gDriver->checkAtEnd();
    check(Objects::alive() == 0, "objects are left");
}

void Program::step() {
    if (mObjects.holdsAny() && mInput.flag()) {
        mObjects.use();
    } else if (mInput.rarely(4)) {
        check(mLink.serve(BC_ENTER_LOOPER) == gDriver->outcome(), "serves on, or not");
    } else {
        call(0);
    }
}

void Program::call(uint32_t handle) {
    AParcel in;
    mObjects.put(&in);
    std::unique_ptr<AParcel> out;
    const binder_status_t status =
        mLink.transact(handle, mInput.byte(), in, mInput.rarely(4) ? FLAG_ONEWAY : 0, &out);
    check(status == gDriver->outcome(), "a call that does not return what it was answered");
    if (status == STATUS_OK) mObjects.take(out.get());
}

}  // namespace

int startDetachedThread(void* (*body)(void*), void* argument) {
    return gDriver->addThread(body, argument);
}

void nameBinderThread() {}

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
    const size_t descriptors = openDescriptors();
    Input input(bytes, size);
    Driver driver(input);
    gDriver = &driver;
    Program(input, *kLink).run();
    gDriver = nullptr;
    check(openDescriptors() == descriptors, "descriptors are left");
    return 0;
}
