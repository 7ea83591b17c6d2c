// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/ChildDoctor.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>
#include <vector>

namespace {

[[noreturn]] void fail(int error, const char* what) {
    throw std::system_error(error, std::generic_category(), what);
}

// A program run as a process of its own, ended with this object.
class Child {
  public:
    explicit Child(std::vector<std::string> command) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) fail(errno, "pipe");
        mEnd = ends[0];
        const int error = spawn(command, ends[1]);
        close(ends[1]);
        if (error == 0) return;
        close(mEnd);
        fail(error, command[0].c_str());
    }
    ~Child() {
        if (mPid > 0) kill(mPid, SIGTERM);
        if (mPid > 0) (void)wait();
        close(mEnd);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Readable when it has ended.
    int end() const { return mEnd; }

    // Waits for its end. Returns its exit status, or 128 and the number of the signal.
    int wait() {
        int status = 0;
        while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
        }
        mPid = -1;
        return WIFSIGNALED(status) ? kExitSignal + WTERMSIG(status) : WEXITSTATUS(status);
    }

  private:
    // The child alone holds `held`. Returns an error number, or 0.
    int spawn(std::vector<std::string>& command, int held) {
        std::vector<char*> words;
        words.reserve(command.size() + 1);
        for (std::string& word : command) words.push_back(word.data());
        words.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, held, held);
        // The signals that this thread waits for would be blocked there.
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        const int error =
            posix_spawnp(&mPid, words[0], &actions, &attributes, words.data(), environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        return error;
    }

    pid_t mPid = -1;
    int mEnd = -1;
};

}  // namespace

void runChildDoctor(Session& session, double timeout, bool json) {
    std::vector<std::string> command{program_invocation_name, "--timeout", std::to_string(timeout)};
    if (json) command.emplace_back("--json");
    command.emplace_back("doctor");
    Child doctor(command);
    while (!session.inputReady(doctor.end())) {
    }
    const int status = doctor.wait();
    if (status != kExitSuccess) session.fail(status);
}
