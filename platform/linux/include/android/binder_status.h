// SPDX-License-Identifier: Apache-2.0
#pragma once

// Status codes, exception codes and the status object of binder calls. Valid C and C++.

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)
// NOLINTBEGIN(modernize-use-using): C has typedef alone

// Outcome of a low-level operation: STATUS_OK or one of the negative codes below.
enum {
    STATUS_OK = 0,
    // Something went wrong that no other code names. Codes nobody knows are turned into this one.
    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_NO_MEMORY = -ENOMEM,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    // A wrong interface token, or bytes where an object should be.
    STATUS_BAD_TYPE = (STATUS_UNKNOWN_ERROR + 1),
    STATUS_NAME_NOT_FOUND = -ENOENT,
    STATUS_PERMISSION_DENIED = -EPERM,
    STATUS_NO_INIT = -ENODEV,
    STATUS_ALREADY_EXISTS = -EEXIST,
    // The process that owned the object is gone.
    STATUS_DEAD_OBJECT = -EPIPE,
    // The transaction could not be carried, for instance because it is too large.
    STATUS_FAILED_TRANSACTION = (STATUS_UNKNOWN_ERROR + 2),
    STATUS_BAD_INDEX = -EOVERFLOW,
    // A read went past the end of the parcel.
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
    STATUS_WOULD_BLOCK = -EWOULDBLOCK,
    STATUS_TIMED_OUT = -ETIMEDOUT,
    STATUS_UNKNOWN_TRANSACTION = -EBADMSG,
    STATUS_FDS_NOT_ALLOWED = (STATUS_UNKNOWN_ERROR + 7),
    STATUS_UNEXPECTED_NULL = (STATUS_UNKNOWN_ERROR + 8),
};
typedef int32_t binder_status_t;

// Outcome of a call as its implementation reports it: EX_NONE or one of the codes below.
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    // The exception carries a number that the interface gives its meaning.
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    // The call did not get through; the status object carries a binder_status_t. Never written to a
    // parcel.
    EX_TRANSACTION_FAILED = -129,
};
typedef int32_t binder_exception_t;

// Outcome of a call: an exception code with its message and number. Never changes once made, so any
// thread may read it. Whoever got it from a function below owns it and ends it with AStatus_delete.
struct AStatus;
typedef struct AStatus AStatus;

// Returns a status that means success. Owned by the caller; never null.
AStatus* AStatus_newOk(void);

// Returns a status for an exception.
// exception: any EX_ code; EX_NONE makes a success, a code nobody knows EX_TRANSACTION_FAILED.
AStatus* AStatus_fromExceptionCode(binder_exception_t exception);

// As AStatus_fromExceptionCode, with a text for people.
// message: not null, ends in zero, copied.
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message);

// Returns a status with EX_SERVICE_SPECIFIC.
// serviceSpecific: any number.
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific);

// As AStatus_fromServiceSpecificError, with a text for people.
// message: not null, ends in zero, copied.
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message);

// Returns a status for a low-level outcome: a success for STATUS_OK, otherwise one with
// EX_TRANSACTION_FAILED.
// status: any STATUS_ code; a code nobody knows becomes STATUS_UNKNOWN_ERROR.
AStatus* AStatus_fromStatus(binder_status_t status);

// Returns whether the status means success. status: not null.
bool AStatus_isOk(const AStatus* status);

// Returns the exception code, EX_NONE for a success. status: not null.
binder_exception_t AStatus_getExceptionCode(const AStatus* status);

// Returns the number of an EX_SERVICE_SPECIFIC status, 0 for every other. status: not null.
int32_t AStatus_getServiceSpecificError(const AStatus* status);

// Returns the low-level outcome of an EX_TRANSACTION_FAILED status, 0 for every other.
// status: not null.
binder_status_t AStatus_getStatus(const AStatus* status);

// Returns the text for people, "" if there is none. Lives as long as the status. status: not null.
const char* AStatus_getMessage(const AStatus* status);

// Returns code, numbers and text in one line, for logs. Ended with AStatus_deleteDescription. Null
// when there is no memory. status: not null.
const char* AStatus_getDescription(const AStatus* status);

// Ends what AStatus_getDescription returned. description: may be null.
void AStatus_deleteDescription(const char* description);

// Ends a status. status: may be null.
void AStatus_delete(AStatus* status);

// NOLINTEND(modernize-use-using)
#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
