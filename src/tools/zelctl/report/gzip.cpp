// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/gzip.hpp"

#include "tools/common/failure.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>

namespace tavrisk::tools {
namespace {

[[noreturn]] void fail(const std::string& what, int error) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    throw Failure{Exit::failed, what + ": " + std::strerror(error)};
}

/** What a child that reads `input` is started with: it dies of a broken pipe, as usual. */
class Surroundings {
public:
    Surroundings(int input, int output) {
        sigset_t brokenPipe{};
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigdefault(&attributes_, &brokenPipe);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    }
    ~Surroundings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    /** Starts the program; an error number, or 0. */
    int start(pid_t& pid, const char* program) const {
        std::array arguments{const_cast<char*>(program), const_cast<char*>("-c"),
                             static_cast<char*>(nullptr)};
        return posix_spawnp(&pid, program, &actions_, &attributes_, arguments.data(), environ);
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

[[noreturn]] void failBecauseOf(int status) {
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) {
        throw NobodyReads{};
    }
    throw Failure{Exit::failed,
                  WIFSIGNALED(status)
                      ? "gzip was ended by signal " + std::to_string(WTERMSIG(status))
                      : "gzip ended with status " + std::to_string(WEXITSTATUS(status))};
}

} // namespace

Gzip::Gzip(int output) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("gzip", errno);
    }
    input_ = ends[1];
    const int error = Surroundings{ends[0], output}.start(pid_, "gzip");
    close(ends[0]);
    if (error != 0) {
        pid_ = -1;
        closeInput();
        fail("gzip, which packs the bundle, cannot be started", error);
    }
}

Gzip::~Gzip() {
    closeInput();
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        static_cast<void>(wait());
    }
}

void Gzip::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(input_, bytes.data(), bytes.size());
        if (written < 0 && errno == EPIPE) {
            failBecauseOf(wait());
        }
        if (written < 0 && errno != EINTR) {
            fail("gzip", errno);
        }
        bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

void Gzip::finish() {
    closeInput();
    if (const int status = wait(); status != 0) {
        failBecauseOf(status);
    }
}

void Gzip::closeInput() {
    if (input_ >= 0) {
        close(std::exchange(input_, -1));
    }
}

int Gzip::wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status;
}

} // namespace tavrisk::tools
