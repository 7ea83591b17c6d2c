// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>

#include <cstdint>
#include <functional>
#include <string>

// What the tests of the binder layer and the process they call have in common.

constexpr char kPeerDescriptor[] = "lum.test.IPeer";

// The methods of the peer's object. In and out are int32 unless said otherwise.
enum PeerCode : transaction_code_t {
    kAdd = 1,          // two numbers; their sum
    kNote,             // a number, kept in a list; meant for one-way calls
    kNoted,            // out: how many are kept, and 1 if they are 0, 1, 2... in order
    kCallBack,         // an object and a number: the object's kAdd of number and 1; out: its sum
    kKeep,             // an object, kept in place of the one before
    kDropKept,         // lets go of it
    kGetKept,          // out: the kept object
    kMakeObject,       // out: a new object of the peer, with an interface of its own
    kObjectsEnded,     // out: how many of those have ended
    kIsOwnObject,      // an object; out: 1 if it is one that kMakeObject returned, 2 if the service
    kHold,             // does not return before kLetGo
    kLetGo,            // lets every kHold go that is waiting
    kHolding,          // out: how many kHold are waiting now
    kWho,              // out: the caller's uid and pid, as the peer sees them
    kNoteWho,          // the same, kept; meant for one-way calls
    kGetNotedWho,      // out: what kNoteWho kept
    kBig,              // a number and a byte array; out: a byte array of that many bytes
    kRelay,            // a text "name/name/...": calls kRelay of the first name with the rest;
                       // out: how many names that were
    kNoteToKept,       // a number: that many one-way kNote calls, 0, 1, 2..., to the kept object
    kTellDeath,        // as kKeep, and exits at once, without a reply
    kOnewayAddToKept,  // a number: from a one-way call, kAdd of it and 1 on the kept object, and
                       // the result sent to it by a one-way kNote
    kPassOn,           // a name and an object: hands it to that service's kKeep; out: the status
    kStartPool,        // starts the peer's thread pool
    kReturn,           // a number: returns it as its status
    kServe,            // a name: serves the peer's object under that, too; out: what came of it
};

// Class of the objects that kMakeObject makes: they answer nothing of their own.
constexpr char kTokenDescriptor[] = "lum.test.IToken";

// Makes an interface whose objects do as `handler` says. userData: a PeerHandler, deleted with the
// object.
using PeerHandler =
    std::function<binder_status_t(transaction_code_t code, const AParcel* in, AParcel* out)>;
inline AIBinder_Class* peerClass() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        kPeerDescriptor, [](void* args) { return args; },
        [](void* userData) { delete static_cast<PeerHandler*>(userData); },
        [](AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
            return (*static_cast<PeerHandler*>(AIBinder_getUserData(binder)))(code, in, out);
        });
    return clazz;
}
inline ndk::SpAIBinder makePeerObject(PeerHandler handler) {
    return ndk::SpAIBinder(AIBinder_new(peerClass(), new PeerHandler(std::move(handler))));
}

using Fill = std::function<void(AParcel*)>;
using Take = std::function<void(const AParcel*)>;

// Calls a method of an object that is, or becomes, one of kPeerDescriptor.
// fill: writes the arguments; take: reads the reply.
// Returns the transaction's status.
inline binder_status_t callPeer(const ndk::SpAIBinder& binder, transaction_code_t code,
                                const Fill& fill = nullptr, const Take& take = nullptr,
                                binder_flags_t flags = 0) {
    if (AIBinder_getClass(binder.get()) == nullptr &&
        !AIBinder_associateClass(binder.get(), peerClass())) {
        return STATUS_DEAD_OBJECT;
    }
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    const binder_status_t status = AIBinder_prepareTransaction(binder.get(), in.getR());
    if (status != STATUS_OK) return status;
    if (fill != nullptr) fill(in.get());
    AParcel* const parcel = in.release();
    AParcel* handedOver = parcel;
    const binder_status_t called =
        AIBinder_transact(binder.get(), code, &handedOver, out.getR(), flags);
    if (called == STATUS_OK && take != nullptr) take(out.get());
    return called;
}

inline Fill writeInt(int32_t value) {
    return [value](AParcel* in) { AParcel_writeInt32(in, value); };
}
inline Fill writeBinder(const ndk::SpAIBinder& binder) {
    return [binder](AParcel* in) { AParcel_writeStrongBinder(in, binder.get()); };
}
inline Take readInt(int32_t* value) {
    return [value](const AParcel* out) { AParcel_readInt32(out, value); };
}
inline Take readBinder(ndk::SpAIBinder* binder) {
    return [binder](const AParcel* out) { AParcel_readStrongBinder(out, binder->getR()); };
}

// For AParcel_readString and AParcel_readByteArray.
inline bool intoText(void* text, int32_t length, char** buffer) {
    static_cast<std::string*>(text)->resize(static_cast<size_t>(length));
    *buffer = static_cast<std::string*>(text)->data();
    return true;
}
inline std::string readText(const AParcel* in) {
    std::string text;
    AParcel_readString(in, &text, intoText);
    if (!text.empty()) text.pop_back();
    return text;
}
