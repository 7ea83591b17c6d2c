// SPDX-License-Identifier: Apache-2.0
// A process that speaks to the kernel's driver itself, and misbehaves: it harms nobody else. Runs
// where there is a driver, in the virtual machines.
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <lum/service_manager.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/linux/src/KernelDriver.h"
#include "platform/linux/src/KernelObjects.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/ServiceManagerInterface.h"
#include "tests/platform/PeerTest.h"
#include "tests/support/Complaints.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Driver.h"
#include "tests/support/DriverCounts.h"
#include "tests/support/Eventually.h"

namespace {

constexpr char kRawName[] = "lum.test.raw";
constexpr uint32_t kServiceManagerHandle = 0;

// What goes into a call or a reply, as the driver takes it.
struct Payload {
    std::vector<uint8_t> bytes;
    std::vector<binder_size_t> offsets;
    bool withDescriptor = false;

    // entry: any of the driver's kinds of objects.
    template <typename Entry>
    Payload& add(const Entry& entry) {
        offsets.push_back(bytes.size());
        withDescriptor = withDescriptor || std::is_same_v<Entry, binder_fd_object>;
        const auto* const from = reinterpret_cast<const uint8_t*>(&entry);
        bytes.insert(bytes.end(), from, from + sizeof entry);
        return *this;
    }
    binder_transaction_data data(uint32_t flags = TF_ACCEPT_FDS) const {
        binder_transaction_data data{};
        data.flags = flags;
        data.data_size = bytes.size();
        data.data.ptr.buffer = reinterpret_cast<uintptr_t>(bytes.data());
        data.offsets_size = offsets.size() * sizeof(binder_size_t);
        data.data.ptr.offsets = reinterpret_cast<uintptr_t>(offsets.data());
        return data;
    }
};

flat_binder_object objectOf(uint32_t type, uint64_t name) {
    flat_binder_object object{};
    object.hdr.type = type;
    object.flags = FLAT_BINDER_FLAG_ACCEPTS_FDS;
    object.binder = name;
    object.cookie = name;
    return object;
}

// The driver, as the misbehaving process has it. What it receives, it never gives back.
class Raw {
  public:
    // result: where done() writes to.
    explicit Raw(int result) : mResult(result) {}

    // Reports to the test.
    void done(int result) const {
        if (::write(mResult, &result, sizeof result) != sizeof result) _exit(1);
    }

    bool write(const KernelCommands& commands) { return mDriver.write(commands); }

    bool call(uint32_t handle, transaction_code_t code, binder_transaction_data data) {
        data.target.handle = handle;
        data.code = code;
        return write(KernelCommands().add(BC_TRANSACTION, data));
    }
    bool call(uint32_t handle, transaction_code_t code, const AParcel& in, uint32_t flags = 0) {
        binder_transaction_data data{};
        data.flags = TF_ACCEPT_FDS | flags;
        const KernelParcel parcel(in);
        parcel.putInto(&data);
        return call(handle, code, data);
    }
    bool reply(const Payload& payload, uint32_t flags) {
        return write(KernelCommands().add(BC_REPLY, payload.data(flags)));
    }
    // Waits for a call or an answer. Returns its command; data: set to what it has, if anything.
    uint32_t next(binder_transaction_data* data = nullptr) {
        for (;;) {
            while (mReturns.next()) {
                const uint32_t command = mReturns.command();
                switch (command) {
                    case BR_REPLY:
                    case BR_TRANSACTION:
                        if (data != nullptr) *data = mReturns.argument<binder_transaction_data>();
                        return command;
                    case BR_DEAD_REPLY:
                    case BR_FAILED_REPLY: return command;
                    case BR_TRANSACTION_COMPLETE:
                        if (mCompletes) return command;
                        break;
                    default: break;
                }
            }
            KernelCommands none;
            if (mDriver.exchange(&none) != STATUS_OK) return BR_ERROR;
        }
    }
    // The same, but also returns when a call or a reply has been accepted.
    uint32_t accepted() {
        mCompletes = true;
        const uint32_t command = next();
        mCompletes = false;
        return command;
    }

    // Returns the handle of the service.
    uint32_t find(const char* name) {
        AParcel in;
        in.writeInterfaceToken(kServiceManager);
        in.writeString(name);
        binder_transaction_data reply{};
        call(kServiceManagerHandle, kCheckService, in);
        if (next(&reply) != BR_REPLY || reply.offsets_size == 0) return 0;
        flat_binder_object object;
        memcpy(&object,
               addressOf<const uint8_t>(reply.data.ptr.buffer) +
                   *addressOf<const binder_size_t>(reply.data.ptr.offsets),
               sizeof object);
        return object.handle;
    }
    // Serves an object under kRawName.
    bool serve() {
        AParcel in;
        in.writeInterfaceToken(kServiceManager);
        in.writeString(kRawName);
        in.writeBinder(mObject.get());
        in.writeValue(int32_t{0});
        in.writeValue(kDumpPriorityDefault);
        call(kServiceManagerHandle, kAddService, in);
        return next() == BR_REPLY && write(KernelCommands().add(BC_ENTER_LOOPER));
    }

  private:
    const int mResult;
    KernelDriver mDriver{LumServiceManager_device()};
    KernelReturns& mReturns = KernelReturns::ofThread();
    bool mCompletes = false;
    const ndk::SpAIBinder mObject = makePeerObject(nullptr);
};

// A process that does what the test gives it to do, and lives on until it is killed, at the latest
// when this ends.
class RawProcess {
  public:
    // doing: returns the last result.
    explicit RawProcess(const std::function<int(Raw&)>& doing) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        mResult.reset(ends[0]);
        UniqueFd in(ends[1]);
        mPid = fork();
        if (mPid != 0) return;
        allowComplaints(getpid(), "binder_user_error: ");  // of how many it leaves out
        Raw raw(in.get());
        raw.done(doing(raw));
        for (;;) pause();
    }
    ~RawProcess() { kill(); }
    RawProcess(const RawProcess&) = delete;
    RawProcess& operator=(const RawProcess&) = delete;

    // Waits for the next one.
    int result() const {
        int result = -1;
        return read(mResult.get(), &result, sizeof result) == sizeof result ? result : -1;
    }
    void kill() {
        if (mPid <= 0) return;
        ::kill(mPid, SIGKILL);
        EXPECT_GT(waitpid(std::exchange(mPid, -1), nullptr, 0), 0);
    }

  private:
    UniqueFd mResult;
    pid_t mPid = -1;
};

class RawDriverTest : public PeerTest {
  protected:
    void SetUp() override {
        if (!overDriver()) GTEST_SKIP() << "needs the kernel's driver: ./dev test --vm";
        ASSERT_EQ(ask(kAdd, args(1, 2)), 3);
        // What it has opened by now, it keeps.
        mDescriptors = descriptorsOf(mPeer.pid());
    }
    void TearDown() override {
        if (IsSkipped()) return;
        EXPECT_EQ(ask(kAdd, args(1, 2)), 3);
        // The service; nothing of the one that misbehaved.
        const DriverCounts there{1};
        EXPECT_TRUE(eventually([&] { return driverCountsOf(mPeer.pid()).holdsNoMoreThan(there); }))
            << driverCountsOf(mPeer.pid());
        EXPECT_TRUE(keepsOnly(mPeer.pid(), mDescriptors));
    }

    // May count one that the C library has open for a moment, when a thread allocates first.
    static size_t descriptorsOf(pid_t pid) {
        const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }
    // Waits until the process has no more than so many.
    static bool keepsOnly(pid_t pid, size_t descriptors) {
        return eventually([&] { return descriptorsOf(pid) <= descriptors; });
    }

    // Calls an object, whatever it is.
    static binder_status_t callRaw(const ndk::SpAIBinder& object, const AParcel& in,
                                   binder_flags_t flags) {
        std::unique_ptr<AParcel> unused;
        return object.get()->asRemote()->transact(kPingTransaction, in, flags, &unused);
    }

    size_t mDescriptors = 0;
};

// Begins with the token of an interface.
Payload callTo(const char* interface) {
    AParcel in;
    in.writeInterfaceToken(interface);
    return {in.bytes(), {}};
}

binder_fd_object descriptorOf(int fd) {
    binder_fd_object object{};
    object.hdr.type = BINDER_TYPE_FD;
    object.fd = static_cast<uint32_t>(fd);
    return object;
}

binder_buffer_object pointerTo(uint64_t address, uint64_t length) {
    binder_buffer_object object{};
    object.hdr.type = BINDER_TYPE_PTR;
    object.buffer = address;
    object.length = length;
    return object;
}

binder_fd_array_object descriptorsIn(uint64_t parent) {
    binder_fd_array_object object{};
    object.hdr.type = BINDER_TYPE_FDA;
    object.num_fds = 4;
    object.parent = parent;
    return object;
}

// What the driver refuses.
std::vector<binder_transaction_data> refusedOf(const std::vector<Payload>& payloads) {
    std::vector<binder_transaction_data> calls;
    for (const Payload& payload : payloads) calls.push_back(payload.data());
    binder_transaction_data call = payloads.front().data();
    call.offsets_size = 3;
    calls.push_back(call);
    call = payloads.front().data();
    call.data.ptr.buffer = 16;
    calls.push_back(call);
    call = payloads.front().data();
    call.data_size = size_t{2} << 20;
    calls.push_back(call);
    return calls;
}

std::vector<Payload> malformedPayloads() {
    constexpr uint32_t kNoHandle = 999;
    const Payload token = callTo(kPeerDescriptor);
    Payload behindEnd = token;
    behindEnd.offsets = {token.bytes.size() + 64};
    Payload overlapping = token;
    overlapping.add(objectOf(BINDER_TYPE_BINDER, 0x1000));
    overlapping.offsets.push_back(token.bytes.size() + 8);
    Payload unaligned{std::vector<uint8_t>(2), {}};
    unaligned.add(objectOf(BINDER_TYPE_BINDER, 0x1000));
    return {behindEnd,
            overlapping,
            unaligned,
            Payload(token).add(objectOf(0, 0)),
            Payload(token).add(objectOf(BINDER_TYPE_HANDLE, kNoHandle)),
            Payload(token).add(descriptorOf(-1)),
            Payload(token).add(pointerTo(16, 1U << 31)),
            Payload(token).add(descriptorsIn(5))};
}

// What it lets pass. handle: one that the sender has.
std::vector<Payload> strangePayloads(const char* interface, uint32_t handle) {
    const Payload token = callTo(interface);
    const flat_binder_object own = objectOf(BINDER_TYPE_BINDER, 0x1000);
    return {Payload{},
            Payload{{1, 2, 3}, {}},
            token,
            Payload(token).add(objectOf(BINDER_TYPE_WEAK_HANDLE, handle)),
            Payload(token).add(objectOf(BINDER_TYPE_WEAK_BINDER, 0x2000)),
            Payload(token).add(objectOf(BINDER_TYPE_HANDLE, handle)),
            Payload(token).add(own).add(own).add(descriptorOf(0)).add(own),
            Payload(token).add(descriptorOf(0)).add(pointerTo(0, 0))};
}

TEST_F(RawDriverTest, ObjectsAndOffsetsThatMakeNoSense) {
    const RawProcess raw([](Raw& driver) {
        const uint32_t service = driver.find(kName);
        const std::pair<uint32_t, const char*> targets[] = {
            {service, kPeerDescriptor}, {kServiceManagerHandle, kServiceManager}};
        for (const auto& [handle, interface] : targets) {
            const std::vector<Payload> malformed = malformedPayloads();
            int number = 100;
            for (const binder_transaction_data& call : refusedOf(malformed)) {
                ++number;
                if (!driver.call(handle, kKeep, call) || driver.next() != BR_FAILED_REPLY) {
                    return number;
                }
            }
            number = 200;
            for (const Payload& payload : strangePayloads(interface, service)) {
                ++number;
                // The service manager takes no descriptors.
                const bool refused = payload.withDescriptor && handle == kServiceManagerHandle;
                const uint32_t answer = refused ? BR_FAILED_REPLY : BR_REPLY;
                for (const transaction_code_t code : {uint32_t{kAdd}, uint32_t{kKeep}, ~0U}) {
                    if (!driver.call(handle, code, payload.data()) || driver.next() != answer) {
                        return number;
                    }
                }
            }
        }
        return 0;
    });
    EXPECT_EQ(raw.result(), 0);
    EXPECT_EQ(call(kKeep, args(ndk::SpAIBinder())), STATUS_OK);
}

TEST_F(RawDriverTest, CommandsThatMakeNoSense) {
    const RawProcess raw([](Raw& driver) {
        const uint32_t service = driver.find(kName);
        constexpr uint32_t kNoHandle = 999;
        const binder_ptr_cookie object{0x1000, 0x1000};
        binder_handle_cookie death{};
        death.handle = service;
        death.cookie = 1;
        driver.write(KernelCommands()
                         .add(BC_ENTER_LOOPER)
                         .add(BC_ENTER_LOOPER)
                         .add(BC_REGISTER_LOOPER)
                         .add(BC_EXIT_LOOPER));
        driver.write(KernelCommands()
                         .add(BC_FREE_BUFFER, binder_uintptr_t{0x1000})
                         .add(BC_ACQUIRE, kNoHandle)
                         .add(BC_RELEASE, kNoHandle)
                         .add(BC_DECREFS, kNoHandle));
        driver.write(KernelCommands().add(BC_INCREFS_DONE, object).add(BC_ACQUIRE_DONE, object));
        driver.write(KernelCommands()
                         .add(BC_REQUEST_DEATH_NOTIFICATION, death)
                         .add(BC_REQUEST_DEATH_NOTIFICATION, death));
        death.cookie = 2;
        driver.write(KernelCommands()
                         .add(BC_CLEAR_DEATH_NOTIFICATION, death)
                         .add(BC_DEAD_BINDER_DONE, binder_uintptr_t{77}));
        driver.write(KernelCommands().add(BC_RELEASE, service).add(BC_RELEASE, service));
        driver.write(KernelCommands().add(uint32_t{0x12345678}));
        driver.write(KernelCommands().add(BC_REPLY, Payload().data()));
        return driver.next() == BR_FAILED_REPLY ? 0 : 1;
    });
    EXPECT_EQ(raw.result(), 0);
}

TEST_F(RawDriverTest, CallerDiesInTheMiddle) {
    RawProcess raw([](Raw& driver) {
        const uint32_t service = driver.find(kName);
        driver.call(service, kKeep,
                    callTo(kPeerDescriptor)
                        .add(objectOf(BINDER_TYPE_BINDER, 0x1000))
                        .add(descriptorOf(0))
                        .data());
        if (driver.next() != BR_REPLY) return 1;
        return driver.call(service, kHold, callTo(kPeerDescriptor).data()) ? 0 : 2;
    });
    EXPECT_EQ(raw.result(), 0);
    EXPECT_TRUE(eventually([this] { return ask(kHolding) == 1; }));
    raw.kill();
    EXPECT_EQ(call(kLetGo), STATUS_OK);
    EXPECT_TRUE(eventually([this] { return ask(kHolding) == 0; }));
}

// It is called back, and does not answer.
TEST_F(RawDriverTest, CallerDiesInTheMiddleOfACallBack) {
    RawProcess raw([](Raw& driver) {
        AParcel in;
        const ndk::SpAIBinder object = makePeerObject(nullptr);
        in.writeInterfaceToken(kPeerDescriptor);
        in.writeBinder(object.get());
        in.writeValue(int32_t{1});
        driver.call(driver.find(kName), kCallBack, in);
        return driver.next() == BR_TRANSACTION ? 0 : 1;
    });
    EXPECT_EQ(raw.result(), 0);
    raw.kill();
}

TEST_F(RawDriverTest, RepliesThatMakeNoSense) {
    // The last one dies.
    const std::pair<std::function<bool(Raw&)>, binder_status_t> answers[] = {
        {[](Raw& driver) { return driver.reply({}, 0); }, STATUS_OK},
        {[](Raw& driver) { return driver.reply({}, TF_STATUS_CODE); }, STATUS_UNKNOWN_ERROR},
        {[](Raw& driver) {
             return driver.reply({{0, 0, 0, 0}, {}}, TF_STATUS_CODE);
         },
         STATUS_OK},
        {[](Raw& driver) {
             const Payload status{{0xff, 0xff, 0xff, 0xff}, {}};  // -1
             return driver.reply(
                 Payload(status).add(descriptorOf(0)).add(objectOf(BINDER_TYPE_BINDER, 0x1000)),
                 TF_STATUS_CODE);
         },
         STATUS_PERMISSION_DENIED},
        {[](Raw& driver) {
             const flat_binder_object own = objectOf(BINDER_TYPE_BINDER, 0x1000);
             return driver.reply(Payload().add(own).add(own).add(descriptorOf(0)), 0);
         },
         STATUS_OK},
        {[](Raw& driver) {
             return driver.reply({{1, 2, 3, 4}, {64}}, 0);
         },
         STATUS_FAILED_TRANSACTION},
        {[](Raw& driver) { return driver.reply(Payload().add(descriptorOf(-1)), 0); },
         STATUS_FAILED_TRANSACTION},
        {[](Raw& driver) {
             return driver.reply({std::vector<uint8_t>(2U << 20), {}}, 0);
         },
         STATUS_FAILED_TRANSACTION},
        {[](Raw&) -> bool { _exit(0); }, STATUS_DEAD_OBJECT},
    };
    const RawProcess raw([&answers](Raw& driver) {
        if (!driver.serve()) return 1;
        driver.done(0);
        for (const auto& [answer, status] : answers) {
            if (driver.next() != BR_TRANSACTION || !answer(driver)) return 2;
        }
        return 0;
    });
    ASSERT_EQ(raw.result(), 0);
    const ndk::SpAIBinder object = find(kRawName);
    ASSERT_NE(object, nullptr);
    const size_t descriptors = descriptorsOf(getpid());
    const DriverCounts before = driverCountsOf(getpid());
    for (const auto& [answer, status] : answers) EXPECT_EQ(AIBinder_ping(object.get()), status);
    EXPECT_TRUE(keepsOnly(getpid(), descriptors));
    EXPECT_TRUE(driverCountsOf(getpid()).holdsNoMoreThan(before)) << driverCountsOf(getpid());
}

TEST_F(RawDriverTest, ReceiverNeverGivesAnythingBack) {
    RawProcess raw([](Raw& driver) {
        if (!driver.serve()) return 1;
        driver.done(0);
        for (;;) driver.next();
    });
    ASSERT_EQ(raw.result(), 0);
    const ndk::SpAIBinder object = find(kRawName);
    ASSERT_NE(object, nullptr);
    AParcel in;
    ASSERT_EQ(in.writeString(std::string(30000, 'x')), STATUS_OK);
    binder_status_t status = STATUS_OK;
    int accepted = -1;
    for (; status == STATUS_OK; ++accepted) status = callRaw(object, in, FLAG_ONEWAY);
    EXPECT_EQ(status, STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(accepted, 8);  // of 60,008 bytes, in half of 1 MiB less 8 KiB
    EXPECT_EQ(ask(kAdd, args(3, 4)), 7);
    raw.kill();
    EXPECT_TRUE(eventually([&] { return callRaw(object, in, FLAG_ONEWAY) == STATUS_DEAD_OBJECT; }));
}

// Those of this process: the call fails, and nothing is left open.
TEST_F(RawDriverTest, DescriptorsForWhichThereIsNoNumber) {
    constexpr char kMine[] = "lum.test.mine";
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder mine = makePeerObject(nullptr);
    ASSERT_EQ(AServiceManager_addService(mine.get(), kMine), EX_NONE);
    int turns[2];
    ASSERT_EQ(pipe(turns), 0);
    const UniqueFd turn(turns[0]);
    const UniqueFd giveTurn(turns[1]);
    const size_t descriptors = descriptorsOf(getpid());
    {
        const RawProcess raw([&](Raw& driver) {
            const uint32_t handle = driver.find(kMine);
            const Payload payload =
                Payload().add(descriptorOf(0)).add(descriptorOf(0)).add(descriptorOf(0));
            for (const uint32_t awaited : {BR_REPLY, BR_FAILED_REPLY, BR_REPLY}) {
                char ignored = 0;
                if (read(turn.get(), &ignored, 1) != 1) return 1;
                if (!driver.call(handle, kPingTransaction, payload.data())) return 2;
                if (driver.next() != awaited) return 3;
                driver.done(0);
            }
            return 0;
        });
        const auto resultOfCall = [&] {
            EXPECT_EQ(write(giveTurn.get(), "", 1), 1);
            return raw.result();
        };
        EXPECT_EQ(resultOfCall(), 0);
        {
            // Made while no call is under way, whose descriptors it would count.
            const DescriptorLimit two(2);
            EXPECT_EQ(resultOfCall(), 0);
        }
        EXPECT_EQ(resultOfCall(), 0);
        EXPECT_EQ(raw.result(), 0);
    }
    EXPECT_TRUE(keepsOnly(getpid(), descriptors));
}

// The service's first one-way call does not end, so that the others fill what it has for them.
TEST_F(RawDriverTest, OnewayCallsWithoutEnd) {
    RawProcess raw([](Raw& driver) {
        const uint32_t service = driver.find(kName);
        AParcel hold;
        hold.writeInterfaceToken(kPeerDescriptor);
        driver.call(service, kHold, hold, TF_ONE_WAY);
        if (driver.accepted() != BR_TRANSACTION_COMPLETE) return -1;
        AParcel note;
        note.writeInterfaceToken(kPeerDescriptor);
        note.writeValue(int32_t{0});
        note.writeString(std::string(5000, 'x'));
        int accepted = 0;
        for (int i = 0; i < 2000; ++i) {
            driver.call(service, kNote, note, TF_ONE_WAY);
            accepted += driver.accepted() == BR_TRANSACTION_COMPLETE;
        }
        return accepted;
    });
    const int accepted = raw.result();
    EXPECT_GT(accepted, 0);
    EXPECT_LT(accepted, 2000);
    EXPECT_EQ(oneway(kNote, args(std::vector<int8_t>(10000))), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(ask(kAdd, args(3, 4)), 7);
    raw.kill();
    EXPECT_EQ(ask(kNoted), 0);
    ASSERT_TRUE(eventually([this] { return ask(kHolding) == 1; }));
    EXPECT_EQ(call(kLetGo), STATUS_OK);
    EXPECT_TRUE(eventually([&] { return ask(kNoted) == accepted; }));
}

}  // namespace
