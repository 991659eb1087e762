// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/limit.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>

namespace tavrisk::retention {
namespace {

using Clock = std::chrono::steady_clock;

/** The parent is the one who keeps the time. */
int doWork(pid_t parent, int (*work)()) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    return getppid() == parent ? work() : 1;
}

timespec untilThen(Clock::time_point then) {
    using namespace std::chrono;
    const auto left = std::max(duration_cast<nanoseconds>(then - Clock::now()), nanoseconds{0});
    const auto whole = duration_cast<seconds>(left);
    return {.tv_sec = whole.count(), .tv_nsec = (left - whole).count()};
}

/** Whether the child has ended; waits for that until then. */
bool ends(pid_t child, Clock::time_point then, const sigset_t& ofChildren, int& status) {
    while (waitpid(child, &status, WNOHANG) == 0) {
        const auto left = untilThen(then);
        if (sigtimedwait(&ofChildren, nullptr, &left) < 0 && errno == EAGAIN) {
            return waitpid(child, &status, WNOHANG) == child;
        }
    }
    return true;
}

} // namespace

Ending withinTime(int seconds, int (*work)()) {
    const auto then = Clock::now() + std::chrono::seconds{seconds};
    std::signal(SIGCHLD, SIG_DFL); // Ignored, it would leave nothing to wait for.
    sigset_t ofChildren;
    sigemptyset(&ofChildren);
    sigaddset(&ofChildren, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ofChildren, nullptr);

    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        return {Ending::Kind::notStarted, errno};
    }
    if (child == 0) {
        _exit(doWork(parent, work));
    }
    int status = 0;
    if (!ends(child, then, ofChildren, status)) {
        kill(child, SIGKILL);
        return {Ending::Kind::late, 0};
    }
    return WIFEXITED(status) ? Ending{Ending::Kind::exited, WEXITSTATUS(status)}
                             : Ending{Ending::Kind::killed, WTERMSIG(status)};
}

} // namespace tavrisk::retention
