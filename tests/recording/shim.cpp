// SPDX-License-Identifier: Apache-2.0
#include "record.hpp"

#include <systemd/sd-bus.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

// Preloaded into the daemon: a minute passes in 60 ms, the clock can be stopped, and system calls
// fail on demand. Under an emulator, where a command takes its time, a minute has five times that.
// Overrides of C library functions, recorded like the platform's.

namespace {

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int scaled(std::time_t seconds, long nanoseconds) {
    const long factor = std::getenv("MESON_EXE_WRAPPER") != nullptr ? 200 : 1000;
    const timespec shortened{seconds / factor,
                             ((seconds % factor) * 1'000'000'000 + nanoseconds) / factor};
    return next<int (*)(const timespec*, timespec*)>("nanosleep")(&shortened, nullptr);
}

} // namespace

extern "C" {

unsigned sleep(unsigned seconds) {
    const OfAStandIn ours;
    record("sleep " + std::to_string(seconds));
    scaled(seconds, 0);
    return 0;
}

int nanosleep(const timespec* request, timespec*) {
    const OfAStandIn ours;
    record("nanosleep " + std::to_string(request->tv_sec));
    // A test that holds the monitor here lets it go on by a file, which counts once.
    while (access("/run/hold", F_OK) == 0 && unlink("/run/next") != 0) {
        usleep(1'000);
    }
    return scaled(request->tv_sec, request->tv_nsec);
}

std::time_t time(std::time_t* result) {
    const OfAStandIn ours;
    std::time_t now = 0;
    if (!(std::ifstream{"/run/clock"} >> now)) {
        now = next<std::time_t (*)(std::time_t*)>("time")(nullptr);
    }
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) {
    if (const auto code = failure("pthread_create")) {
        return code;
    }
    return next<decltype(&pthread_create)>("pthread_create")(thread, attributes, body, argument);
}

pid_t fork() {
    if (const auto code = failure("fork")) {
        errno = code;
        return -1;
    }
    const auto child = next<decltype(&fork)>("fork")();
    if (child > 0 && failure("late") != 0) {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    }
    return child;
}

int kill(pid_t pid, int signal) {
    const OfAStandIn ours;
    siginfo_t info{};
    const auto child = static_cast<id_t>(std::abs(pid));
    const bool unreaped = waitid(P_PID, child, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
    record((pid < 0 ? "kill group " : "kill ") + std::to_string(signal) +
           (unreaped ? "" : " too late"));
    return next<decltype(&kill)>("kill")(pid, signal);
}

int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot, const char* path,
                             const char* interface, const sd_bus_vtable* vtable, void* context) {
    if (const auto code = failure("sd_bus_add_object_vtable")) {
        return -code;
    }
    return next<decltype(&sd_bus_add_object_vtable)>("sd_bus_add_object_vtable")(
        bus, slot, path, interface, vtable, context);
}
}
