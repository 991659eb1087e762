// SPDX-License-Identifier: Apache-2.0
#include "tests/recording/record.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <string>

// Preloaded into the retention program: the time that it has is over at once, system calls fail on
// demand, and commands run in the middle of it.

namespace {

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/** True when the call is to fail, with errno set. Runs what /run/at has for the call first, once.
 */
bool fails(const char* call) {
    const auto commands = std::string{"/run/at/"} + call;
    const auto now = commands + ".now";
    if (::rename(commands.c_str(), now.c_str()) == 0) {
        unsetenv("LD_PRELOAD");
        [[maybe_unused]] const int status = std::system(("sh " + now).c_str());
    }
    errno = failure(call);
    return errno != 0;
}

} // namespace

extern "C" {

int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* timeout) {
    const timespec shortened{0, 300'000'000};
    return next<decltype(&sigtimedwait)>("sigtimedwait")(
        set, info, failure("sigtimedwait") != 0 ? &shortened : timeout);
}

int kill(pid_t pid, int signal) {
    return fails("kill") ? 0 : next<decltype(&kill)>("kill")(pid, signal);
}

int syncfs(int file) {
    if (!fails("syncfs")) {
        return next<decltype(&syncfs)>("syncfs")(file);
    }
    while (errno == EINPROGRESS && failure("syncfs") != 0) {
        usleep(10'000); // A device that hangs.
    }
    return -1;
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if ((flags & O_TMPFILE) == O_TMPFILE && fails("O_TMPFILE")) {
        return -1;
    }
    return next<decltype(&openat)>("openat")(directory, path, flags, mode);
}

int renameat(int from, const char* name, int to, const char* newName) {
    return fails("renameat") ? -1 : next<decltype(&renameat)>("renameat")(from, name, to, newName);
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t at) {
    return fails("pwrite") ? -1 : next<decltype(&pwrite)>("pwrite")(file, bytes, count, at);
}
}
