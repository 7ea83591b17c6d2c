// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Dump.h"

#include <aidl/vendor/orn/data/lumservice/ILumService.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace {

using aidl::vendor::orn::data::lumservice::ILumService;

// The end of a pipe that is read here.
class ReadEnd {
  public:
    // writeEnd: set to the other one, the caller's to close.
    explicit ReadEnd(int* writeEnd) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        mFd = ends[0];
        *writeEnd = ends[1];
    }
    ~ReadEnd() { close(mFd); }
    ReadEnd(const ReadEnd&) = delete;
    ReadEnd& operator=(const ReadEnd&) = delete;

    int fd() const { return mFd; }

    // Appends what there is. Returns false at the end.
    bool readSome(std::string& text) const {
        char part[4096];
        const ssize_t size = read(mFd, part, sizeof part);
        if (size > 0) text.append(part, static_cast<size_t>(size));
        return size > 0 || (size < 0 && errno == EINTR);
    }

  private:
    int mFd;
};

// Returns what came of it; nothing when nobody serves the name. fd: closed.
std::optional<binder_status_t> dumpTo(int fd, bool json) {
    std::optional<binder_status_t> status;
    const ndk::SpAIBinder service(AServiceManager_checkService(ILumService::descriptor));
    const char* arg = "--json";
    if (service.get() != nullptr) status = AIBinder_dump(service.get(), fd, &arg, json ? 1 : 0);
    close(fd);
    return status;
}

void judge(std::optional<binder_status_t> status) {
    if (!status) {
        throw NotUp(std::string("nobody serves the name ") + ILumService::descriptor +
                    " (\"sdfctl doctor\" says why)");
    }
    if (*status == STATUS_OK) return;
    throw Failure(kExitCallFailed, "the service does not write down its state: " +
                                       ndk::ScopedAStatus::fromStatus(*status).getDescription());
}

}  // namespace

void runDump(Session& session, double timeout, bool json) {
    int writeEnd = -1;
    const ReadEnd pipe(&writeEnd);
    // A service may take a call and never return from it, so that the call has a thread of its own.
    std::packaged_task<std::optional<binder_status_t>()> task(
        [writeEnd, json] { return dumpTo(writeEnd, json); });
    std::future<std::optional<binder_status_t>> status = task.get_future();
    std::thread(std::move(task)).detach();

    const Time end = inSeconds(timeout);
    std::string text;
    bool ended = false;
    while (!ended && std::chrono::steady_clock::now() < end) {
        if (session.inputReady(pipe.fd(), -1, end)) ended = !pipe.readSome(text);
    }
    session.printer().copy(text);
    if (!ended) throw Failure(kExitNoAnswer, "the service does not come to the end of its state");
    judge(status.get());
}
