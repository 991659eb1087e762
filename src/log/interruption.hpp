// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

#include <chrono>
#include <ctime>

namespace tavrisk {

/**
 * Ends a system call that a thread is blocked in, by SIGURG: the only signal that the daemon
 * catches. It does nothing but interrupt, and is ignored by default, so that it is harmless to a
 * child that has reset its signals.
 */
void catchInterruptions();

/** `thread` must be alive. */
void interrupt(pthread_t thread);

/** Takes what has been sent to the calling thread and has not arrived: nothing does later. */
void takeInterruptionsOnTheirWay();

/** Interrupts the thread that made it when `first` is over, and from then on after every `next`;
 *  never once it is gone. For threads that nobody else interrupts. */
class Interruptions {
public:
    Interruptions(std::chrono::milliseconds first, std::chrono::milliseconds next);
    ~Interruptions();
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

    /** False when the system has no timer left. */
    [[nodiscard]] bool areSet() const { return set_; }

private:
    timer_t timer_{};
    bool set_ = false;
};

} // namespace tavrisk
