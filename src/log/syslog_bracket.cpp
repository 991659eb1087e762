// SPDX-License-Identifier: Apache-2.0
#include "log/syslog_bracket.hpp"

#include "log/futex.hpp"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>

namespace tavrisk::syslog_bracket {
namespace {

// Constant-initialised, like everything here: the log may be used before and after every other
// static object's life.
enum Turn : std::uint32_t { nobodys, somebodys, somebodysAndOthersWait };
constinit FutexWord turn{nobodys};
constinit std::atomic<bool> closed{false};

// Who is inside, for the others and for the thread that watches.
enum class Visitor : std::uint8_t { nobody, thread, threadBeingInterrupted };
constinit std::atomic<Visitor> visitor{Visitor::nobody};
constinit std::atomic<pthread_t> visitingThread{};
constinit std::atomic<Clock::rep> leavesUntil{0};
constinit std::atomic<std::uint32_t> visits{0};
constinit FutexWord watcherSleeps{0};

bool takeTurn() {
    auto before = std::uint32_t{nobodys};
    if (turn.compare_exchange_strong(before, somebodys)) {
        return true;
    }
    while (turn.exchange(somebodysAndOthersWait) != nobodys) {
        const auto left = timeLeft();
        if (closed.load() || left == Clock::duration::zero()) {
            futexWakeOne(turn); // In case it was this thread that was woken for the next turn.
            return false;
        }
        futexWait(turn, somebodysAndOthersWait, left);
    }
    return true;
}

void passTurn() {
    if (turn.exchange(nobodys) == somebodysAndOthersWait) {
        futexWakeOne(turn);
    }
}

// A visitor first counts itself in and then looks whether the watcher sleeps; the watcher first
// says that it sleeps and then looks at the count. With sequentially consistent atomics one of the
// two sees the other.
void showItselfToWatcher() {
    visitingThread.store(pthread_self(), std::memory_order_relaxed);
    visitor.store(Visitor::thread);
    visits.fetch_add(1);
    if (watcherSleeps.load() != 0 && watcherSleeps.exchange(0) != 0) {
        futexWakeOne(watcherSleeps);
    }
}

/** Returns when nobody interrupts this thread any more. */
void hideFromWatcher() {
    for (auto expected = Visitor::thread; !visitor.compare_exchange_weak(expected, Visitor::nobody);
         expected = Visitor::thread) {
        sched_yield();
    }
}

} // namespace

Visit::Visit(bool watched) : inside_{takeTurn()} {
    if (!inside_) {
        return;
    }
    if (closed.load()) {
        passTurn();
        inside_ = false;
        return;
    }
    began_ = Clock::now();
    leavesUntil.store((began_ + longestVisit).time_since_epoch().count());
    if (watched) {
        showItselfToWatcher();
    } else {
        own_.emplace(longestVisit, betweenInterruptions);
    }
}

Visit::~Visit() {
    if (!inside_) {
        return;
    }
    if (!own_) {
        hideFromWatcher();
        if (lasted() >= longestVisit) {
            takeInterruptionsOnTheirWay();
        }
    }
    own_.reset();
    leavesUntil.store(0);
    passTurn();
}

void close() {
    closed.store(true);
}

void open() {
    closed.store(false);
}

bool isClosed() {
    return closed.load();
}

Clock::duration timeLeft() {
    const auto until = leavesUntil.load();
    return until == 0 ? longestVisit
                      : std::max(Clock::time_point{Clock::duration{until}} - Clock::now(),
                                 Clock::duration::zero());
}

bool interruptOverdueVisit() {
    auto expected = Visitor::thread;
    if (timeLeft() != Clock::duration::zero() ||
        !visitor.compare_exchange_strong(expected, Visitor::threadBeingInterrupted)) {
        return false;
    }
    // It cannot leave now. It may be another than a moment ago.
    const bool overdue = timeLeft() == Clock::duration::zero();
    if (overdue) {
        interrupt(visitingThread.load(std::memory_order_relaxed));
    }
    visitor.store(Visitor::thread);
    return overdue;
}

bool sleepUntilNextVisit(std::uint32_t& seen) {
    watcherSleeps.store(1);
    const auto before = seen;
    seen = visits.load();
    const bool quiet = seen == before && visitor.load() == Visitor::nobody && !isClosed();
    if (quiet) {
        futexWait(watcherSleeps, 1);
    }
    watcherSleeps.store(0);
    return quiet;
}

void afterFork() {
    if (turn.load() != nobodys) {
        close();
    }
    turn.store(nobodys);
    visitor.store(Visitor::nobody);
    leavesUntil.store(0);
}

} // namespace tavrisk::syslog_bracket
