// SPDX-License-Identifier: Apache-2.0
// "sdfctl doctor", and the emulator, where services and clients are to meet over the kernel's
// driver: what is in the way. All but DriverManagerTest runs where there is none.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/sdfctl/OrdinaryUser.h"
#include "tests/sdfctl/Sdfctl.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Complaints.h"
#include "tests/support/Driver.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestDirectory.h"

namespace {

class DriverDoctorTest : public testing::Test {
  protected:
    // Runs it with that device and expects these lines, the second one to begin so.
    static void expectFailure(int status, const std::string& device, const std::string& failed,
                              const std::string& advice,
                              const Lines& command = sdfctlCommand("doctor")) {
        ChildProcess doctor(command, {"LUM_BINDER=" + device});
        EXPECT_EQ(doctor.wait(), status);
        const Lines lines = doctor.lines();
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines[lines.size() - 2], "failed  " + failed);
        EXPECT_EQ(lines.back().substr(0, advice.size() + 8), "        " + advice);
    }

    // Starts the emulator with that device and expects it to end with this message.
    static void expectNoService(const std::string& device, const std::string& reason) {
        ChildProcess emulator({EmulatorProcess::program()}, {"LUM_BINDER=" + device});
        EXPECT_EQ(emulator.wait(), 1);
        const Lines errors = emulator.errorLines();
        ASSERT_FALSE(errors.empty());
        EXPECT_EQ(
            errors.back(),
            "lum_sdf_emulator: cannot serve vendor.orn.data.lumservice.ILumService: " + reason);
    }

    const TestDirectory mDirectory;
    const std::string mUnusable = "the binder device cannot be used (\"sdfctl doctor\" says why)";
};

TEST_F(DriverDoctorTest, DeviceIsNotThere) {
    const std::string device = mDirectory.path() + "/binder";
    expectFailure(10, device,
                  "driver:    " + device + ": there is no such device (No such file or directory)",
                  "Load the driver (modprobe binder_linux ");
    expectNoService(device, mUnusable);
}

TEST_F(DriverDoctorTest, DeviceMayNotBeOpened) {
    if (!canBeOrdinaryUser()) GTEST_SKIP() << "root cannot do without its rights here";
    const std::string device = mDirectory.path() + "/binder";
    std::ofstream(device).close();
    ASSERT_EQ(chmod(device.c_str(), 0400), 0);
    expectFailure(10, device,
                  "driver:    " + device + ": this user may not open it (Permission denied)",
                  "It takes the right to read and write the device: ",
                  asOrdinaryUser(sdfctlCommand("doctor")));
}

TEST_F(DriverDoctorTest, DeviceIsAnotherOne) {
    expectFailure(10, "/dev/null", "driver:    /dev/null: it is no device of the binder driver",
                  "Set LUM_BINDER to a device of the kernel's binder driver, ");
    expectNoService("/dev/null", mUnusable);
    const Outcome run = runSdfctl("doctor --json", {}, {"LUM_BINDER=/dev/null"});
    EXPECT_EQ(run.status, 10);
    ASSERT_EQ(run.lines.size(), 1U);
    const nlohmann::json object = nlohmann::json::parse(run.lines[0]);
    EXPECT_EQ(object["step"], "driver");
    EXPECT_EQ(object["detail"], "/dev/null: it is no device of the binder driver");
}

// The driver complains about a service manager for a device that has one.
void allowSecond(const ChildProcess& manager) {
    allowComplaints(manager.pid(), "binder_linux: BINDER_SET_CONTEXT_MGR already set");
}

// What lum_servicemanager says when it cannot be one.
void expectNoManager(int status, const std::string& error, Lines arguments,
                     const std::string& device) {
    arguments.insert(arguments.begin(), LUM_SERVICEMANAGER_PROGRAM);
    ChildProcess manager(arguments, {"LUM_BINDER=" + device});
    allowSecond(manager);
    EXPECT_EQ(manager.wait(), status);
    EXPECT_EQ(manager.lines(), Lines{});
    const Lines errors = manager.errorLines();
    EXPECT_NE(std::find(errors.begin(), errors.end(), error), errors.end()) << error;
}

TEST(ServiceManagerProgramTest, WhatKeepsItFromServingIsReported) {
    expectNoManager(
        1, "lum_servicemanager: set LUM_BINDER to the driver's device, for example /dev/vndbinder",
        {}, "");
    expectNoManager(1, "lum_servicemanager: cannot use the driver's device; the log says why", {},
                    "/dev/null");
    expectNoManager(2, "usage: lum_servicemanager [--help | --version]", {"--colour"}, "/dev/null");
}

// With the driver's second device, which has no service manager but those of the tests.
class DriverManagerTest : public DriverDoctorTest {
  protected:
    static constexpr char kDevice[] = "/dev/binder";

    void SetUp() override {
        if (!overDriver()) GTEST_SKIP() << "needs the kernel's driver: ./dev test --vm";
    }

    // Starts a service manager there. The driver may still be at the end of an earlier test's one.
    void manage(const std::string& program) {
        ASSERT_TRUE(eventually([&] {
            mManager =
                std::make_unique<ChildProcess>(Lines{program}, Lines{"LUM_BINDER=/dev/binder"});
            if (mManager->waitForLine("ready")) return true;
            allowSecond(*mManager);
            return false;
        }));
    }

    std::unique_ptr<ChildProcess> mManager;
};

TEST_F(DriverManagerTest, NoServiceManager) {
    expectFailure(10, kDevice, "driver:    /dev/binder: it has no service manager",
                  "Start one: where Android runs its own, otherwise lum_servicemanager, ");
    expectNoService(kDevice, "no service manager can be asked (\"sdfctl doctor\" says why)");
}

TEST_F(DriverManagerTest, NobodyServesTheNameThenSomebodyDoes) {
    manage(LUM_SERVICEMANAGER_PROGRAM);
    expectFailure(11, kDevice,
                  "service:   nobody serves the name vendor.orn.data.lumservice.ILumService",
                  "Start it: on Linux lum_sdf_emulator, ");
    ChildProcess emulator({EmulatorProcess::program(), "--until-eof"}, {"LUM_BINDER=/dev/binder"});
    ASSERT_TRUE(
        emulator.waitFor([](const std::string& line) { return line.rfind("ready", 0) == 0; }));
    const Outcome run = runSdfctl("doctor --timeout 30", {}, {"LUM_BINDER=/dev/binder"});
    EXPECT_EQ(run.status, 0);
    ASSERT_EQ(run.lines.size(), 7U);
    EXPECT_EQ(run.lines[0], "ok      driver:    /dev/binder can be used");
}

// It might get none.
TEST_F(DriverManagerTest, ServiceManagerMakesNoThreads) {
    manage(LUM_SERVICEMANAGER_PROGRAM);
    expectFailure(11, kDevice,
                  "service:   nobody serves the name vendor.orn.data.lumservice.ILumService",
                  "Start it: on Linux lum_sdf_emulator, ");
    const std::filesystem::directory_iterator threads("/proc/" + std::to_string(mManager->pid()) +
                                                      "/task");
    EXPECT_EQ(std::distance(begin(threads), end(threads)), 1);
}

// The driver remembers who it was.
TEST_F(DriverManagerTest, DeviceHadAServiceManagerOfAnotherUser) {
    manage(LUM_SERVICEMANAGER_PROGRAM);
    mManager->kill();
    // As long as the driver is still at its end.
    const Lines busy{"lum_servicemanager: another process is the service manager of this device"};
    Lines errors;
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(seteuid(65534), 0);
        ChildProcess manager({LUM_SERVICEMANAGER_PROGRAM}, {"LUM_BINDER=/dev/binder"});
        EXPECT_EQ(seteuid(0), 0);
        allowSecond(manager);
        allowComplaints(manager.pid(), "binder_linux: BINDER_SET_CONTEXT_MGR bad uid 65534 != 0");
        EXPECT_EQ(manager.wait(), 1);
        errors = manager.errorLines();
        return errors != busy;
    }));
    EXPECT_EQ(errors,
              Lines{"lum_servicemanager: the driver keeps this device for the user who was its "
                    "service manager first: run this as that user, or make the device anew"});
}

TEST_F(DriverManagerTest, ServiceManagerThatHasStopped) {
    manage(LUM_SERVICEMANAGER_PROGRAM);
    ASSERT_TRUE(stopChild(mManager->pid()));
    expectFailure(
        10, kDevice, "driver:    /dev/binder: its service manager does not answer",
        "It runs, but does not return from calls: ", sdfctlCommand("--timeout 0.3 doctor"));
}

TEST_F(DriverManagerTest, ServiceManagerOfAnotherPartition) {
    manage(LUM_SERVICEMANAGER_PROGRAM);
    const std::string device = mDirectory.path() + "/vndbinder";
    ASSERT_EQ(symlink(kDevice, device.c_str()), 0);
    expectFailure(10, device,
                  "driver:    " + device + ": its service manager is of another partition",
                  "It takes calls of another partition: ");
    expectNoService(device, "no service manager can be asked (\"sdfctl doctor\" says why)");
}

TEST_F(DriverManagerTest, ServiceManagerThatRefuses) {
    manage(LUM_REFUSING_MANAGER_PROGRAM);
    expectFailure(11, kDevice,
                  "service:   the service manager does not let this process look the name up: "
                  "Status(-1, EX_SECURITY): 'denied'",
                  "The system's policy has to let this process find the service: ");
    expectNoService(kDevice,
                    "the service manager refuses it: another user has the name, or the system's "
                    "policy does not let this process have it");
}

}  // namespace
