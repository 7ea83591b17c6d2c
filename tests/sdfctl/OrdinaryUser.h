// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"

// The command, run so that file modes count for it, also by root.
inline Lines asOrdinaryUser(Lines command) {
    if (geteuid() != 0) return command;
    command.insert(command.begin(),
                   {"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search"});
    return command;
}

inline bool canBeOrdinaryUser() {
    return ChildProcess(asOrdinaryUser({"/bin/true"})).wait() == 0;
}
