// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

// The platform's service manager, as its versions 11 to 15 understand it. Names are texts.
constexpr char kServiceManager[] = "android.os.IServiceManager";
enum ServiceManagerCall : transaction_code_t {
    kGetService = FIRST_CALL_TRANSACTION,  // name; returns the object or null
    kCheckService,                         // the same; does not start a service that runs on demand
    kAddService,                // name, object, whether for isolated processes too, dump priority
    kListServices,              // dump priorities; returns names
    kRegisterForNotifications,  // name, callback: called now if there is one, and for each new one
    kUnregisterForNotifications,  // name, callback
};

constexpr char kServiceCallback[] = "android.os.IServiceCallback";
constexpr transaction_code_t kOnRegistration = FIRST_CALL_TRANSACTION;  // one-way: name, object

// With which of a device's dumps a service is dumped: with those that ask for no priority.
constexpr int32_t kDumpPriorityDefault = 8;
