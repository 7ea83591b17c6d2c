// SPDX-License-Identifier: Apache-2.0
#include "tools/place/DriverCheck.h"

#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <lum/service_manager.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr char kLoad[] =
    "Load the driver (modprobe binder_linux devices=binder,hwbinder,vndbinder), or mount its file "
    "system (mount -t binder), and set LUM_BINDER to its device, here and for the service. Without "
    "LUM_BINDER services and clients meet in a directory.";
constexpr char kRight[] =
    "It takes the right to read and write the device: have root give it (chmod 666, as on a device), "
    "or run this as a user who has it.";
constexpr char kOtherDevice[] =
    "Set LUM_BINDER to a device of the kernel's binder driver, as /dev/binder or /dev/vndbinder, "
    "here and for the service.";
constexpr char kOtherKernel[] =
    "It takes a kernel whose driver speaks that version, as all do that are built without "
    "CONFIG_ANDROID_BINDER_IPC_32BIT.";
constexpr char kMap[] =
    "It takes the right to map the device, and address space for that: see what the system's policy "
    "denies (dmesg), and raise the limit (ulimit -v), or run this as somebody else.";
constexpr char kStartManager[] =
    "Start one: where Android runs its own, otherwise lum_servicemanager, with the same LUM_BINDER.";
constexpr char kAllow[] =
    "The system's policy has to let this process call the service manager: see what it denies "
    "(dmesg), and add a rule, or run this as somebody else.";
constexpr char kAllowName[] =
    "The system's policy has to let this process find the service: see what it denies (dmesg), and "
    "add a rule, or run this as somebody else.";
constexpr char kAskAgain[] =
    "It may have died, or lack memory: run this again, and if nothing changes, look into its log and "
    "the kernel's (dmesg).";
constexpr char kOtherPartition[] =
    "It takes calls of another partition: the vendor's come over a device whose name ends with "
    "vndbinder, the system's over any other. Set LUM_BINDER to the device with the service, here and "
    "for the service.";

Obstacle withError(const char* what, const char* advice) {
    return {std::string(what) + " (" + strerror(errno) + ")", advice};
}

Obstacle openObstacle() {
    switch (errno) {
        case ENOENT:
        case ENXIO:
        case ENODEV: return withError("there is no such device", kLoad);
        case EACCES:
        case EPERM: return withError("this user may not open it", kRight);
        default: return withError("it cannot be opened", kOtherDevice);
    }
}

// As the binder runtime opens it, but to look only.
Obstacle nodeObstacle(const std::string& device) {
    const int fd = open(device.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return openObstacle();
    binder_version version{};
    const bool answers = ioctl(fd, BINDER_VERSION, &version) == 0;
    close(fd);
    if (!answers) return {"it is no device of the binder driver", kOtherDevice};
    if (version.protocol_version != BINDER_CURRENT_PROTOCOL_VERSION) {
        return {"its driver speaks version " + std::to_string(version.protocol_version) +
                    " of the protocol, not " + std::to_string(BINDER_CURRENT_PROTOCOL_VERSION),
                kOtherKernel};
    }
    return {};
}

ndk::ScopedAStatus mayFind(const char* name) {
    AStatus* const status = LumServiceManager_mayFind(name);
    return status == nullptr ? ndk::ScopedAStatus::fromStatus(STATUS_NO_MEMORY)
                             : ndk::ScopedAStatus(status);
}

}  // namespace

Obstacle driverObstacle(const std::string& device) {
    Obstacle node = nodeObstacle(device);
    if (!node.trouble.empty()) return node;
    // Under what is its own name on a device. What it says of that is of no interest here.
    const ndk::ScopedAStatus status = mayFind("manager");
    if (status.getExceptionCode() == EX_UNSUPPORTED_OPERATION) {
        return {"it cannot be used; the log says why", kMap};
    }
    if (status.getExceptionCode() != EX_TRANSACTION_FAILED) return {};
    switch (status.getStatus()) {
        case STATUS_DEAD_OBJECT: return {"it has no service manager", kStartManager};
        case STATUS_BAD_TYPE:
            return {"its service manager is of another partition", kOtherPartition};
        default:
            return {"its service manager cannot be called: " + status.getDescription(),
                    status.getStatus() == STATUS_FAILED_TRANSACTION ? kAllow : kAskAgain};
    }
}

Obstacle refusalObstacle(const char* name) {
    const ndk::ScopedAStatus status = mayFind(name);
    if (status.isOk()) return {};
    if (status.getExceptionCode() == EX_SECURITY) {
        return {"the service manager does not let this process look the name up: " +
                    status.getDescription(),
                kAllowName};
    }
    return {"the service manager cannot be asked about it: " + status.getDescription(), kAskAgain};
}
