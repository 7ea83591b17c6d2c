// SPDX-License-Identifier: Apache-2.0
// A script of sdfctl, line by line: its commands are understood, or refused with what is wrong.
#include <sstream>
#include <string>

#include "fuzz/Check.h"
#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Failure.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::istringstream script(std::string(bytes, bytes + size));
    for (std::string line; std::getline(script, line);) {
        try {
            (void)readCommands(splitLine(line));
        } catch (const UsageError& error) {
            check(error.what()[0] != '\0', "an error without a text");
        }
    }
    return 0;
}
