// SPDX-License-Identifier: Apache-2.0
// The calls between processes and the platform's service manager, from both ends, without a driver:
// their bytes as the platform's versions 11 to 15 write them.
#include <gtest/gtest.h>
#include <lum/service_manager.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/BinderDevice.h"
#include "platform/linux/src/CallContext.h"
#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "platform/linux/src/ServiceManagerProxy.h"
#include "platform/linux/src/Stability.h"
#include "tests/platform/CountedObject.h"
#include "tests/support/Hex.h"
#include "tests/support/LogCapture.h"
#include "tools/servicemanager/ServiceManager.h"

namespace {

using ndk::SpAIBinder;

using Texts = std::vector<std::string>;

// Strict mode, work source, "VNDR", and the 26 units of "android.os.IServiceManager".
const std::string kToken =
    "00 00 00 80 FF FF FF FF 52 44 4E 56 1A 00 00 00 61 00 6E 00 64 00 72 00 6F 00 69 00 64 00 2E 00 "
    "6F 00 73 00 2E 00 49 00 53 00 65 00 72 00 76 00 69 00 63 00 65 00 4D 00 61 00 6E 00 61 00 67 00 "
    "65 00 72 00 00 00 00 00 ";
// The same with the 27 units of "android.os.IServiceCallback".
const std::string kCallbackToken =
    "00 00 00 80 FF FF FF FF 52 44 4E 56 1B 00 00 00 61 00 6E 00 64 00 72 00 6F 00 69 00 64 00 2E 00 "
    "6F 00 73 00 2E 00 49 00 53 00 65 00 72 00 76 00 69 00 63 00 65 00 43 00 61 00 6C 00 6C 00 62 00 "
    "61 00 63 00 6B 00 00 00 ";
// "lum".
const std::string kName = "03 00 00 00 6C 00 75 00 6D 00 00 00";
const std::string kOk = "00 00 00 00";
// Objects without their stability.
const std::string kLocal =
    " 85 2A 62 73 13 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
const std::string kRemote =
    " 85 2A 68 73 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
const std::string kNull =
    " 85 2A 62 73 13 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
const std::string kUndeclaredWord = "00 00 00 00";
const std::string kVendorWord = "03 00 00 00";
// EX_SECURITY, "no", and nothing about where it happened.
const std::string kRefused = "FF FF FF FF 02 00 00 00 6E 00 6F 00 00 00 00 00 00 00 00 00";

constexpr char kDevice[] = "/dev/vndbinder";

// A parcel that has come, with that object, if any, where this one begins.
std::unique_ptr<AParcel> received(const std::string& hex, AIBinder* object = nullptr,
                                  size_t offset = 4) {
    std::vector<AParcel::Object> objects;
    if (object != nullptr) objects.push_back({offset, refTo(object)});
    return std::make_unique<AParcel>(fromHex(hex), std::move(objects));
}

struct Reply {
    std::string hex;
    SpAIBinder object{};                 // at offset 4
    binder_status_t status = STATUS_OK;  // instead, if it is another
};
using Replies = std::vector<Reply>;

class Late final : public LateCommand {
  public:
    explicit Late(std::function<void()> body) : mBody(std::move(body)) {}

  private:
    void run() noexcept override { mBody(); }

    const std::function<void()> mBody;
};

// Answers what it is asked with one reply after the other, the last again and again, and keeps the
// calls as "HANDLE CODE FLAGS: BYTES".
class AnsweringLink final : public Link {
  public:
    explicit AnsweringLink(Replies replies = {{kOk}}) : mReplies(std::move(replies)) {}

    binder_status_t watched = STATUS_OK;  // what watchDeath() returns
    bool alive = true;
    bool lacksMemory = false;  // transact() throws
    std::function<void()> onUnwatch = [] {};
    std::function<void()> onRelease = [] {};
    std::function<void(AIBinder*)> onCallback = [](AIBinder*) {};  // that is to be notified

    Texts takeCalls() { return std::exchange(mCalls, {}); }

    binder_status_t transact(uint32_t handle, transaction_code_t code, const AParcel& in,
                             binder_flags_t flags, std::unique_ptr<AParcel>* out) override {
        mCalls.push_back(std::to_string(handle) + " " + std::to_string(code) + " " +
                         std::to_string(flags) + ": " + toHex(in.bytes()));
        if (code == 5) onCallback(in.objects().back().binder.get());
        if (lacksMemory) throw std::bad_alloc();
        if (mReplies.empty()) return STATUS_DEAD_OBJECT;
        const Reply reply = mReplies.front();
        if (mReplies.size() > 1) mReplies.erase(mReplies.begin());
        if (reply.status != STATUS_OK) return reply.status;
        *out = received(reply.hex, reply.object.get());
        return STATUS_OK;
    }
    void releaseProxy(RemoteBinder&) noexcept override { onRelease(); }
    bool isAlive() override { return alive; }
    binder_status_t watchDeath(uint32_t, std::unique_ptr<LateCommand>* late) override {
        if (watched == STATUS_OK) *late = std::make_unique<Late>([] {});
        return watched;
    }
    void unwatchDeath(uint32_t) noexcept override { onUnwatch(); }

  private:
    Replies mReplies;
    Texts mCalls;
};

SpAIBinder makeRemote(const std::shared_ptr<AnsweringLink>& link, uint32_t handle) {
    return SpAIBinder(new RemoteBinder(link, handle));
}

// ---- Calls to it

class ServiceManagerProxyTest : public testing::Test {
  protected:
    ServiceManagerProxyTest() { OwnStability::writeAs(kUndeclared); }

    // The calls that a service's registration makes when the look-up before it is answered so.
    Texts callsToAdd(const std::string& answer) {
        const auto link = std::make_shared<AnsweringLink>(Replies{{kOk + answer}, {kOk}});
        EXPECT_TRUE(
            ServiceManagerProxy(link, kDevice).add(*mObject.get()->asLocal(), "lum").isOk());
        return link->takeCalls();
    }

    int mEnded = 0;
    const SpAIBinder mObject = makeCounted(&mEnded);
    const std::string mLookUp = "0 2 0: " + kToken + kName;
    const std::string mGet = "0 1 0: " + kToken + kName;
};

TEST_F(ServiceManagerProxyTest, ServiceIsLookedUp) {
    const SpAIBinder service = makeRemote(std::make_shared<AnsweringLink>(), 7);
    const auto link = std::make_shared<AnsweringLink>(
        Replies{{kOk + kRemote + "0C 00 00 00", service}, {kOk + kNull + kUndeclaredWord}});
    ServiceManagerProxy manager(link, kDevice);
    BinderRef found;
    EXPECT_TRUE(manager.find("lum", &found).isOk());
    EXPECT_EQ(found.get(), service.get());
    EXPECT_TRUE(manager.find("lum", &found).isOk());
    EXPECT_EQ(found.get(), nullptr);
    EXPECT_EQ(link->takeCalls(), (Texts{mLookUp, mLookUp}));
}

TEST_F(ServiceManagerProxyTest, ServiceIsAdded) {
    const std::string end = " 00 00 00 00 08 00 00 00";
    EXPECT_EQ(callsToAdd(kNull + kUndeclaredWord),
              (Texts{mLookUp, "0 3 0: " + kToken + kName + kLocal + kVendorWord + end}));
    // Version 12 has its own word, here of null.
    EXPECT_EQ(callsToAdd(kNull + "01 00 00 00"),
              (Texts{mLookUp, "0 3 0: " + kToken + kName + kLocal + "01 00 00 03" + end}));
}

// It may be how version 12 writes null, too.
TEST_F(ServiceManagerProxyTest, WordZeroLeavesWhatIsKnown) {
    OwnStability::writeAs(packedStability(kSystem));
    const Texts calls = callsToAdd(kNull + kUndeclaredWord);
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_NE(calls[1].find(kLocal + "01 00 00 03"), std::string::npos) << calls[1];
}

TEST_F(ServiceManagerProxyTest, RightToLookIsAskedForByAnnouncement) {
    // As version 12 answers: with its own word.
    const auto link =
        std::make_shared<AnsweringLink>(Replies{{kOk + kNull + "01 00 00 00"}, {kOk}});
    EXPECT_TRUE(ServiceManagerProxy(link, kDevice).mayFind("lum").isOk());
    const std::string rest = " 0: " + kToken + kName + kLocal + "01 00 00 03";
    EXPECT_EQ(link->takeCalls(), (Texts{mLookUp, "0 5" + rest, "0 6" + rest}));
}

// That of another partition than its own a service manager may not call.
TEST_F(ServiceManagerProxyTest, CallbackIsOfTheDevicesPartition) {
    const std::pair<std::string, std::string> words[] = {{kUndeclaredWord, "0C 00 00 00"},
                                                         {"01 00 00 00", "01 00 00 0C"}};
    for (const auto& [ofNull, ofSystem] : words) {
        const auto link = std::make_shared<AnsweringLink>(Replies{{kOk + kNull + ofNull}, {kOk}});
        EXPECT_TRUE(ServiceManagerProxy(link, "/dev/binder").mayFind("lum").isOk());
        const std::string rest = " 0: " + kToken + kName + kLocal + ofSystem;
        EXPECT_EQ(link->takeCalls(), (Texts{mLookUp, "0 5" + rest, "0 6" + rest}));
    }
}

TEST_F(ServiceManagerProxyTest, WaitingEndsWhenItIsRefused) {
    const auto link =
        std::make_shared<AnsweringLink>(Replies{{kOk + kNull + kUndeclaredWord}, {kRefused}});
    const LogCapture log;
    EXPECT_EQ(ServiceManagerProxy(link, kDevice).waitFor("lum"), nullptr);
    EXPECT_EQ(link->takeCalls().size(), 2U);
    EXPECT_EQ(log.lines(),
              std::vector<LogLine>{logE("binder: the service manager refuses a call about lum: "
                                        "Status(-1, EX_SECURITY): 'no'")});
}

// Nor is the service manager left with the callback.
TEST_F(ServiceManagerProxyTest, WaitingGoesOnWithoutMemory) {
    const SpAIBinder service = makeRemote(std::make_shared<AnsweringLink>(), 7);
    const auto link =
        std::make_shared<AnsweringLink>(Replies{{kOk + kNull + kUndeclaredWord},
                                                {kOk},
                                                {"", nullptr, STATUS_NO_MEMORY},
                                                {kOk + kRemote + kVendorWord, service},
                                                {"", nullptr, STATUS_NO_MEMORY}});
    EXPECT_EQ(ServiceManagerProxy(link, kDevice).waitFor("lum").get(), service.get());
    const std::string rest = " 0: " + kToken + kName + kLocal + kVendorWord;
    EXPECT_EQ(link->takeCalls(), (Texts{mGet, "0 5" + rest, mGet, mGet, "0 6" + rest}));
}

// With its end, code of the application may run.
TEST_F(ServiceManagerProxyTest, ServiceThatIsReplacedWhileItArrivesEndsWithNothingLocked) {
    const auto link =
        std::make_shared<AnsweringLink>(Replies{{kOk + kNull + kUndeclaredWord}, {kOk}});
    const auto others = std::make_shared<AnsweringLink>();
    link->onCallback = [&](AIBinder* callback) {
        const auto notify = [=](const SpAIBinder& service) {
            const std::unique_ptr<AParcel> in =
                received(kCallbackToken + kName + kRemote + kVendorWord, service.get(),
                         fromHex(kCallbackToken + kName).size());
            AParcel out;
            EXPECT_EQ(callback->asLocal()->transact(1, *in, &out), STATUS_OK);
        };
        // It would wait for itself.
        others->onRelease = [=] { notify(makeRemote(link, 9)); };
        notify(makeRemote(others, 7));
        notify(makeRemote(link, 8));
    };
    const BinderRef found = ServiceManagerProxy(link, kDevice).waitFor("lum");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->asRemote()->handle(), 9U);
}

TEST_F(ServiceManagerProxyTest, NoServiceManagerIsReported) {
    const LogCapture log;
    BinderRef found;
    const ndk::ScopedAStatus status =
        ServiceManagerProxy(std::make_shared<AnsweringLink>(Replies{}), kDevice)
            .find("lum", &found);
    EXPECT_EQ(status.getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{logE(
                               "binder: no service manager at /dev/vndbinder to ask about lum")});
}

TEST_F(ServiceManagerProxyTest, AnswersThatMakeNoSenseAreRefused) {
    const std::string answers[] = {
        "",                               // no status
        kOk,                              // no object
        kOk + kRemote + "0C 00 00 00",    // none that the driver knows
        kOk + kNull + "03 00 00 00",      // null with a stability
        "FF FF FF FF 02 00 00 00 6E 00",  // half of a refusal
    };
    for (const std::string& answer : answers) {
        const LogCapture log;
        BinderRef found;
        const auto link = std::make_shared<AnsweringLink>(Replies{{answer}});
        EXPECT_FALSE(ServiceManagerProxy(link, kDevice).find("lum", &found).isOk()) << answer;
        EXPECT_EQ(log.lines().size(), 1U) << answer;
    }
}

TEST(Partition, IsTheVendorsAtItsDeviceAndWithoutOne) {
    EXPECT_EQ(partitionAt(""), 0x564E4452U);
    EXPECT_EQ(partitionAt("/dev/vndbinder"), 0x564E4452U);
    EXPECT_EQ(partitionAt("/dev/binderfs/vndbinder"), 0x564E4452U);
    EXPECT_EQ(partitionAt("/dev/one-vndbinder"), 0x564E4452U);
    EXPECT_EQ(partitionAt("/dev/binder"), 0x53595354U);
    EXPECT_EQ(partitionAt("/dev/one-binder"), 0x53595354U);
    EXPECT_EQ(partitionAt("/dev/vndbinder/one"), 0x53595354U);
    EXPECT_EQ(partitionAt("ndbinder"), 0x53595354U);
}

TEST(Partition, IsThatOfTheDeviceWhateverBecomesOfTheEnvironment) {
    const std::string device = LumServiceManager_device();
    ASSERT_EQ(setenv("LUM_BINDER", "/dev/other", 1), 0);
    EXPECT_EQ(LumServiceManager_device(), device);
    EXPECT_EQ(binderPartition(), partitionAt(device));
}

// ---- Ours

// Kept, as none ends.
const ServiceManager& makeManager() {
    static auto& sManagers = *new std::vector<const ServiceManager*>();
    return *sManagers.emplace_back(new ServiceManager());
}

class ServiceManagerTest : public testing::Test {
  protected:
    // Calls it as a process of that user does, each time another one. object: at the end of what
    // the call begins with.
    std::string call(transaction_code_t code, const std::string& rest, AIBinder* object = nullptr,
                     uid_t uid = 1000) {
        const CallContext context{uid, ++mPid, nullptr};
        const CallScope scope(context);
        const std::unique_ptr<AParcel> in =
            received(kToken + rest, object, fromHex(kToken + kName).size());
        AParcel out;
        EXPECT_EQ(mManager.object().get()->asLocal()->transact(code, *in, &out), STATUS_OK);
        return toHex(out.bytes());
    }
    std::string add(const SpAIBinder& object, uid_t uid = 1000, const std::string& name = kName) {
        return call(3, name + kRemote + kVendorWord + " 00 00 00 00 08 00 00 00", object.get(),
                    uid);
    }
    std::string startNotifying(const SpAIBinder& callback, const std::string& name = kName,
                               uid_t uid = 1000) {
        return call(5, name + kRemote + kVendorWord, callback.get(), uid);
    }
    // Of a call that is refused: its exception.
    static std::string exceptionOf(const std::string& answer) { return answer.substr(0, 11); }
    static void die(const SpAIBinder& object) {
        DeathNotification notification;
        notification.setProxy(refTo(object.get()));
        notification.run();
    }
    bool knows() { return call(2, kName) == kOk + kRemote + kVendorWord; }

    pid_t mPid = 4711;
    const ServiceManager& mManager = makeManager();
    const std::shared_ptr<AnsweringLink> mLink = std::make_shared<AnsweringLink>();
    const SpAIBinder mService = makeRemote(mLink, 7);
    const std::string mNone = kOk + kNull + kUndeclaredWord;
    const std::string mIllegalState = "FB FF FF FF";
};

TEST_F(ServiceManagerTest, NamesAreKeptAndListed) {
    EXPECT_EQ(call(1, kName), mNone);
    EXPECT_EQ(call(2, kName), mNone);
    EXPECT_EQ(call(4, "08 00 00 00"), kOk + " 00 00 00 00");
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(call(1, kName), kOk + kRemote + kVendorWord);
    EXPECT_EQ(call(2, kName), kOk + kRemote + kVendorWord);
    EXPECT_EQ(call(4, "08 00 00 00"), kOk + " 01 00 00 00 " + kName);
}

TEST_F(ServiceManagerTest, NameOfAnotherUserIsRefused) {
    EXPECT_EQ(add(mService), kOk);
    const SpAIBinder other = makeRemote(mLink, 8);
    const std::string security = "FF FF FF FF 1D 00 00 00";  // and a text of 29 units
    for (const uid_t uid : {0U, 1001U}) EXPECT_EQ(add(other, uid).substr(0, 23), security);
    // The same user may.
    EXPECT_EQ(add(other), kOk);
    EXPECT_TRUE(knows());
}

TEST_F(ServiceManagerTest, NamesAndNullsThatCannotBeAreRefused) {
    // EX_NULL_POINTER, EX_ILLEGAL_ARGUMENT.
    EXPECT_EQ(call(3, kName + kNull + kUndeclaredWord + " 00 00 00 00 08 00 00 00").substr(0, 11),
              "FC FF FF FF");
    EXPECT_EQ(call(5, kName + kNull + kUndeclaredWord).substr(0, 11), "FC FF FF FF");
    EXPECT_EQ(add(mService, 1000, "03 00 00 00 6C 00 20 00 6D 00 00 00").substr(0, 11),
              "FD FF FF FF");
    EXPECT_EQ(call(4, "08 00 00 00"), kOk + " 00 00 00 00");
}

TEST_F(ServiceManagerTest, ThoseWhoWaitAreNotified) {
    const SpAIBinder callback = makeRemote(mLink, 9);
    const std::string wanted = kName + kRemote + kVendorWord;
    EXPECT_EQ(call(5, wanted, callback.get()), kOk);
    EXPECT_EQ(mLink->takeCalls(), Texts{});
    EXPECT_EQ(add(mService), kOk);
    const Texts notified{"9 1 1: " + kCallbackToken + kName + kRemote + kVendorWord};
    EXPECT_EQ(mLink->takeCalls(), notified);
    // Who comes later hears of the one that is there.
    EXPECT_EQ(call(5, wanted, callback.get()), kOk);
    EXPECT_EQ(mLink->takeCalls(), notified);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(call(6, wanted, callback.get()), kOk);
    // EX_ILLEGAL_STATE.
    EXPECT_EQ(call(6, wanted, callback.get()).substr(0, 11), "FB FF FF FF");
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(mLink->takeCalls(), Texts{});
}

// Not what they are notified of, nor the others.
TEST_F(ServiceManagerTest, NotificationThatFindsNoMemoryEndsNothingElse) {
    const auto lacking = std::make_shared<AnsweringLink>();
    lacking->lacksMemory = true;
    const SpAIBinder first = makeRemote(lacking, 9);
    EXPECT_EQ(startNotifying(first), kOk);
    EXPECT_EQ(startNotifying(makeRemote(mLink, 10)), kOk);
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(lacking->takeCalls().size(), 1U);
    EXPECT_EQ(mLink->takeCalls().size(), 1U);
    EXPECT_EQ(startNotifying(first), kOk);
    EXPECT_EQ(lacking->takeCalls().size(), 1U);
}

TEST_F(ServiceManagerTest, NamesAndCallbacksGoWithTheirProcess) {
    const SpAIBinder callback = makeRemote(mLink, 9);
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(startNotifying(callback), kOk);
    EXPECT_EQ(mLink->takeCalls().size(), 1U);
    die(mService);
    EXPECT_FALSE(knows());
    EXPECT_EQ(call(4, "08 00 00 00"), kOk + " 00 00 00 00");
    // Anybody may have the name then.
    const SpAIBinder other = makeRemote(mLink, 8);
    EXPECT_EQ(add(other, 1001), kOk);
    EXPECT_EQ(mLink->takeCalls().size(), 1U);
    die(callback);
    EXPECT_EQ(add(other, 1001), kOk);
    EXPECT_EQ(mLink->takeCalls(), Texts{});
    EXPECT_TRUE(knows());
}

TEST_F(ServiceManagerTest, DeathOfWhatWasReplacedTakesNothing) {
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(add(makeRemote(mLink, 8)), kOk);
    die(mService);
    EXPECT_TRUE(knows());
}

// What the manager would never hear of, it would hold for ever.
TEST_F(ServiceManagerTest, ObjectsWhoseDeathIsNotHeardOfAreRefused) {
    const auto lacking = std::make_shared<AnsweringLink>();
    lacking->watched = STATUS_NO_MEMORY;
    const auto gone = std::make_shared<AnsweringLink>();
    gone->alive = false;  // since it was linked to
    const SpAIBinder dead = makeRemote(mLink, 8);
    die(dead);
    const SpAIBinder objects[] = {mManager.object(), makeRemote(lacking, 7), makeRemote(gone, 7),
                                  dead};
    for (const SpAIBinder& object : objects) {
        EXPECT_EQ(exceptionOf(add(object)), mIllegalState);
        EXPECT_EQ(exceptionOf(startNotifying(object)), mIllegalState);
    }
    EXPECT_EQ(call(4, "08 00 00 00"), kOk + " 00 00 00 00");
    EXPECT_EQ(add(mService), kOk);
    for (const SpAIBinder& object : objects) {
        EXPECT_EQ(exceptionOf(add(object)), mIllegalState);
        EXPECT_TRUE(knows());
    }
}

TEST_F(ServiceManagerTest, NameToWaitForHasToBeOne) {
    // EX_ILLEGAL_ARGUMENT.
    EXPECT_EQ(exceptionOf(startNotifying(mService, "03 00 00 00 6C 00 20 00 6D 00 00 00")),
              "FD FF FF FF");
}

// Whichever of its processes they are of.
TEST_F(ServiceManagerTest, UserHasSoManyNamesAndCallbacks) {
    const SpAIBinder callback = makeRemote(mLink, 9);
    EXPECT_EQ(add(mService), kOk);
    for (int i = 1; i < 5000; ++i) ASSERT_EQ(startNotifying(callback), kOk) << i;
    EXPECT_EQ(exceptionOf(startNotifying(callback)), mIllegalState);
    const std::string otherName = "03 00 00 00 6C 00 75 00 6E 00 00 00";
    EXPECT_EQ(exceptionOf(add(mService, 1000, otherName)), mIllegalState);
    // What it has may still change, and others are served.
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(add(mService, 1001, otherName), kOk);
    EXPECT_EQ(startNotifying(callback, kName, 1001), kOk);
    EXPECT_EQ(call(6, kName + kRemote + kVendorWord, callback.get()), kOk);
    EXPECT_EQ(startNotifying(callback), kOk);
    EXPECT_EQ(exceptionOf(startNotifying(callback)), mIllegalState);
    die(callback);
    EXPECT_EQ(startNotifying(makeRemote(mLink, 10)), kOk);
}

// It would wait for itself.
TEST_F(ServiceManagerTest, WhatIsLeftToAThreadIsCarriedOutWithNothingLocked) {
    int done = 0;
    const auto leave = [&] {
        LateCommand::queue(std::make_unique<Late>([&] {
            knows();
            ++done;
        }));
    };
    mLink->onUnwatch = leave;
    leave();
    EXPECT_EQ(add(mService), kOk);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(add(makeRemote(mLink, 8)), kOk);
    EXPECT_EQ(done, 2);
    leave();
    EXPECT_EQ(startNotifying(mService), kOk);
    EXPECT_EQ(done, 3);
    EXPECT_EQ(call(6, kName + kRemote + kVendorWord, mService.get()), kOk);
    EXPECT_EQ(done, 4);
}

TEST_F(ServiceManagerTest, CallsOfAnotherPartitionAreRefused) {
    std::string token = kToken;
    token.replace(24, 11, "54 53 59 53");  // "SYST"
    const std::unique_ptr<AParcel> in = received(token + kName);
    AParcel out;
    EXPECT_EQ(mManager.object().get()->asLocal()->transact(2, *in, &out), STATUS_BAD_TYPE);
}

}  // namespace
