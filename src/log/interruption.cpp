// SPDX-License-Identifier: Apache-2.0
#include "log/interruption.hpp"

#include <unistd.h>

#include <csignal>

// Older headers of the C library know the member by its inner name only.
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace tavrisk {
namespace {

constexpr int interruption = SIGURG;

sigset_t onlyInterruption() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, interruption);
    return set;
}

timespec asTimespec(std::chrono::milliseconds time) {
    constexpr long perSecond = 1000;
    constexpr long nanoseconds = 1'000'000;
    return {.tv_sec = time.count() / perSecond, .tv_nsec = time.count() % perSecond * nanoseconds};
}

} // namespace

void catchInterruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) {}; // Without SA_RESTART: the call is not taken up again.
    sigaction(interruption, &action, nullptr);
    const auto set = onlyInterruption();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void interrupt(pthread_t thread) {
    pthread_kill(thread, interruption);
}

void takeInterruptionsOnTheirWay() {
    const auto set = onlyInterruption();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &set, &before);
    const timespec noTime{};
    while (sigtimedwait(&set, nullptr, &noTime) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Interruptions::Interruptions(std::chrono::milliseconds first, std::chrono::milliseconds next) {
    catchInterruptions(); // Here as well: a child has reset its signals.
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = interruption;
    event.sigev_notify_thread_id = gettid();
    const itimerspec times{.it_interval = asTimespec(next), .it_value = asTimespec(first)};
    set_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
    if (set_) {
        timer_settime(timer_, 0, &times, nullptr);
    }
}

Interruptions::~Interruptions() {
    if (set_) {
        timer_delete(timer_);
        takeInterruptionsOnTheirWay();
    }
}

} // namespace tavrisk
