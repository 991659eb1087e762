// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "log/interruption.hpp"

#include <chrono>
#include <cstdint>
#include <optional>

/**
 * The bracket around the C library's syslog calls. One thread at a time is inside; the library
 * would let the others wait for a lock of its own, and for as long as it takes.
 *
 * Whoever has been inside for too long is interrupted, again and again until it is out, and nobody
 * waits for it any more. No interruption reaches a thread outside, where it would cut a sleep or a
 * wait for the bus short.
 */
namespace tavrisk::syslog_bracket {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds longestVisit{200};
constexpr std::chrono::milliseconds betweenInterruptions{20};

/** A thread's time inside. */
class Visit {
public:
    /** Waits for its turn while those before it get on. `watched`: somebody calls
     *  interruptOverdueVisit(); else the visit interrupts itself. */
    explicit Visit(bool watched);
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    /** False when the bracket is closed, or somebody has been inside for too long. */
    [[nodiscard]] bool isInside() const { return inside_; }
    [[nodiscard]] bool isLimited() const { return !own_ || own_->areSet(); }
    [[nodiscard]] Clock::duration lasted() const { return Clock::now() - began_; }

private:
    bool inside_ = false;
    Clock::time_point began_;
    std::optional<Interruptions> own_;
};

/** Lets nobody in, and those go who wait. Called from inside. */
void close();
void open();
bool isClosed();

/** How long the one inside still has, and longestVisit when there is none; not less than zero. */
Clock::duration timeLeft();

/** Of the watching thread. True when there was one to interrupt. */
bool interruptOverdueVisit();
/** Sleeps until there are visits that it has not seen. `seen` counts the visits that it has; false
 *  when there was one since, or one is inside. */
bool sleepUntilNextVisit(std::uint32_t& seen);

/** In a child that has just been forked, whose threads are gone. If one was inside, the C library's
 *  lock is held for ever, and the bracket closed as well. */
void afterFork();

} // namespace tavrisk::syslog_bracket
