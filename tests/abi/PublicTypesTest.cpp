// SPDX-License-Identifier: Apache-2.0
// Size, alignment and inner order of the public types, which code compiled elsewhere relies on.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "tests/abi/PublicTypes.h"
#include "tests/support/FieldPlace.h"

bool operator==(const AbiType& one, const AbiType& other) {
    return std::string(one.name) == other.name && one.size == other.size &&
           one.alignment == other.alignment;
}

void PrintTo(const AbiType& type, std::ostream* out) {
    *out << type.name << ": " << type.size << " bytes, aligned to " << type.alignment;
}

namespace {

template <typename List>
std::vector<FieldPlace> places(const List& members) {
    std::vector<FieldPlace> all;
    for (const AbiMember& member : members) {
        all.push_back({member.name, member.offset, member.size});
    }
    return all;
}

// An address has 128 bytes everywhere; the longest word of the processor decides how it is aligned,
// and with it the description: 8 with 64 bits, 4 on 32-bit ARM. The members behind the addresses
// are the same everywhere:
//
//     0 + 128 = 128, + 128 = 256       the addresses
//     256 + 5 * 4 = 276                five enumerations
//     276 + 1 = 277, up to 280         one byte, three unused
//     280 + 3 * 4 = 292                three words
//     292 + 2 * 2 = 296                two half words
//     296 + 4 * 1 = 300                four bytes
//     300, up to 304 with 64 bits      300 / 8 leaves 4, 300 / 4 nothing
const std::vector<FieldRow> kMembers = {
    {"src_addr", 0, 128, 0, 128},
    {"dest_addr", 128, 128, 128, 128},
    {"first_level", 256, 4, 256, 4},
    {"second_level", 260, 4, 260, 4},
    {"ood", 264, 4, 264, 4},
    {"app_type", 268, 4, 268, 4},
    {"protocol", 272, 4, 272, 4},
    {"filter_arg6", 276, 1, 276, 1},
    {"pdcp_timer", 280, 4, 280, 4},
    {"filter_arg11", 284, 4, 284, 4},
    {"filter_arg13", 288, 4, 288, 4},
    {"src_port_range", 292, 2, 292, 2},
    {"dest_port_range", 294, 2, 294, 2},
    {"filter_arg19", 296, 1, 296, 1},
    {"filter_arg20", 297, 1, 297, 1},
    {"filter_arg16", 298, 1, 298, 1},
    {"filter_arg17", 299, 1, 299, 1},
};

#if UINTPTR_MAX == UINT64_MAX
constexpr size_t kPointer = 8;
constexpr size_t kDescription = 304;
#else
constexpr size_t kPointer = 4;
constexpr size_t kDescription = 300;
#endif

const std::vector<AbiType> kTypes = {
    {"status_e", 4, 4},
    {"enum SdfStatusV2", 4, 4},
    {"SdfSlotID", 4, 4},
    {"SdfLatencyLvl", 4, 4},
    {"SdfOod", 4, 4},
    {"SdfProtocol", 4, 4},
    {"SdfFilterAppType", 4, 4},
    {"SdfFilterStatus", 4, 4},
    {"SdfStatusV2Cb", kPointer, kPointer},
    {"SdfLegacyStatusCb", kPointer, kPointer},
    {"SdfEffectiveLevelsCb", kPointer, kPointer},
    {"SdfFilterStatusCb", kPointer, kPointer},
    {"SdfGetFiltersCb", kPointer, kPointer},
    {"SdfPriorityQueueReportCb", kPointer, kPointer},
    {"SdfAutoFilterInfoCb", kPointer, kPointer},
    {"SdfAddFilterInfo", kDescription, kPointer},
    {"enum SdfSessionError", 4, 4},
    {"SdfSessionState", 4, 4},
    {"SdfFilterState", 4, 4},
    {"SdfSessionStateCb", kPointer, kPointer},
    {"SdfFilterStateCb", kPointer, kPointer},
    {"SdfSessionLevelsCb", kPointer, kPointer},
    {"SdfSessionReportCb", kPointer, kPointer},
    {"SdfSessionAutoFilterCb", kPointer, kPointer},
    {"SdfSessionFiltersCb", kPointer, kPointer},
    {"SdfSessionQueueReportCb", kPointer, kPointer},
    {"bool", 1, 1},
    {"int", 4, 4},
    {"long long", 8, 8},  // on ARM, too: in an even pair of registers, or aligned on the stack
    {"uint64_t", 8, 8},
    {"struct sockaddr_storage", 128, kPointer},
};

constexpr AbiMember kMembersInCpp[] = {ABI_MEMBERS(ABI_MEMBER)};
constexpr AbiType kTypesInCpp[] = {ABI_TYPES(ABI_TYPE)};

TEST(PublicTypesTest, MembersOfTheFilterDescription) {
    EXPECT_EQ(places(kMembersInC), placesHere(kMembers));
    EXPECT_EQ(places(kMembersInCpp), placesHere(kMembers));
}

template <typename... Members>
std::tuple<Members...> typesOf(const Members&...);

// There are exactly 17, or this does not compile: also what would lie in unused bytes is seen.
TEST(PublicTypesTest, TypesOfTheMembers) {
    const auto& [source, destination, first, second, ood, application, protocol, arg6, timer, arg11,
                 arg13, sourceRange, destinationRange, arg19, arg20, arg16, arg17] =
        SdfAddFilterInfo{};
    using Found = decltype(typesOf(source, destination, first, second, ood, application, protocol,
                                   arg6, timer, arg11, arg13, sourceRange, destinationRange, arg19,
                                   arg20, arg16, arg17));
    using Expected = std::tuple<sockaddr_storage, sockaddr_storage, SdfLatencyLvl, SdfLatencyLvl,
                                SdfOod, SdfFilterAppType, SdfProtocol, uint8_t, uint32_t, uint32_t,
                                uint32_t, uint16_t, uint16_t, uint8_t, uint8_t, uint8_t, uint8_t>;
    EXPECT_TRUE((std::is_same_v<Found, Expected>));
}

TEST(PublicTypesTest, SizesAndAlignments) {
    EXPECT_EQ(std::vector<AbiType>(std::begin(kTypesInC), std::end(kTypesInC)), kTypes);
    EXPECT_EQ(std::vector<AbiType>(std::begin(kTypesInCpp), std::end(kTypesInCpp)), kTypes);
}

template <typename Type>
constexpr bool kIsInt32 =
    std::is_enum_v<Type>&& std::is_same_v<std::underlying_type_t<Type>, int32_t>;

TEST(PublicTypesTest, EnumerationsAreSigned) {
    EXPECT_TRUE(kIsInt32<status_e>);
    EXPECT_TRUE(kIsInt32<SdfStatusV2>);
    EXPECT_TRUE(kIsInt32<SdfSlotID>);
    EXPECT_TRUE(kIsInt32<SdfLatencyLvl>);
    EXPECT_TRUE(kIsInt32<SdfOod>);
    EXPECT_TRUE(kIsInt32<SdfProtocol>);
    EXPECT_TRUE(kIsInt32<SdfFilterAppType>);
    EXPECT_TRUE(kIsInt32<SdfFilterStatus>);
    EXPECT_TRUE(kIsInt32<SdfSessionError>);
    EXPECT_TRUE(kIsInt32<SdfSessionState>);
    EXPECT_TRUE(kIsInt32<SdfFilterState>);
}

template <typename Result, typename... Arguments>
constexpr bool returnsInt64(Result (* /*function*/)(Arguments...)) {
    return std::is_integral_v<Result> && std::is_signed_v<Result> && sizeof(Result) == 8;
}

// Of the requests a table in tests/api says so.
TEST(PublicTypesTest, LifecycleFunctionsReturn64BitsSigned) {
    EXPECT_TRUE(returnsInt64(createSdfClient));
    EXPECT_TRUE(returnsInt64(destroySdfClient));
    EXPECT_TRUE(returnsInt64(lum_sdf_enable));
    EXPECT_TRUE(returnsInt64(lum_sdf_disable));
}

}  // namespace
