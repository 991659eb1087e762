// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/child_side.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace tavrisk {
namespace {

constexpr int lastSignal = 64;
constexpr unsigned secondsToExec = 30;

/** All that a command gets to see of the environment. */
constexpr std::array<const char*, 5> environment{
    "HOME=/", "PATH=/bin:/app/bin:/usr/bin", "USER=hmcclient", "LD_LIBRARY_PATH=/usr/lib", nullptr,
};

/** The bus, libraries' databases, and data files that are just being written: file streams know no
 *  close-on-exec. */
void closeDescriptorsOnExec() {
    constexpr int first = STDERR_FILENO + 1;
    if (close_range(first, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
        return;
    }
    // A kernel older than the call.
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    for (int descriptor = first; static_cast<rlim_t>(descriptor) < limit.rlim_cur; ++descriptor) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

} // namespace

void enterChild() {
    // Some numbers of this range cannot be set, SIGKILL for one: those calls fail, without harm.
    for (int number = 0; number <= lastSignal; ++number) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setpgid(0, 0);
    alarm(secondsToExec);
}

int becomeCommand(const char* path, char* const* arguments) {
    closeDescriptorsOnExec();
    alarm(0); // Or it would end the command.
    const int result = execve(path, arguments, const_cast<char* const*>(environment.data()));
    alarm(secondsToExec);
    return result;
}

} // namespace tavrisk
