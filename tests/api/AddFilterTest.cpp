// SPDX-License-Identifier: Apache-2.0
// sdfAddFilter() and sdfAddFilterV2().
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>

#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/FullFlow.h"
#include "tests/support/LogCapture.h"

namespace {

using Lines = std::vector<LogLine>;

LogLine rendered(int family) {
    return logD("sdfGetIp with address type: " + std::to_string(family) + "\n");
}

class AddFilterTest : public ClientTest {
  protected:
    void SetUp() override {
        startUp();
        scriptRand({7});
    }

    // Both functions refuse it with `code` and log `lines`; nothing comes of it.
    static void expectRefused(const SdfAddFilterInfo& info, SdfFilterStatusCb cb, long long code,
                              const Lines& lines) {
        for (const bool v2 : {false, true}) {
            const LogCapture log;
            const ClientState before;
            EXPECT_EQ(v2 ? sdfAddFilterV2(info, 1, cb) : sdfAddFilter(info, cb), code) << v2;
            EXPECT_EQ(log.lines(), lines) << v2;
            EXPECT_EQ(ClientState().differences(before), "") << v2;
            EXPECT_EQ(posted(), Texts{}) << v2;
        }
    }

    // Adds it under the id 7 and returns the event.
    static std::string add(const SdfAddFilterInfo& info) {
        client().mUsedIds.clear();
        client().mFilterCbs.clear();
        scriptRand({7});
        EXPECT_EQ(sdfAddFilter(info, app::onAdded), 7);
        const Texts texts = posted();
        EXPECT_EQ(texts.size(), 1U);
        return texts.empty() ? "" : texts[0];
    }

    static bool isAccepted(const SdfAddFilterInfo& info) {
        const long long result = sdfAddFilter(info, app::onAdded);
        EXPECT_TRUE(result > 0 || result == -2) << result;
        return result > 0;
    }
};

// The service is asked for before anything is looked at, rendering included.
TEST_F(AddFilterTest, ServiceDownGoesFirst) {
    client().mServiceUp = false;
    SdfAddFilterInfo wrong = makeFlow();
    wrong.first_level = SdfLatencyLvl{};
    expectRefused(makeFlow(), app::onAdded, -8, {});
    expectRefused(wrong, app::onAdded, -8, {});
    expectRefused(SdfAddFilterInfo{}, nullptr, -8, {});
}

// Both addresses are rendered, the source first, whatever is found wrong afterwards.
TEST_F(AddFilterTest, BothAddressesAreRenderedFirst) {
    SdfAddFilterInfo info = makeFlow();
    expectRefused(info, nullptr, -2, {rendered(2), rendered(2)});
    info.src_addr = {};
    expectRefused(info, app::onAdded, -2, {rendered(0), rendered(2)});
    expectRefused(info, nullptr, -2, {rendered(0), rendered(2)});
    info.src_addr.ss_family = AF_UNIX;
    expectRefused(info, app::onAdded, -2, {rendered(1), rendered(2)});
    std::swap(info.src_addr, info.dest_addr);
    expectRefused(info, app::onAdded, -2, {rendered(2), rendered(1)});
    expectRefused(SdfAddFilterInfo{}, app::onAdded, -2, {rendered(0), rendered(0)});

    const LogCapture log;
    EXPECT_GT(sdfAddFilter(makeFlow("::1", 0, "1.2.3.4", 0), app::onAdded), 0);
    const Lines lines = log.lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 2), (Lines{rendered(10), rendered(2)}));
    EXPECT_EQ(log.count(rendered(10)) + log.count(rendered(2)), 2U);
}

// Each wrong member on its own, and with any other.
TEST_F(AddFilterTest, WrongMembers) {
    const struct {
        const char* member;
        std::vector<int> values;
        void (*set)(SdfAddFilterInfo& info, int value);
    } members[] = {
        {"first level",
         {0, 7, -1, 33, INT32_MIN, INT32_MAX},
         [](auto& info, int value) { info.first_level = static_cast<SdfLatencyLvl>(value); }},
        {"second level",
         {0, 7, -1, 33, INT32_MIN, INT32_MAX},
         [](auto& info, int value) { info.second_level = static_cast<SdfLatencyLvl>(value); }},
        {"protocol",
         {4, -1, 33, INT32_MIN, INT32_MAX},
         [](auto& info, int value) { info.protocol = static_cast<SdfProtocol>(value); }},
        {"application type",
         {33, -1, INT32_MIN, INT32_MAX},
         [](auto& info, int value) { info.app_type = static_cast<SdfFilterAppType>(value); }},
        {"out-of-order delivery",
         {0, 4, -1, 33, INT32_MIN, INT32_MAX},
         [](auto& info, int value) { info.ood = static_cast<SdfOod>(value); }},
    };
    for (const auto& wrong : members) {
        for (const int value : wrong.values) {
            SCOPED_TRACE(wrong.member + (" " + std::to_string(value)));
            SdfAddFilterInfo info = makeFlow();
            wrong.set(info, value);
            expectRefused(info, app::onAdded, -2, {rendered(2), rendered(2)});
            for (const auto& other : members) {
                SdfAddFilterInfo both = info;
                other.set(both, other.values[0]);
                EXPECT_FALSE(isAccepted(both)) << other.member;
            }
        }
    }
}

TEST_F(AddFilterTest, PortAndRangeFitIn16Bits) {
    for (const auto& [port, range, accepted] : std::vector<std::tuple<int, int, bool>>{
             {65000, 535, true},
             {65000, 536, false},
             {65535, 0, true},
             {65535, 1, false},
             {0, 65535, true},
             {1, 65535, false},
             {65535, 65535, false},
             {32768, 32767, true},
             {32768, 32768, false},
         }) {
        for (const char* text : {"1.2.3.4", "::1"}) {
            SCOPED_TRACE(std::string(text) + " " + std::to_string(port) + "+" +
                         std::to_string(range));
            SdfAddFilterInfo info = makeFlow(text, port, text, 0);
            info.src_port_range = static_cast<uint16_t>(range);
            EXPECT_EQ(isAccepted(info), accepted);
            std::swap(info.src_addr, info.dest_addr);
            std::swap(info.src_port_range, info.dest_port_range);
            EXPECT_EQ(isAccepted(info), accepted);
        }
    }
}

SdfAddFilterInfo fullFlow() {
    SdfAddFilterInfo info = makeFlow("1.2.3.4", 443, "5.6.7.8", 53);
    fillFlow(&info);
    return info;
}

// fullFlow() up to the fields around the extra one.
const std::string kFullUpTo17 =
    "0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 18 BB 03 20 35 28 02 30 C9 01 38 01"
    " 40 05 48 AC 02 50 02 58 FF FF FF FF 0F 60 21 68 0D 70 64 78 FF 01 80 01 C8 01 88 01 11 ";
const std::string kFullFrom19 = "98 01 13 A0 01 14";

TEST_F(AddFilterTest, Bytes) {
    scriptRand({300, 301, 302, 303});
    EXPECT_EQ(sdfAddFilter(fullFlow(), app::onAdded), 300);
    EXPECT_EQ(sdfAddFilterV2(fullFlow(), 0, app::onAdded), 301);
    EXPECT_EQ(sdfAddFilterV2(fullFlow(), 127, app::onAdded), 302);
    EXPECT_EQ(sdfAddFilterV2(fullFlow(), 255, app::onAdded), 303);
    EXPECT_EQ(
        posted(),
        (Texts{"5: 08 04 10 AC 02 1A 43 32 41 " + kFullUpTo17 + kFullFrom19,
               "5: 08 04 10 AD 02 1A 46 32 44 " + kFullUpTo17 + "90 01 00 " + kFullFrom19,
               "5: 08 04 10 AE 02 1A 46 32 44 " + kFullUpTo17 + "90 01 7F " + kFullFrom19,
               "5: 08 04 10 AF 02 1A 47 32 45 " + kFullUpTo17 + "90 01 FF 01 " + kFullFrom19}));
}

// An address of no family has no port, whatever stands in its place. The two ends need not be of
// one family.
TEST_F(AddFilterTest, BytesOfAddresses) {
    SdfAddFilterInfo info = makeFlow("1.2.3.4", 65535, "2001:db8::1", 65535);
    info.src_addr.ss_family = AF_UNSPEC;
    info.dest_addr.ss_family = AF_UNSPEC;
    info.src_port_range = 65535;
    info.dest_port_range = 65535;
    // 1.2.3.4 and 2001:db8::1; the ranges are FF FF 03.
    EXPECT_EQ(add(info),
              "5: 08 04 10 07 1A 22 32 20 0A 07 31 2E 32 2E 33 2E 34 12 0B 32 30 30 31 3A 64 62 38"
              " 3A 3A 31 60 01 70 FF FF 03 78 FF FF 03");
    EXPECT_EQ(add(makeFlow("::", 1, "0.0.0.0", 2)),
              "5: 08 04 10 07 1A 15 32 13 0A 02 3A 3A 12 07 30 2E 30 2E 30 2E 30 18 01 20 02"
              " 60 01");
}

// Type n is n + 1 on the wire.
TEST_F(AddFilterTest, BytesOfEachApplicationType) {
    for (int n = 0; n <= 32; ++n) {
        SdfAddFilterInfo info = makeFlow();
        info.app_type = static_cast<SdfFilterAppType>(n);
        EXPECT_EQ(
            add(info),
            "5: 08 04 10 07 1A 16 32 14 0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 " +
                format("60 %02X", n + 1));
    }
}

}  // namespace
