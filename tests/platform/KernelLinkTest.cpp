// SPDX-License-Identifier: Apache-2.0
// The link over the kernel's driver, with what the driver says written by hand: what it seldom
// says, and what peers send that makes no sense. It must be given back whatever comes of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/src/KernelLink.h"
#include "platform/linux/src/KernelRegistry.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/ServiceManagerInterface.h"
#include "tests/platform/CountedObject.h"
#include "tests/platform/ScriptedDriver.h"
#include "tests/support/AllocationLimit.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ThreadRefusal.h"

namespace {

constexpr uint32_t kHandle = 7;
constexpr uint32_t kPendingFrozen = _IO('r', 20);
constexpr int32_t kVendor = 3;

// What a call or a reply has, where the driver has put it.
class Buffer {
  public:
    void addNumber(int32_t number) { append(&number, sizeof number); }
    // size: how much there is of the entry.
    void addObject(uint32_t type, uint64_t name, size_t size = sizeof(ObjectEntry)) {
        mOffsets.push_back(mBytes.size());
        const ObjectEntry entry{type, 0, name, type == BINDER_TYPE_BINDER ? name : 0, kVendor};
        append(&entry, size);
    }
    void addDescriptor(int fd) {
        addObject(BINDER_TYPE_FD, static_cast<uint32_t>(fd), kDescriptorEntrySize);
    }
    // With a descriptor, an object of another process, and one of this.
    void addOfEach(int fd, const AIBinder* own) {
        addDescriptor(fd);
        addObject(BINDER_TYPE_HANDLE, kHandle);
        addObject(BINDER_TYPE_BINDER, reinterpret_cast<uintptr_t>(own));
    }

    uint64_t address() const { return reinterpret_cast<uintptr_t>(mBytes.data()); }
    binder_transaction_data data(uint32_t flags = 0) const {
        binder_transaction_data data{};
        data.flags = flags;
        data.data_size = mBytes.size();
        data.data.ptr.buffer = address();
        data.offsets_size = mOffsets.size() * sizeof(binder_size_t);
        data.data.ptr.offsets = reinterpret_cast<uintptr_t>(mOffsets.data());
        return data;
    }
    binder_transaction_data callOf(const AIBinder* object) const {
        binder_transaction_data call = data();
        call.code = kPingTransaction;
        call.cookie = reinterpret_cast<uintptr_t>(object);
        return call;
    }

  private:
    void append(const void* bytes, size_t size) {
        const auto* const from = static_cast<const uint8_t*>(bytes);
        mBytes.insert(mBytes.end(), from, from + size);
    }

    std::vector<uint8_t> mBytes;
    std::vector<binder_size_t> mOffsets;
};

int openDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    return fd;
}

bool isClosed(int fd) {
    return fcntl(fd, F_GETFD) == -1;
}

// Never ended, as its threads are not.
std::shared_ptr<KernelLink> makeLink() {
    static auto& sLinks = *new std::vector<std::shared_ptr<KernelLink>>();
    return sLinks.emplace_back(std::make_shared<KernelLink>(ScriptedDriver::kDevice));
}

class KernelLinkTest : public testing::Test {
  protected:
    KernelLinkTest() { mDriver.reset(); }

    void answer(uint32_t command) { mDriver.answer(KernelCommands().add(BR_NOOP).add(command)); }
    void answer(uint32_t command, const binder_transaction_data& data) {
        mDriver.answer(KernelCommands().add(BR_NOOP).add(command, data));
    }

    binder_status_t call(binder_flags_t flags = 0, std::unique_ptr<AParcel>* reply = nullptr) {
        const AParcel in;
        std::unique_ptr<AParcel> unused;
        return mLink->transact(kHandle, kPingTransaction, in, flags,
                               reply == nullptr ? &unused : reply);
    }
    binder_status_t callAnsweredBy(const Buffer& buffer, uint32_t flags = 0,
                                   std::unique_ptr<AParcel>* reply = nullptr) {
        answer(BR_TRANSACTION_COMPLETE);
        answer(BR_REPLY, buffer.data(flags));
        return call(0, reply);
    }

    uint64_t registerForDeath(std::unique_ptr<LateCommand>* late) {
        EXPECT_EQ(mLink->watchDeath(kHandle, late), STATUS_OK);
        const auto commands = mDriver.commands();
        EXPECT_EQ(commands.back().code, BC_REQUEST_DEATH_NOTIFICATION);
        return commands.back().argument;
    }

    ScriptedDriver& mDriver = ScriptedDriver::instance();
    const std::shared_ptr<KernelLink> mLink = makeLink();
    int mEnded = 0;
    const ndk::SpAIBinder mObject = makeCounted(&mEnded);
    const LogLine mError =
        logE("binder: the driver reports an error; it may have no memory to announce a death");
};

TEST_F(KernelLinkTest, EachAnswerToACallHasItsStatus) {
    const std::pair<uint32_t, binder_status_t> expected[] = {
        {BR_DEAD_REPLY, STATUS_DEAD_OBJECT},
        {BR_FAILED_REPLY, STATUS_FAILED_TRANSACTION},
        {BR_FROZEN_REPLY, STATUS_FAILED_TRANSACTION},
    };
    for (const auto& [command, status] : expected) {
        for (const binder_flags_t flags : {binder_flags_t{0}, binder_flags_t{FLAG_ONEWAY}}) {
            answer(command);
            EXPECT_EQ(call(flags), status);
        }
    }
}

TEST_F(KernelLinkTest, OnewayCallEndsWhenTheDriverHasIt) {
    for (const uint32_t command :
         {uint32_t{BR_TRANSACTION_COMPLETE}, uint32_t{BR_ONEWAY_SPAM_SUSPECT}, kPendingFrozen}) {
        answer(command);
        EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    }
}

// It comes without the number that belongs to it.
TEST_F(KernelLinkTest, ErrorOfTheDriverIsLoggedAndHidesNothing) {
    mDriver.answer(KernelCommands().add(BR_ERROR).add(BR_TRANSACTION_COMPLETE));
    const LogCapture log;
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{mError});
    mDriver.answer(KernelCommands().add(BR_NOOP).add(BR_ERROR));
    answer(BR_DEAD_REPLY);
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_DEAD_OBJECT);
}

// What an error holds up is carried out when it has been read.
TEST_F(KernelLinkTest, CallBehindAnErrorIsMade) {
    mDriver.holdUp();
    answer(BR_TRANSACTION_COMPLETE);
    const LogCapture log;
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    EXPECT_EQ(mDriver.count(BC_TRANSACTION), 1U);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{mError});
}

TEST_F(KernelLinkTest, ReferencesBehindErrorsAreCounted) {
    std::unique_ptr<LateCommand> late;
    registerForDeath(&late);
    const LogCapture log;
    mDriver.holdUp();
    mLink->unwatchDeath(kHandle);
    mDriver.holdUp();
    EXPECT_EQ(mLink->watchDeath(kHandle, &late), STATUS_OK);
    EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), 1U);
    EXPECT_EQ(mDriver.count(BC_DECREFS, kHandle), 1U);
    EXPECT_EQ(mDriver.count(BC_INCREFS, kHandle), 2U);
    EXPECT_EQ(mDriver.count(BC_REQUEST_DEATH_NOTIFICATION), 2U);
    answer(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{mError, mError}));
}

// What has been read before is not lost when the error is read.
TEST_F(KernelLinkTest, ErrorBetweenReferencesHidesNothing) {
    const binder_ptr_cookie name{0, reinterpret_cast<uintptr_t>(mObject.get())};
    mDriver.answer(
        KernelCommands().add(BR_INCREFS, name).add(BR_ACQUIRE, name).add(BR_TRANSACTION_COMPLETE));
    mDriver.holdUp(1);
    const LogCapture log;
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    EXPECT_EQ(mDriver.count(BC_INCREFS_DONE, name.cookie), 1U);
    EXPECT_EQ(mDriver.count(BC_ACQUIRE_DONE, name.cookie), 1U);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{});
    mDriver.answer(KernelCommands().add(BR_RELEASE, name).add(BR_DECREFS, name));
    answer(BR_DEAD_REPLY);
    EXPECT_EQ(call(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{mError});
    EXPECT_EQ(AIBinder_debugGetRefCount(mObject.get()), 1);
}

// What the driver says besides may be a thread's for a long time, unread.
TEST_F(KernelLinkTest, ReferencesBehindAnyNumberOfErrorsAreCounted) {
    constexpr size_t kTimes = 200;
    std::unique_ptr<LateCommand> late;
    for (size_t i = 0; i < kTimes; ++i) {
        EXPECT_EQ(mLink->watchDeath(kHandle, &late), STATUS_OK);
        mDriver.holdUp();
        mLink->unwatchDeath(kHandle);
    }
    EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), kTimes);
    EXPECT_EQ(mDriver.count(BC_DECREFS, kHandle), kTimes);
}

// It is not dead, and calls may get through later.
TEST_F(KernelLinkTest, CallThatTheDriverHasNoMemoryForFindsNone) {
    mDriver.refuseOnce();
    EXPECT_EQ(call(), STATUS_NO_MEMORY);
    EXPECT_EQ(mDriver.count(BC_TRANSACTION), 0U);
    answer(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
}

// The driver would not hear of its end. What it gives back is given back in any case.
TEST_F(KernelLinkTest, ThreadWithoutMemoryForItsDataCannotCall) {
    const ThreadDataRefusal refusal;
    EXPECT_EQ(call(), STATUS_NO_MEMORY);
    EXPECT_EQ(mDriver.count(BC_TRANSACTION), 0U);
    std::unique_ptr<LateCommand> late;
    registerForDeath(&late);
    mLink->unwatchDeath(kHandle);
    EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), 1U);
}

TEST_F(KernelLinkTest, ThreadThatTheDriverHasNoMemoryForIsMadeLater) {
    mDriver.refuseOnce();
    mLink->startThreadPool();
    EXPECT_TRUE(eventually([this] { return mDriver.hasRefused(); }));
    EXPECT_EQ(mDriver.count(BC_ENTER_LOOPER), 0U);
    EXPECT_TRUE(eventually([this] {
        mLink->startThreadPool();
        return mDriver.count(BC_ENTER_LOOPER) == 1;
    }));
}

// The number does not come from where errors of the system do.
TEST(KernelDriverTest, ReasonWhyItCannotBeUsedIsLogged) {
    std::vector<pthread_key_t> keys;
    pthread_key_t key{};
    while (pthread_key_create(&key, nullptr) == 0) keys.push_back(key);
    const LogCapture log;
    errno = 0;
    const KernelDriver driver(ScriptedDriver::kDevice);
    for (const pthread_key_t each : keys) pthread_key_delete(each);
    EXPECT_FALSE(driver.isOpen());
    EXPECT_EQ(log.lines(), std::vector<LogLine>{logE(
                               "binder: cannot use /dev/zero (Resource temporarily unavailable)")});
}

TEST_F(KernelLinkTest, StatusInPlaceOfAReplyIsReturned) {
    const std::pair<int32_t, binder_status_t> expected[] = {{STATUS_BAD_TYPE, STATUS_BAD_TYPE},
                                                            {-12345, STATUS_UNKNOWN_ERROR}};
    for (const auto& [sent, status] : expected) {
        mDriver.reset();
        Buffer reply;
        reply.addNumber(sent);
        EXPECT_EQ(callAnsweredBy(reply, TF_STATUS_CODE), status);
        EXPECT_EQ(mDriver.count(BC_FREE_BUFFER, reply.address()), 1U);
    }
    EXPECT_EQ(callAnsweredBy(Buffer(), TF_STATUS_CODE), STATUS_UNKNOWN_ERROR);
}

TEST_F(KernelLinkTest, StatusOfSuccessIsAReplyWithNothing) {
    Buffer buffer;
    buffer.addNumber(STATUS_OK);
    std::unique_ptr<AParcel> reply;
    EXPECT_EQ(callAnsweredBy(buffer, TF_STATUS_CODE, &reply), STATUS_OK);
    ASSERT_NE(reply, nullptr);
    int32_t number = 0;
    EXPECT_EQ(reply->readValue(&number), STATUS_NOT_ENOUGH_DATA);
}

TEST_F(KernelLinkTest, StatusWithObjectsGivesThemBack) {
    const int fd = openDescriptor();
    Buffer reply;
    reply.addNumber(STATUS_BAD_TYPE);
    reply.addOfEach(fd, mObject.get());
    EXPECT_EQ(callAnsweredBy(reply, TF_STATUS_CODE), STATUS_BAD_TYPE);
    EXPECT_TRUE(isClosed(fd));
    EXPECT_EQ(mDriver.count(BC_ACQUIRE, kHandle), mDriver.count(BC_RELEASE, kHandle));
    EXPECT_EQ(AIBinder_debugGetRefCount(mObject.get()), 1);
}

// Whatever allocation fails.
TEST_F(KernelLinkTest, ReplyThatFindsNoMemoryGivesEverythingBack) {
    binder_status_t status = STATUS_NO_MEMORY;
    long left = 0;
    for (; status == STATUS_NO_MEMORY; ++left) {
        mDriver.reset();
        const int fd = openDescriptor();
        const int last = openDescriptor();
        Buffer buffer;
        buffer.addOfEach(fd, mObject.get());
        buffer.addDescriptor(last);
        std::unique_ptr<AParcel> reply;
        answer(BR_TRANSACTION_COMPLETE);
        answer(BR_REPLY, buffer.data());
        {
            const AllocationLimit some(left);
            status = call(0, &reply);
        }
        EXPECT_EQ(reply == nullptr, status == STATUS_NO_MEMORY);
        reply.reset();
        EXPECT_TRUE(isClosed(fd));
        EXPECT_TRUE(isClosed(last));
        EXPECT_EQ(mDriver.count(BC_FREE_BUFFER, buffer.address()), 1U);
        EXPECT_EQ(mDriver.count(BC_ACQUIRE, kHandle), mDriver.count(BC_RELEASE, kHandle));
        EXPECT_EQ(AIBinder_debugGetRefCount(mObject.get()), 1);
    }
    EXPECT_EQ(status, STATUS_OK);
    EXPECT_GT(left, 7);  // bytes, objects, each descriptor, a proxy with its entry, the parcel
}

// A call that comes while this thread waits in one of its own.
TEST_F(KernelLinkTest, CallThatFindsNoMemoryIsAnsweredAndGivesEverythingBack) {
    binder_status_t answered = STATUS_NO_MEMORY;
    long left = 0;
    for (; answered == STATUS_NO_MEMORY; ++left) {
        mDriver.reset();
        const int fd = openDescriptor();
        Buffer buffer;
        buffer.addOfEach(fd, mObject.get());
        const Buffer nothing;
        binder_status_t status = STATUS_OK;
        answer(BR_TRANSACTION, buffer.callOf(mObject.get()));
        answer(BR_TRANSACTION_COMPLETE);
        answer(BR_REPLY, nothing.data());
        {
            const AllocationLimit one(left, AllocationLimit::kNextOnly);
            status = call();
        }
        const auto commands = mDriver.commands();
        for (const auto& command : commands) {
            if (command.code == BC_REPLY) answered = command.status;
        }
        EXPECT_EQ(mDriver.count(BC_REPLY), 1U);
        // When the call has all that it needs, the reply to this thread's own finds none.
        EXPECT_EQ(status, answered == STATUS_OK ? STATUS_NO_MEMORY : STATUS_OK);
        EXPECT_EQ(mDriver.count(BC_FREE_BUFFER, buffer.address()), 1U);
        EXPECT_TRUE(isClosed(fd));
        EXPECT_EQ(mDriver.count(BC_ACQUIRE, kHandle), mDriver.count(BC_RELEASE, kHandle));
        EXPECT_EQ(AIBinder_debugGetRefCount(mObject.get()), 1);
    }
    EXPECT_EQ(answered, STATUS_OK);
    EXPECT_GT(left, 6);  // bytes, objects, the descriptor, a proxy with its entry, the parcel
}

// The driver would refuse what the object's end may call until then.
TEST_F(KernelLinkTest, ObjectEndsWhenTheThreadWaitsNoMore) {
    static size_t sRepliesBefore;
    static AIBinder_Class* const sWatched = plainClass("test.Watched", [](void* driver) {
        sRepliesBefore = static_cast<ScriptedDriver*>(driver)->count(BC_FREE_BUFFER);
    });
    ndk::SpAIBinder object(AIBinder_new(sWatched, &mDriver));
    const binder_ptr_cookie name{0, reinterpret_cast<uintptr_t>(object.get())};
    mDriver.answer(KernelCommands().add(BR_INCREFS, name).add(BR_ACQUIRE, name));
    answer(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    object = nullptr;
    mDriver.answer(KernelCommands().add(BR_RELEASE, name).add(BR_DECREFS, name));
    sRepliesBefore = 2;
    EXPECT_EQ(callAnsweredBy(Buffer()), STATUS_OK);
    EXPECT_EQ(sRepliesBefore, 1U);
    EXPECT_EQ(mDriver.count(BC_INCREFS_DONE, name.cookie), 1U);
    EXPECT_EQ(mDriver.count(BC_ACQUIRE_DONE, name.cookie), 1U);
}

TEST_F(KernelLinkTest, ObjectsThatNoParcelHasAreNotRead) {
    Buffer buffer;
    buffer.addObject(BINDER_TYPE_WEAK_HANDLE, kHandle);
    buffer.addObject(BINDER_TYPE_PTR, kHandle, sizeof(binder_buffer_object) - 12);
    buffer.addNumber(0);
    buffer.addNumber(0);
    buffer.addNumber(0);
    // Their words of stability lie under the next object, and behind the end.
    buffer.addObject(BINDER_TYPE_HANDLE, kHandle, sizeof(flat_binder_object));
    buffer.addObject(BINDER_TYPE_HANDLE, kHandle, sizeof(flat_binder_object));
    std::unique_ptr<AParcel> reply;
    EXPECT_EQ(callAnsweredBy(buffer, 0, &reply), STATUS_OK);
    ASSERT_NE(reply, nullptr);
    EXPECT_TRUE(reply->objects().empty());
    AIBinder* object = nullptr;
    EXPECT_EQ(reply->readBinder(&object), STATUS_BAD_TYPE);
    EXPECT_EQ(mDriver.count(BC_ACQUIRE, kHandle), 2U);
    EXPECT_EQ(mDriver.count(BC_RELEASE, kHandle), 2U);
}

TEST_F(KernelLinkTest, ThreadThatCouldNotBeMadeIsMadeLater) {
    const LogCapture log;
    const LogLine refused = logE(
        "binder: no thread for incoming calls (Resource temporarily unavailable), tried again with "
        "the next call that this process makes or carries out");
    {
        const ThreadRefusal refusal;
        mLink->startThreadPool();
        mLink->startThreadPool();
    }
    EXPECT_EQ(log.lines(), std::vector<LogLine>{refused});
    mLink->startThreadPool();
    EXPECT_TRUE(eventually([this] { return mDriver.count(BC_ENTER_LOOPER) == 1; }));
    {
        const ThreadRefusal refusal;
        mDriver.answer(KernelCommands().add(BR_SPAWN_LOOPER).add(BR_TRANSACTION_COMPLETE));
        EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    }
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{refused, refused}));
    answer(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(call(FLAG_ONEWAY), STATUS_OK);
    EXPECT_TRUE(eventually([this] { return mDriver.count(BC_REGISTER_LOOPER) == 1; }));
    mLink->startThreadPool();
    EXPECT_EQ(mDriver.count(BC_ENTER_LOOPER), 1U);
}

TEST_F(KernelLinkTest, ThreadOfTheProgramServesWhenNoneCanBeMade) {
    std::thread([link = mLink] { link->serve(BC_ENTER_LOOPER); }).detach();
    const ThreadRefusal refusal;
    const Buffer buffer;
    mDriver.answerPool(KernelCommands().add(BR_TRANSACTION, buffer.callOf(mObject.get())));
    mDriver.answerPool(KernelCommands().add(BR_TRANSACTION_COMPLETE));
    EXPECT_TRUE(eventually([this] { return mDriver.count(BC_REPLY) == 1; }));
    EXPECT_EQ(mDriver.count(BC_ENTER_LOOPER), 1U);
}

TEST_F(KernelLinkTest, LateEndLeavesTheRegistrationOfAnotherObject) {
    std::unique_ptr<LateCommand> late;
    const uint64_t first = registerForDeath(&late);
    mLink->unwatchDeath(kHandle);
    EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), 1U);
    std::unique_ptr<LateCommand> lateForOther;
    const uint64_t second = registerForDeath(&lateForOther);
    EXPECT_NE(first, second);
    LateCommand::queue(std::move(late));
    LateCommand::runQueued();
    EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), 1U);
    LateCommand::queue(std::move(lateForOther));
    LateCommand::runQueued();
    EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), 2U);
    EXPECT_EQ(mDriver.count(BC_INCREFS, kHandle), 2U);
    EXPECT_EQ(mDriver.count(BC_DECREFS, kHandle), 2U);
}

// Also one that comes when the registration has just ended.
TEST_F(KernelLinkTest, EachDeathIsConfirmedAndEndsItsRegistrationOnce) {
    mLink->startThreadPool();
    std::unique_ptr<LateCommand> late;
    const uint64_t cookie = registerForDeath(&late);
    for (size_t times = 1; times <= 2; ++times) {
        mDriver.answerPool(KernelCommands().add(BR_NOOP).add(BR_DEAD_BINDER, cookie));
        EXPECT_TRUE(
            eventually([&] { return mDriver.count(BC_DEAD_BINDER_DONE, cookie) == times; }));
        EXPECT_EQ(mDriver.count(BC_CLEAR_DEATH_NOTIFICATION), 1U);
        EXPECT_EQ(mDriver.count(BC_DECREFS, kHandle), 1U);
    }
}

TEST_F(KernelLinkTest, RegistrationThatFindsNoMemoryTellsTheDriverNothing) {
    long left = 0;
    for (bool registered = false; !registered; ++left) {
        std::unique_ptr<LateCommand> late;
        try {
            const AllocationLimit some(left);
            registered = mLink->watchDeath(kHandle, &late) == STATUS_OK;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(mDriver.count(BC_INCREFS), 0U);
            EXPECT_EQ(mDriver.count(BC_REQUEST_DEATH_NOTIFICATION), 0U);
        }
    }
    EXPECT_EQ(left, 4);  // the late end, the notification, the entry
    EXPECT_EQ(mDriver.count(BC_REQUEST_DEATH_NOTIFICATION), 1U);
}

// Calls `end` in children that are made while another thread calls `busy` again and again. Returns
// whether all came to its end.
bool comesToAnEndInChildren(const std::function<void()>& busy, const std::function<void()>& end) {
    std::atomic<bool> stop{false};
    Counter calls;
    std::thread other([&] {
        while (!stop) {
            busy();
            calls.add();
        }
    });
    bool ended = calls.waitFor();
    for (int i = 0; i < 30 && ended; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            end();
            _exit(0);
        }
        int status = -1;
        ended = eventually([&] { return waitpid(child, &status, WNOHANG) != 0; });
        if (!ended) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        ended = ended && status == 0;
    }
    stop = true;
    other.join();
    return ended;
}

// Whatever the parent's threads had locked.
TEST_F(KernelLinkTest, ChildMayEndWhatItHasOfTheParent) {
    Buffer reply;
    reply.addObject(BINDER_TYPE_HANDLE, kHandle);
    reply.addObject(BINDER_TYPE_HANDLE, kHandle + 1);
    std::unique_ptr<AParcel> received;
    EXPECT_EQ(callAnsweredBy(reply, 0, &received), STATUS_OK);
    ndk::SpAIBinder first;
    ndk::SpAIBinder second;
    EXPECT_EQ(received->readBinder(first.getR()), STATUS_OK);
    EXPECT_EQ(received->readBinder(second.getR()), STATUS_OK);
    received.reset();
    const ndk::ScopedAIBinder_DeathRecipient recipient(
        AIBinder_DeathRecipient_new([](void* /*cookie*/) {}));
    // Each holds another lock while the driver carries out what it says.
    EXPECT_TRUE(comesToAnEndInChildren(
        [&] {
            std::unique_ptr<LateCommand> late;
            EXPECT_EQ(mLink->watchDeath(kHandle, &late), STATUS_OK);
            mLink->unwatchDeath(kHandle);
        },
        [&] {
            mLink->unwatchDeath(kHandle);
            second.set(nullptr);
        }));
    EXPECT_TRUE(comesToAnEndInChildren(
        [&] {
            AIBinder_linkToDeath(first.get(), recipient.get(), nullptr);
            AIBinder_unlinkToDeath(first.get(), recipient.get(), nullptr);
        },
        [&] { second.set(nullptr); }));
}

// With an exception that no service manager answers with.
TEST(KernelRegistryTest, DeviceThatCannotBeUsedIsReported) {
    const LogCapture log;
    KernelRegistry registry("/dev/none");
    EXPECT_EQ(registry.mayFind("lum.test").getExceptionCode(), EX_UNSUPPORTED_OPERATION);
    int ended = 0;
    const ndk::SpAIBinder object = makeCounted(&ended);
    EXPECT_EQ(registry.add(*object.get()->asLocal(), "lum.test"), EX_UNSUPPORTED_OPERATION);
    EXPECT_EQ(registry.find("lum.test"), nullptr);
    EXPECT_EQ(log.lines().size(), 1U);
}

// Whatever allocation fails: the service manager is not left with the callback, nor asked to give
// back what it never got, and the wait goes on.
TEST(KernelRegistryTest, WaitsAlsoAfterItFoundNoMemory) {
    ScriptedDriver& driver = ScriptedDriver::instance();
    static auto& sRegistry = *new KernelRegistry(ScriptedDriver::kDevice);
    Buffer nobody;
    for (const int32_t number : {0, int32_t{BINDER_TYPE_BINDER}, 0, 0, 0, 0, 0, 0}) {
        nobody.addNumber(number);
    }
    Buffer accepted;
    accepted.addNumber(0);
    const LogLine unanswered =
        logE("binder: no service manager at /dev/zero to ask about lum.test");
    size_t takenBack = 0;
    bool waited = false;
    for (long left = 0; left < 100; ++left) {
        driver.reset();
        driver.answer(KernelCommands().add(BR_NOOP).add(BR_REPLY, nobody.data()));
        driver.answer(KernelCommands().add(BR_NOOP).add(BR_REPLY, accepted.data()));
        for (int i = 0; i < 2; ++i) driver.answer(KernelCommands().add(BR_DEAD_REPLY));
        const LogCapture log;
        try {
            const AllocationLimit one(left, AllocationLimit::kNextOnly);
            EXPECT_EQ(sRegistry.waitFor("lum.test"), nullptr);
            waited = true;
        } catch (const std::bad_alloc&) {
        }
        const size_t started = driver.count(BC_TRANSACTION, kRegisterForNotifications);
        EXPECT_EQ(driver.count(BC_TRANSACTION, kUnregisterForNotifications), started) << left;
        if (waited) break;
        EXPECT_EQ(log.count(unanswered), started) << left;
        takenBack += started;
    }
    EXPECT_TRUE(waited);
    EXPECT_EQ(driver.count(BC_TRANSACTION, kGetService), 2U);
    EXPECT_EQ(takenBack, 2U);  // of the answer: the bytes, the parcel
}

}  // namespace
