// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/child_runner.hpp"

#include "daemon/retention/child_side.hpp"
#include "daemon/threads/thread.hpp"
#include "log/diag_log.hpp"
#include "log/fork_gate.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>

namespace {

constexpr auto timeoutName = "system_call_timeout";
constexpr auto waitName = "system_call_wait";

[[noreturn]] void performWithTimeout(const char* path, char* const* arguments) {
    tavrisk::enterChild();
    diag_log(LOG_USER, LOG_DEBUG, "%s: Performing %s %s %s\n", timeoutName, path, arguments[1],
             arguments[2]);
    const int result = tavrisk::becomeCommand(path, arguments);
    diag_log(LOG_USER, LOG_DEBUG, "%s: Exec return %d\n", timeoutName, result);
    _exit(-1);
}

[[noreturn]] void performWithWait(const char* path, char* const* arguments) {
    tavrisk::enterChild();
    diag_log(LOG_USER, LOG_DEBUG, "%s: Performing %s %s %s", waitName, path, arguments[1],
             arguments[2]);
    const int result = tavrisk::becomeCommand(path, arguments);
    diag_log(LOG_USER, LOG_DEBUG, "%s: Exec return: %d %d", waitName, errno, result);
    _exit(-2);
}

/** Also of a child that nothing is known of yet, whose status is 0. */
bool isCleanExit(int status) {
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

enum class Outcome { success, failure, failureWithKill };

/** `reported` is `waitpid`'s result. When it is 0, the budget is spent and the status still that of
 *  a clean exit: a command that outran its budget deliberately counts as success. */
Outcome judge(pid_t reported, int status, std::uint32_t budget) {
    if (reported != -1 && isCleanExit(status)) {
        return Outcome::success;
    }
    return budget != 0 && WIFEXITED(status) ? Outcome::failure : Outcome::failureWithKill;
}

/** What can be seen of a child without reaping it. As long as it is not reaped, its number, and the
 *  group of that number, belong to nobody else. */
struct Sighting {
    bool ours = false;
    bool ended = false;
    int status = 0;
};

Sighting lookAt(pid_t child) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
        return {};
    }
    return {.ours = true,
            .ended = info.si_pid != 0,
            .status = info.si_code == CLD_EXITED ? W_EXITCODE(info.si_status, 0) : info.si_status};
}

/** One `waitpid` without waiting. A child that has ended gets the SIGKILL that its outcome asks for
 *  before it is reaped: a moment later the number may be a stranger's. */
pid_t poll(pid_t child, int& status, std::uint32_t budget) {
    const auto seen = lookAt(child);
    if (seen.ended && judge(child, seen.status, budget) != Outcome::failure) {
        kill(child, SIGKILL);
    }
    return waitpid(child, &status, WNOHANG);
}

/** The caller does not wait for a child that may take its time to die, in a driver perhaps. */
void reapLater(pid_t child) {
    try {
        tavrisk::startThread([child] {
            siginfo_t info{};
            while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED) != 0 && errno == EINTR) {
            }
        });
    } catch (const std::exception&) {
        // There is no thread, or no memory for one. As a rule, a killed child is gone in a moment.
        siginfo_t info{};
        for (int tries = 1000; tries > 0 && info.si_pid == 0; --tries) {
            if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG) != 0) {
                return;
            }
            usleep(1000);
        }
    }
}

/** Ends a child that was not reaped, and what it started: the shell runs a command as a child of
 *  its own, which would work on without it. */
void endCommand(pid_t child) {
    if (lookAt(child).ours) {
        kill(child, SIGKILL);
        kill(-child, SIGKILL);
        reapLater(child);
    }
}

} // namespace

int system_call_timeout(const char* path, char* const* arguments, std::uint32_t minutes) {
    std::uint32_t budget = minutes * tavrisk::secondsPerMinute;
    const pid_t child = tavrisk::ForkGate::fork();
    if (child == 0) {
        performWithTimeout(path, arguments);
    }
    if (child < 0) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: Returning FAILURE\n", timeoutName);
        return -1;
    }
    setpgid(child, child); // The child does so too, and either may be the first to run.
    diag_log(LOG_USER, LOG_DEBUG, "%s: Waiting for Child to exit\n", timeoutName);

    int status = 0;
    pid_t reported = 0;
    do {
        reported = poll(child, status, budget);
        if (reported != 0) {
            break;
        }
        sleep(1);
    } while (--budget != 0); // One of 0 wraps around: no limit.
    diag_log(LOG_USER, LOG_DEBUG, "%s: PID %d - STATUS %x -EXIT STATUS %d\n", timeoutName, reported,
             static_cast<unsigned>(status), WEXITSTATUS(status));

    const Outcome outcome = judge(reported, status, budget);
    if (outcome == Outcome::failureWithKill) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: Killing PID %d\n", timeoutName, child);
    }
    if (outcome != Outcome::failure && reported <= 0) {
        endCommand(child);
    }
    if (outcome == Outcome::success) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: Returning SUCCESS\n", timeoutName);
        return 0;
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s: Returning FAILURE\n", timeoutName);
    return -1;
}

int system_call_wait(const char* path, char* const* arguments) {
    const pid_t child = tavrisk::ForkGate::fork();
    if (child == 0) {
        performWithWait(path, arguments);
    }
    if (child > 0) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: Waiting for Child to exit", waitName);
        int status = 0;
        const pid_t reported = waitpid(child, &status, 0);
        diag_log(LOG_USER, LOG_DEBUG, "%s: PID %d - STATUS %x", waitName, reported,
                 static_cast<unsigned>(status));
        if (reported != -1 && isCleanExit(status)) {
            return 0;
        }
    }
    diag_log(LOG_USER, LOG_WARNING, "%s: Returning FAILURE", waitName);
    return -1;
}

namespace tavrisk {

int runInShell(const char* commandLine, std::uint32_t minutes) {
    constexpr auto shell = "/bin/sh";
    const std::array<const char*, 4> arguments{shell, "-c", commandLine, nullptr};
    // Exec calls take char* and do not write to it.
    return system_call_timeout(shell, const_cast<char* const*>(arguments.data()), minutes);
}

} // namespace tavrisk
