// SPDX-License-Identifier: Apache-2.0
#pragma once

// Binder objects: what other processes can call, and what stands here for objects of other
// processes. Valid C and C++. Unless a comment says otherwise, every function may be called on any
// thread.

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)
// NOLINTBEGIN(modernize-use-using): C has typedef alone

// Flags of AIBinder_transact.
enum {
    // Do not wait for the call to be carried out. There is no reply.
    FLAG_ONEWAY = 0x01,
};
typedef uint32_t binder_flags_t;

// Codes of an interface's methods lie between these two, both included.
enum {
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};
typedef uint32_t transaction_code_t;

// What the objects of one interface have in common: descriptor and functions. Made once per
// interface and process and never ended.
struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;

// A binder object of this process (local) or a proxy for one of another (remote). Counted: lives
// while there is a strong reference here or, if local, in another process.
struct AIBinder;
typedef struct AIBinder AIBinder;

// A reference that does not keep its object alive.
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;

// A function to be called when the process of a remote object dies.
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

// Makes the user data of a new local object from the args of AIBinder_new. Runs inside
// AIBinder_new.
typedef void* (*AIBinder_Class_onCreate)(void* args);

// Ends the user data, when the last reference is gone, on whichever thread gave it up.
typedef void (*AIBinder_Class_onDestroy)(void* userData);

// Carries out one call on a local object, on a binder thread (or on the caller's, when caller and
// object are in one process).
// binder: the object called; code: which method; in: arguments, after the interface token;
// out: filled with the reply; both belong to the caller.
// Returns STATUS_OK, or what the caller gets in place of a reply: one of the codes in
// binder_status.h, since any other becomes STATUS_UNKNOWN_ERROR; STATUS_UNKNOWN_TRANSACTION for a
// code it does not know.
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);

// Writes a description of a local object to fd, which belongs to the caller.
// args: numArgs texts. Returns STATUS_OK or an error.
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

// Defines an interface.
// interfaceDescriptor: its name, not null, copied; the functions: not null.
// Returns the class, which is never ended; null when there is no memory.
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact);

// Sets the function behind AIBinder_dump. To be called before the first object of the class is
// made. clazz, onDump: not null.
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);

#if !defined(__ANDROID_API__) || __ANDROID_API__ >= 36
// Names the methods, for tracing. To be called before the first object of the class is made, once.
// Since API level 36.
// clazz: not null; map: length texts, the first for FIRST_CALL_TRANSACTION; null where a code has
// no method; must live as long as the process; length: how many.
void AIBinder_Class_setTransactionCodeToFunctionNameMap(AIBinder_Class* clazz, const char** map,
                                                        size_t length);

// Returns the name of a method as the map has it, null if it has none. Since API level 36.
// clazz: not null.
const char* AIBinder_Class_getFunctionName(AIBinder_Class* clazz, transaction_code_t code);
#endif

// Returns the descriptor, which lives as long as the class. clazz: not null.
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

// Makes a local object.
// clazz: not null; args: handed to the class's onCreate.
// Returns the object with one strong reference, owned by the caller; null when there is no memory.
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args);

// Returns whether the object belongs to another process. binder: not null.
bool AIBinder_isRemote(const AIBinder* binder);

// Returns false once the object's process is known to be dead, or a call through this proxy was
// answered with STATUS_DEAD_OBJECT: it is used for no further call then. true does not mean that
// the next call gets through. binder: not null.
bool AIBinder_isAlive(const AIBinder* binder);

// Calls the object to see whether its process answers. binder: not null.
// Returns STATUS_OK, STATUS_DEAD_OBJECT or another error.
binder_status_t AIBinder_ping(AIBinder* binder);

// Has an object write a description of itself, and waits for that. A remote one writes to a
// duplicate of fd: give it a pipe and read on another thread, since it may write more than a pipe
// holds.
// binder: not null; fd: belongs to the caller; args: numArgs texts, each UTF-8 and not null; null
// if there are none.
// Returns STATUS_OK; STATUS_BAD_VALUE if fd is not open; STATUS_FAILED_TRANSACTION if the object's
// process has no descriptor left for it; or as AIBinder_transact.
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// Has the recipient's function called, once, with cookie when the object's process dies. The call
// comes on a binder thread, so the thread pool must be started. Neither object nor recipient is
// kept alive by this.
//
// Unlink before the last reference is given up. A process is registered for an object's death once,
// from the first link through its proxy until the last is taken back by AIBinder_unlinkToDeath.
// When the proxy ends with links, or with links whose recipient was deleted, that registration is
// ended late: with the next call of the thread that gave up the last reference, when this thread
// comes back to the pool, or at its end. Until then the object cannot be registered for again. A
// link that is made through a new proxy meanwhile is accepted, but the late end takes away what it
// depends on: its function is never called.
//
// binder, recipient: not null; cookie: never looked at.
// Returns STATUS_OK; STATUS_INVALID_OPERATION for a local object, which cannot die before its
// process; STATUS_DEAD_OBJECT if it is too late, and then nothing will be called.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);

// Takes one such link back: its function will not be called any more.
// Returns STATUS_OK, also for a process that has died but whose death is not reported to the link
// yet; STATUS_NAME_NOT_FOUND, which changes nothing, if recipient and cookie were not linked
// together with this object, or their function has been called, or is running.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);

// Returns the user id of the process whose call this thread is carrying out, as the kernel knows
// it; this process's own outside of calls.
uid_t AIBinder_getCallingUid(void);

// Returns the id of the process whose call this thread is carrying out, as the kernel knows it; 0
// in one-way calls; this process's own outside of calls.
pid_t AIBinder_getCallingPid(void);

// Adds a strong reference. binder: may be null.
void AIBinder_incStrong(AIBinder* binder);

// Gives up a strong reference; the object ends with the last one. binder: may be null.
void AIBinder_decStrong(AIBinder* binder);

// Returns the number of strong references in this process, -1 for null. For debugging only.
int32_t AIBinder_debugGetRefCount(AIBinder* binder);

// Says which interface an object is used through. A remote object is asked for its descriptor the
// first time, which may block.
// binder: may be null; clazz: not null.
// Returns whether the object is of that interface and may be used through it.
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);

// Returns the class that the object was made with or associated with, null if there is none.
// binder: not null.
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);

// Returns the user data of a local object, null for a remote one. binder: not null.
void* AIBinder_getUserData(AIBinder* binder);

// Makes a parcel for a call, the interface token already in it.
// binder: not null, with a class; in: set to the parcel, which the caller owns until it is handed
// to AIBinder_transact.
// Returns STATUS_OK, or an error with *in set to null.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);

// Calls a method and waits for the reply, or does not wait, with FLAG_ONEWAY. One-way calls to one
// object are carried out in order, one at a time.
// binder: not null; code: a method; in: a parcel made by AIBinder_prepareTransaction for this very
// object; taken over and set to null, whatever is returned; out: set to the reply, owned by the
// caller (an empty parcel for a one-way call); flags: FLAG_ values.
// Returns STATUS_OK; STATUS_DEAD_OBJECT if the process is gone; STATUS_FAILED_TRANSACTION if call
// or reply is larger than 1 MiB, or too much is under way to the same process (512 KiB in one-way
// calls, 16 MiB in others); STATUS_INVALID_OPERATION if one of them holds a proxy of a third
// process, which cannot be passed on here; or what the implementation returned in place of a reply.
// Unless STATUS_OK, *out is null.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags);

// Returns a weak reference, owned by the caller; null for null or when there is no memory.
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);

// Ends a weak reference. weakBinder: may be null.
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);

// Returns the object with a new strong reference, owned by the caller; null if the object has ended
// or weakBinder is null.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);

// What happens when the object's process dies: cookie is what AIBinder_linkToDeath got. Runs on a
// binder thread, with nothing locked: it may unlink and may delete the recipient.
typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);

// What happens when a link is over, whether it was taken back, its recipient was deleted, its
// object ended or its process died: nothing will be called with that cookie any more.
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);

// Returns a new recipient, owned by the caller; null when there is no memory. onBinderDied: not
// null.
AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
    AIBinder_DeathRecipient_onBinderDied onBinderDied);

// Sets what happens when a link of this recipient is over. To be called before the first link.
// recipient: not null; onUnlinked: may be null.
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked);

// Ends a recipient and takes back its links. Its function may be running already.
// recipient: may be null.
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

// NOLINTEND(modernize-use-using)
#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
