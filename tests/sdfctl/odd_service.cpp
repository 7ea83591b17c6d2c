// SPDX-License-Identifier: Apache-2.0
//
// sdfctl_odd_service WAY: has the data service's name, and is not what it should be.
//
//   other     an object of another interface
//   fails     an object of the right interface that fails every call, and its dump halfway
//   dies      the same, but it dies of its dump
//   hangs N   a service that does not return from the Nth message
//
// Writes a line when clients can find it, and ends with its standard input.

#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using aidl::vendor::orn::data::lumservice::BnLumService;
using aidl::vendor::orn::data::lumservice::ILumService;
using aidl::vendor::orn::data::lumservice::ILumServiceCallback;
using aidl::vendor::orn::data::lumservice::LumSdkType;

using Bytes = std::vector<uint8_t>;

// As the messages are encoded.
const Bytes kServiceUp{0x1a, 0x04, 0x0a, 0x02, 0x08, 0x06};
const Bytes kNoFilters{0x08, 0x04, 0x1a, 0x02, 0x2a, 0x00};
constexpr uint8_t kGetFilters = 0x05;  // behind the tag of the event

class HangingService : public BnLumService {
  public:
    explicit HangingService(int last) : mLast(last) {}

    ndk::ScopedAStatus registerBlobCallback(
        const std::shared_ptr<ILumServiceCallback>& callback) override {
        std::atomic_store(&mCallback, callback);
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus sendBlob(LumSdkType type, const Bytes& blob) override {
        if (++mMessages == mLast) {
            for (;;) pause();
        }
        const bool list = blob.size() > 1 && blob[0] == 0x08 && blob[1] == kGetFilters;
        return std::atomic_load(&mCallback)->sendBlob(type, list ? kNoFilters : kServiceUp);
    }

  private:
    const int mLast;
    std::atomic<int> mMessages{0};
    std::shared_ptr<ILumServiceCallback> mCallback;
};

// An object that answers no call but those which the runtime itself answers.
ndk::SpAIBinder deafObject(const char* descriptor, AIBinder_onDump onDump = nullptr) {
    AIBinder_Class* const clazz = AIBinder_Class_define(
        descriptor, [](void* data) { return data; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_ERROR;
        });
    AIBinder_Class_setOnDump(clazz, onDump);
    return ndk::SpAIBinder(AIBinder_new(clazz, nullptr));
}

binder_status_t dumpHalf(AIBinder*, int fd, const char**, uint32_t) {
    return write(fd, "half\n", 5) == 5 ? STATUS_INVALID_OPERATION : STATUS_OK;
}

binder_status_t dieOfDump(AIBinder*, int, const char**, uint32_t) {
    _exit(1);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string way = argc > 1 ? argv[1] : "";
    ndk::SpAIBinder object;
    if (way == "other") object = deafObject("test.IOther");
    if (way == "fails") object = deafObject(ILumService::descriptor, dumpHalf);
    if (way == "dies") object = deafObject(ILumService::descriptor, dieOfDump);
    if (way == "hangs" && argc > 2) {
        object = ndk::SharedRefBase::make<HangingService>(std::atoi(argv[2]))->asBinder();
    }
    if (object.get() == nullptr) return 2;
    if (AServiceManager_addService(object.get(), ILumService::descriptor) != EX_NONE) return 1;
    ABinderProcess_startThreadPool();
    puts("ready");
    fflush(stdout);
    char ignored = 0;
    while (read(STDIN_FILENO, &ignored, 1) > 0) {
    }
    _exit(0);  // whatever its calls are at
}
