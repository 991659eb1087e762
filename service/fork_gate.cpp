// SPDX-License-Identifier: Apache-2.0
#include "service/fork_gate.hpp"

#include <unistd.h>

#include <atomic>
#include <mutex>

namespace tavrisk {
namespace {

// Constant-initialised: the log may be used before and after every other static object's life.
constinit std::mutex oneForkAtATime;
constinit std::atomic<int> threadsInside{0};
constinit std::atomic<int> forkPending{0};

void leave() {
    if (threadsInside.fetch_sub(1) == 1 && forkPending.load() != 0) {
        threadsInside.notify_all();
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
        leave();
    }
}

ForkGate::Pass::~Pass() {
    leave();
}

pid_t ForkGate::fork() {
    const std::lock_guard lock{oneForkAtATime};
    forkPending.store(1);
    for (int inside = threadsInside.load(); inside != 0; inside = threadsInside.load()) {
        threadsInside.wait(inside);
    }

    const pid_t child = ::fork();
    if (child == 0) {
        // A thread that counted itself in and was just about to step back is not in the child.
        threadsInside.store(0);
    }
    forkPending.store(0);
    forkPending.notify_all();
    return child;
}

} // namespace tavrisk
