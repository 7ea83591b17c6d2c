// SPDX-License-Identifier: Apache-2.0
// A JSON file of flows and settings for sdfctl: understood, and then every value is one that the
// library takes; or refused with file and line.
#include <set>
#include <string>

#include "fuzz/Check.h"
#include "session/Values.h"
#include "tools/sdfctl/Failure.h"
#include "tools/sdfctl/FlowFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    try {
        const Wishes wishes = readWishes(std::string(bytes, bytes + size), "flows");
        std::set<std::string> names;
        for (const Flow& flow : wishes.filters) {
            check(names.insert(flow.name).second, "two flows of one name");
            check(isValid(flow.info), "a flow that the library does not take");
        }
        for (const auto& levels : wishes.levels) {
            check(isValid(levels.first) && isValid(levels.second.first) &&
                      isValid(levels.second.second),
                  "levels that the library does not take");
        }
        for (const SdfSlotID slot : wishes.dataPriority) {
            check(isValid(slot), "a slot that the library does not take");
        }
        check(isValid(wishes.ddsOod), "a setting that the library does not take");
    } catch (const UsageError& error) {
        check(std::string(error.what()).rfind("flows:", 0) == 0, "an error without its place");
    }
    return 0;
}
