// SPDX-License-Identifier: Apache-2.0
// The public header as C++17, included first.
#include "tests/api/HeaderTest.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "api/lum_sdf_sdk.h"
#include "tests/api/ClientFixture.h"

namespace {

template <typename E>
constexpr bool kIsInt32 = std::is_same_v<std::underlying_type_t<E>, int32_t>;

static_assert(kIsInt32<status_e> && kIsInt32<SdfSlotID> && kIsInt32<SdfLatencyLvl> &&
              kIsInt32<SdfOod> && kIsInt32<SdfProtocol> && kIsInt32<SdfFilterAppType> &&
              kIsInt32<SdfFilterStatus> && kIsInt32<SdfStatusV2>);

class HeaderTest : public ClientTest {};

TEST_F(HeaderTest, LayoutOfTheFilterDescription) {
    // The size is rounded up to the alignment of sockaddr_storage.
    const size_t size = alignof(sockaddr_storage) == 8 ? 304 : 300;
    const std::vector<size_t> expected = {0,   128, 256, 260, 264, 268, 272, 276, 280,
                                          284, 288, 292, 294, 296, 297, 298, 299, size};
    EXPECT_EQ(std::vector<size_t>({SDF_LAYOUT}), expected);
    EXPECT_EQ(std::vector<size_t>(kLayoutInC, kLayoutInC + SDF_LAYOUT_SIZE), expected);
}

TEST_F(HeaderTest, Values) {
    const std::vector<int> slots = {SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_FIRST, SDF_SLOT_ID_SECOND};
    EXPECT_EQ(slots, (std::vector<int>{-1, 0, 1}));
    const std::vector<int> levels = {SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_3,
                                     SDF_LATENCY_LVL_4, SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6};
    EXPECT_EQ(levels, (std::vector<int>{1, 2, 3, 4, 5, 6}));
    const std::vector<int> oods = {SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_ENABLED_LVL,
                                   SDF_OOD_DISABLED_LVL};
    EXPECT_EQ(oods, (std::vector<int>{1, 2, 3}));
    const std::vector<int> protocols = {SDF_PROTOCOL_NONE, SDF_PROTOCOL_TCP, SDF_PROTOCOL_UDP,
                                        SDF_PROTOCOL_TCPUDP};
    EXPECT_EQ(protocols, (std::vector<int>{0, 1, 2, 3}));
    const std::vector<int> types = {SDF_APP_TYPE_UNSPECIFIED,     SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_2,  SDF_APP_TYPE_TRAFFIC_PRIO_3,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_4,  SDF_APP_TYPE_TRAFFIC_PRIO_5,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_6,  SDF_APP_TYPE_TRAFFIC_PRIO_7,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_8,  SDF_APP_TYPE_TRAFFIC_PRIO_9,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_10, SDF_APP_TYPE_TRAFFIC_PRIO_11,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_12, SDF_APP_TYPE_TRAFFIC_PRIO_13,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_14, SDF_APP_TYPE_TRAFFIC_PRIO_15,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_16, SDF_APP_TYPE_TRAFFIC_PRIO_17,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_18, SDF_APP_TYPE_TRAFFIC_PRIO_19,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_20, SDF_APP_TYPE_TRAFFIC_PRIO_21,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_22, SDF_APP_TYPE_TRAFFIC_PRIO_23,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_24, SDF_APP_TYPE_TRAFFIC_PRIO_25,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_26, SDF_APP_TYPE_TRAFFIC_PRIO_27,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_28, SDF_APP_TYPE_TRAFFIC_PRIO_29,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_30, SDF_APP_TYPE_TRAFFIC_PRIO_31,
                                    SDF_APP_TYPE_TRAFFIC_PRIO_BE};
    ASSERT_EQ(types.size(), 33U);
    for (int n = 0; n <= 32; ++n) EXPECT_EQ(types[static_cast<size_t>(n)], n);
    const std::vector<int> filterStatuses = {SDF_FILTER_PENDING,
                                             SDF_FILTER_ACTIVE,
                                             SDF_FILTER_INACTIVITY_TIMEOUT,
                                             SDF_FILTER_DELETED,
                                             SDF_FILTER_ERROR_DUPLICATE,
                                             SDF_FILTER_ERROR_LIMIT_REACHED,
                                             SDF_FILTER_ERROR_INVALID_ARGS,
                                             SDF_FILTER_ERROR_INTERNAL,
                                             SDF_FILTER_ERROR_NO_PERMISSION};
    EXPECT_EQ(filterStatuses, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    const std::vector<int> statuses = {
        SDF_STATUS_INVALID,        SDF_STATUS_SUCCESS,       SDF_STATUS_INVALID_ARG,
        SDF_STATUS_INTERNAL_ERROR, SDF_STATUS_NOT_SUPPORTED, SDF_STATUS_INVALID_OPERATION,
        SDF_STATUS_SERVICE_UP,     SDF_STATUS_SERVICE_DOWN,  SDF_STATUS_INVALID_SLOT};
    EXPECT_EQ(statuses, (std::vector<int>{-1, 0, 1, 2, 3, 4, 5, 6, 7}));
    const std::vector<int> v2 = {
        SDF_V2_SUCCESS,       SDF_V2_INVALID,           SDF_V2_INVALID_ARG, SDF_V2_INTERNAL_ERROR,
        SDF_V2_NOT_SUPPORTED, SDF_V2_INVALID_OPERATION, SDF_V2_SERVICE_UP,  SDF_V2_SERVICE_DOWN};
    EXPECT_EQ(v2, (std::vector<int>{0, -1, -2, -3, -4, -5, -7, -8}));
}

TEST_F(HeaderTest, CallsFromC) {
    EXPECT_EQ(callFromC(1), -5);
    EXPECT_EQ(callFromC(3), 0);
    EXPECT_EQ(callFromC(4), -5);
    EXPECT_EQ(callFromC(0), 0);
    EXPECT_EQ(callFromC(2), 1);
    EXPECT_EQ(callFromC(4), -8);
    receive(service::statusInd("06"));
    EXPECT_GT(callFromC(4), 0);
    EXPECT_EQ(callFromC(3), 1);
    EXPECT_EQ(callFromC(1), -5);
}

}  // namespace
