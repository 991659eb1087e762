// SPDX-License-Identifier: Apache-2.0
#include "log/fork_gate.hpp"

#include "log/bounded_syslog.hpp"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>

namespace tavrisk {
namespace {

// Constant-initialised: the log may be used before and after every other static object's life.
constinit std::mutex oneForkAtATime;
constinit std::atomic<int> threadsInside{0};
constinit std::atomic<int> forkPending{0};

// A message takes microseconds; one that takes longer hangs in a sink. Then threads that want to
// log, the bus thread among them, must not wait for it as well.
constexpr std::chrono::seconds patience{5};

void waitUntilQuiet() {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (threadsInside.load() != 0 && std::chrono::steady_clock::now() < deadline) {
        usleep(1000);
    }
}

} // namespace

// A thread first counts itself in and then looks for a fork; a fork first announces itself and then
// looks for threads. With sequentially consistent atomics one of the two sees the other.
ForkGate::Pass::Pass() {
    for (;;) {
        forkPending.wait(1);
        threadsInside.fetch_add(1);
        if (forkPending.load() == 0) {
            return;
        }
        threadsInside.fetch_sub(1);
    }
}

ForkGate::Pass::~Pass() {
    threadsInside.fetch_sub(1);
}

pid_t ForkGate::fork() {
    const std::lock_guard lock{oneForkAtATime};
    forkPending.store(1);
    waitUntilQuiet();
    const pid_t child = ::fork();
    if (child == 0) {
        // No thread that has counted itself in is in the child.
        threadsInside.store(0);
        syslogAfterFork();
    }
    forkPending.store(0);
    forkPending.notify_all();
    return child;
}

} // namespace tavrisk
