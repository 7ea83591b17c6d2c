// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

// Where a data member lies: code compiled elsewhere finds it by that.
struct FieldPlace {
    std::string name;
    size_t offset;  // bytes from the beginning of its class
    size_t size;    // bytes

    bool operator==(const FieldPlace& other) const {
        return name == other.name && offset == other.offset && size == other.size;
    }
};

// For GoogleTest's failure messages.
inline void PrintTo(const FieldPlace& place, std::ostream* out) {
    *out << place.name << " at " << place.offset << ", " << place.size << " bytes";
}

// A pointer to a data member holds nothing but its offset. (offsetof() is only for classes that C
// could have, too.)
template <typename Class, typename Field>
FieldPlace fieldPlace(const char* name, Field Class::*member) {
    ptrdiff_t offset = 0;
    static_assert(sizeof member == sizeof offset);
    std::memcpy(&offset, &member, sizeof offset);
    // NOLINTNEXTLINE(bugprone-sizeof-expression): a pointer's own size is meant.
    return {name, static_cast<size_t>(offset), sizeof(Field)};
}

#define FIELD_PLACE(CLASS, FIELD) fieldPlace(#FIELD, &CLASS::FIELD)

// One row of a table of expected places, for processors with 64-bit and with 32-bit addresses.
struct FieldRow {
    const char* name;
    size_t offset64;
    size_t size64;
    size_t offset32;
    size_t size32;
};

// The rows as they are for this processor.
inline std::vector<FieldPlace> placesHere(const std::vector<FieldRow>& rows) {
    constexpr bool kHas64 = sizeof(void*) == 8;
    std::vector<FieldPlace> places;
    places.reserve(rows.size());
    for (const FieldRow& row : rows) {
        places.push_back(
            {row.name, kHas64 ? row.offset64 : row.offset32, kHas64 ? row.size64 : row.size32});
    }
    return places;
}
