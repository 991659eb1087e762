// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/pager.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace tavrisk::tools {
namespace {

// Whoever may run this as root shall not thereby run all else.
constexpr auto lessIfThere = "command -v less >/dev/null || exec cat; LESSSECURE=1 exec less -FRX";

[[noreturn]] void become(const char* command, int input) {
    dup2(input, STDIN_FILENO);
    std::signal(SIGPIPE, SIG_DFL);
    execl("/bin/sh", "sh", "-c", command, nullptr);
    _exit(127);
}

} // namespace

Pager::Pager() {
    const char* const chosen = std::getenv("PAGER"); // NOLINT(concurrency-mt-unsafe)
    const char* const command = chosen != nullptr ? chosen : lessIfThere;
    std::array<int, 2> ends{};
    if (*command == '\0' || pipe2(ends.data(), O_CLOEXEC) != 0) {
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        become(command, ends[0]);
    }
    if (pid_ > 0) {
        std::signal(SIGINT, SIG_IGN); // It is the pager's.
        terminal_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        dup2(ends[1], STDOUT_FILENO);
    }
    close(ends[0]);
    close(ends[1]);
}

Pager::~Pager() {
    if (pid_ > 0) {
        std::fflush(stdout);
        dup2(terminal_, STDOUT_FILENO);
        close(terminal_);
        waitpid(pid_, nullptr, 0);
    }
}

} // namespace tavrisk::tools
