// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// What a file of flows and settings asks for. Values are valid.

struct Flow {
    std::string name;
    SdfAddFilterInfo info{};
    std::optional<unsigned char> extra{};
    std::optional<unsigned int> dscp{};
    bool renewed = true;
};

struct Levels {
    SdfLatencyLvl first;
    SdfLatencyLvl second;
    bool flag;
};
inline bool operator==(const Levels& one, const Levels& other) {
    return one.first == other.first && one.second == other.second && one.flag == other.flag;
}

struct Wishes {
    std::vector<Flow> filters{};
    std::map<SdfSlotID, Levels> levels{};
    bool gaming = false;
    std::set<SdfSlotID> dataPriority{};
    bool ddsPriority = false;
    SdfOod ddsOod = SDF_OOD_UNSPECIFIED_LVL;
    std::optional<unsigned int> ddsPdcpTimer{};
    std::optional<unsigned int> queueReports{};  // the report value
    bool autoFilters = false;
};

// Reads the text of a file. Throws UsageError, whose text begins with the file's name and the line,
// and names the member. file: its name.
Wishes readWishes(const std::string& text, const std::string& file);
