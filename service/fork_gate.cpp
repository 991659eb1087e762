// SPDX-License-Identifier: Apache-2.0
#include "service/fork_gate.hpp"

#include <pthread.h>

#include <atomic>
#include <mutex>

namespace tavrisk {
namespace {

// Constant-initialised: the log may be used before and after every other static object's life.
constinit std::mutex oneForkAtATime;
constinit std::atomic<int> threadsInside{0};
constinit std::atomic<int> forkPending{0};

void beforeFork() {
    oneForkAtATime.lock();
    forkPending.store(1);
    for (int inside = threadsInside.load(); inside != 0; inside = threadsInside.load()) {
        threadsInside.wait(inside);
    }
}

void afterForkInParent() {
    forkPending.store(0);
    forkPending.notify_all();
    oneForkAtATime.unlock();
}

// The child has one thread and nobody to wake.
void afterForkInChild() {
    forkPending.store(0);
    oneForkAtATime.unlock();
}

[[maybe_unused]] const int registered =
    pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);

void leave() {
    if (threadsInside.fetch_sub(1) == 1 && forkPending.load() != 0) {
        threadsInside.notify_all();
    }
}

} // namespace

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

} // namespace tavrisk
