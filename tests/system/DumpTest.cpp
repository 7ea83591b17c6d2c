// SPDX-License-Identifier: Apache-2.0
// The emulator's dump, through the binder interface alone.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Hex.h"
#include "tests/support/TestDirectory.h"
#include "tests/system/EmulatorClient.h"

namespace {

class DumpTest : public testing::Test {
  protected:
    struct Dump {
        binder_status_t status;
        std::string text;
    };

    // Dumps the service and reads on another thread. args: one word each.
    static Dump dump(std::vector<const char*> args = {}) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        std::future<std::string> text = std::async(std::launch::async, [fd = ends[0]] {
            std::string all;
            char part[4096];
            for (ssize_t size = 0; (size = read(fd, part, sizeof part)) > 0;) {
                all.append(part, static_cast<size_t>(size));
            }
            return all;
        });
        const binder_status_t status =
            findService()->dump(ends[1], args.data(), static_cast<uint32_t>(args.size()));
        close(ends[1]);
        Dump result{status, text.get()};
        close(ends[0]);
        return result;
    }

    // How the dump of the service's only client begins.
    std::string jsonOfClient() const {
        return "{\"pid\":" + std::to_string(mEmulator.pid()) +
               ",\"clients\":[{\"pid\":" + std::to_string(getpid()) +
               ",\"uid\":" + std::to_string(getuid()) + ",\"name\":\"" + name() +
               "\",\"features\":[";
    }
    std::string textOfClient() const {
        return "pid=" + std::to_string(mEmulator.pid()) +
               "\nclients: 1\n- pid=" + std::to_string(getpid()) +
               " uid=" + std::to_string(getuid()) + " name=" + name() + "\n";
    }
    // This program's, as any other sees it.
    static std::string name() {
        const ChildProcess shell(
            {"/bin/sh", "-c", "tr '\\0' '\\n' </proc/$0/cmdline", std::to_string(getpid())});
        EXPECT_TRUE(shell.waitFor([](const std::string&) { return true; }));
        const std::string path = shell.lines().at(0);
        return path.substr(path.rfind('/') + 1);
    }

    const TestDirectory mDirectory;
    EmulatorProcess mEmulator;
};

// add_filter { all twenty fields } with the id 7.
constexpr char kAddFilter[] =
    "08 04 10 07 1A 3F 32 3D 0A 08 31 30 2E 30 2E 30 2E 31 12 08 31 30 2E 30 2E 30 2E 32 18 01 20 "
    "02 28 02 30 03 38 04 40 05 48 06 50 02 58 07 60 21 68 08 70 09 78 0A 80 01 0B 88 01 0C 90 01 "
    "00 98 01 0D A0 01 0E";
// Target DSCP 46 for it.
constexpr char kUpdateDscp[] = "08 12 1A 07 82 01 04 08 07 10 2E";

TEST_F(DumpTest, NobodyIsThere) {
    const Dump json = dump({"--json"});
    EXPECT_EQ(json.status, STATUS_OK);
    EXPECT_EQ(json.text, "{\"pid\":" + std::to_string(mEmulator.pid()) + ",\"clients\":[]}\n");
    EXPECT_EQ(dump().text, "pid=" + std::to_string(mEmulator.pid()) + "\nclients: 0\n");
}

TEST_F(DumpTest, ClientThatHasOnlyRegistered) {
    const EmulatorClient client;
    EXPECT_EQ(dump({"--json"}).text, jsonOfClient() + "]}]}\n");
    EXPECT_EQ(dump().text, textOfClient() + "  features: 0\n");
}

TEST_F(DumpTest, ClientThatHasAskedForNothing) {
    const EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable, 3).isOk());
    EXPECT_EQ(dump({"--json"}).text,
              jsonOfClient() +
                  R"({"type":3,"filter_status":false,"auto_filter_info":false,)"
                  R"("report_value":null,"report_interval_ms":null,"high_perf_gaming":false,)"
                  R"("auto_filter_id":null,"prioritize_dds":false,"dds_ood":null,)"
                  R"("dds_pdcp_timer":null,"prioritized_slots":[],"levels":[],"filters":[]}]}]})"
                  "\n");
    EXPECT_EQ(dump().text,
              textOfClient() +
                  "  features: 1\n"
                  "  - type=3 filter_status=off auto_filter_info=off report_value=none "
                  "report_interval_ms=none\n"
                  "    high_perf_gaming=off auto_filter_id=none prioritize_dds=off dds_ood=none "
                  "dds_pdcp_timer=none\n"
                  "    prioritized_slots: 0\n"
                  "    levels: 0\n"
                  "    filters: 0\n");
}

TEST_F(DumpTest, EverythingAskedFor) {
    const EmulatorClient client;
    for (const char* const request : {
             kEnable,
             "08 03 1A 04 2A 02 08 01",                 // REG_FILTER_STATUS
             "08 11",                                   // REG_AUTO_FILTER_INFO_IND
             "08 0F 1A 09 7A 07 08 01 10 80 B8 99 29",  // reports each day
             "08 0D 1A 04 6A 02 08 01",                 // EN_HIGH_PERF_GAMING
             "08 02 1A 04 22 02 08 01",                 // PRIORITIZE_DDS
             "08 0B 1A 04 5A 02 08 01",                 // UPDATE_DDS_OOD, enabled
             "08 0C 1A 05 62 03 08 AC 02",              // UPDATE_DDS_PDCP_TIMER 300
             "08 0E 1A 06 72 04 08 02 10 01",           // PRIORITIZE_DATA, second slot
             kSetLevels,
             "08 01 1A 0A 1A 08 08 02 10 02 18 04 20 01",  // L3 and L5, with the flag
             kAddFilter,
             kUpdateDscp,
         }) {
        ASSERT_TRUE(client.send(request).isOk()) << request;
    }
    EXPECT_EQ(dump({"--json"}).text,
              jsonOfClient() +
                  R"({"type":5,"filter_status":true,"auto_filter_info":true,)"
                  R"("report_value":86400000,"report_interval_ms":86400000,)"
                  R"("high_perf_gaming":true,"auto_filter_id":2147483649,"prioritize_dds":true,)"
                  R"("dds_ood":"SDF_OOD_ENABLED","dds_pdcp_timer":300,)"
                  R"("prioritized_slots":["SLOT_ID_SECOND"],)"
                  R"("levels":[{"slot_id":"SLOT_ID_FIRST","first_level":"L2",)"
                  R"("second_level":"L4","level_flag":false},{"slot_id":"SLOT_ID_SECOND",)"
                  R"("first_level":"L3","second_level":"L5","level_flag":true}],)"
                  R"("filters":[{"filter_id":7,"status":"FILTER_ACTIVE","src_ip":"10.0.0.1",)"
                  R"("dest_ip":"10.0.0.2","src_port":1,"dest_port":2,"protocol":"PROTOCOL_UDP",)"
                  R"("filter_arg6":3,"first_level":"L5","second_level":"L6","pdcp_timer":6,)"
                  R"("ood":"SDF_OOD_DISABLED","filter_arg11":7,)"
                  R"("app_type":"APP_TYPE_TRAFFIC_PRIO_BE","filter_arg13":8,)"
                  R"("src_port_range":9,"dest_port_range":10,"filter_arg16":11,)"
                  R"("filter_arg17":12,"filter_arg18":0,"filter_arg19":13,"filter_arg20":14,)"
                  R"("target_dscp":46}]}]}]})"
                  "\n");
    EXPECT_EQ(dump().text,
              textOfClient() +
                  "  features: 1\n"
                  "  - type=5 filter_status=on auto_filter_info=on report_value=86400000 "
                  "report_interval_ms=86400000\n"
                  "    high_perf_gaming=on auto_filter_id=2147483649 prioritize_dds=on "
                  "dds_ood=SDF_OOD_ENABLED\n"
                  "    dds_pdcp_timer=300\n"
                  "    prioritized_slots: 1\n"
                  "    - SLOT_ID_SECOND\n"
                  "    levels: 2\n"
                  "    - slot_id=SLOT_ID_FIRST first_level=L2 second_level=L4 level_flag=off\n"
                  "    - slot_id=SLOT_ID_SECOND first_level=L3 second_level=L5 level_flag=on\n"
                  "    filters: 1\n"
                  "    - filter_id=7 status=FILTER_ACTIVE src_ip=10.0.0.1 dest_ip=10.0.0.2 "
                  "src_port=1 dest_port=2\n"
                  "      protocol=PROTOCOL_UDP filter_arg6=3 first_level=L5 second_level=L6 "
                  "pdcp_timer=6\n"
                  "      ood=SDF_OOD_DISABLED filter_arg11=7 app_type=APP_TYPE_TRAFFIC_PRIO_BE "
                  "filter_arg13=8\n"
                  "      src_port_range=9 dest_port_range=10 filter_arg16=11 filter_arg17=12 "
                  "filter_arg18=0\n"
                  "      filter_arg19=13 filter_arg20=14 target_dscp=46\n");
}

TEST_F(DumpTest, UnknownArgumentIsAllThatIsSaid) {
    for (const std::vector<const char*>& args :
         {std::vector<const char*>{"--xml"}, std::vector<const char*>{"--json", "--xml"}}) {
        const Dump said = dump(args);
        EXPECT_EQ(said.status, STATUS_OK);
        EXPECT_EQ(said.text, "unknown argument: --xml\nusage: [--json]\n");
    }
}

// Registers so many filters that their dump does not fit a pipe.
void addMany(const EmulatorClient& client) {
    ASSERT_TRUE(client.send(kEnable).isOk());
    // add_filter { src_ip: "::1" dest_ip: "::2" src_port }, the port being the id.
    for (uint8_t id = 1; id <= 64; ++id) {
        std::vector<uint8_t> request =
            fromHex("08 04 10 00 1A 0E 32 0C 0A 03 3A 3A 31 12 03 3A 3A 32 18 00");
        request[3] = id;
        request.back() = id;
        ASSERT_TRUE(client.send(toHex(request)).isOk());
    }
}

TEST_F(DumpTest, ReaderThatDoesNotReadIsGivenUpAndOthersAreServed) {
    const EmulatorClient client;
    addMany(client);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETPIPE_SZ, 4096), 4096);
    std::future<binder_status_t> stuck =
        std::async(std::launch::async, [&] { return findService()->dump(ends[1], nullptr, 0); });
    const Dump other = dump();
    EXPECT_EQ(other.status, STATUS_OK);
    EXPECT_GT(other.text.size(), 4096U);
    EXPECT_TRUE(client.send(kSetLevels).isOk());
    EXPECT_EQ(stuck.get(), STATUS_TIMED_OUT);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(DumpTest, ReaderThatGoesDoesNotEndTheService) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    EXPECT_EQ(findService()->dump(ends[1], nullptr, 0), STATUS_UNKNOWN_ERROR);
    close(ends[1]);
    EXPECT_EQ(dump().status, STATUS_OK);
}

TEST_F(DumpTest, DescriptorThatCannotBeWrittenToIsAnError) {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(findService()->dump(fd, nullptr, 0), STATUS_UNKNOWN_ERROR);
    close(fd);
    EXPECT_EQ(mEmulator.terminate(), 0);
}

TEST_F(DumpTest, DescriptorsDoNotStay) {
    const size_t before = mEmulator.stats().descriptors;
    for (int i = 0; i < 20; ++i) EXPECT_EQ(dump().status, STATUS_OK);
    EXPECT_TRUE(mEmulator.waitForStats([&](const EmulatorProcess::Stats& stats) {
        return stats.descriptors <= before + 1;  // this process's connection
    }));
}

}  // namespace
