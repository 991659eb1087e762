// SPDX-License-Identifier: Apache-2.0
#include "log/bounded_syslog.hpp"

#include "log/fork_gate.hpp"
#include "log/futex.hpp"
#include "log/interruption.hpp"
#include "log/syslog_bracket.hpp"

#include <paths.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <new>
#include <system_error>
#include <thread>

namespace tavrisk {
namespace {

namespace bracket = syslog_bracket;
using bracket::Clock;
using namespace std::chrono_literals;

constexpr auto identity = "tavrisk";
constexpr auto watcherName = "tavrisk-syslog";

constexpr auto betweenProbes = 1s;

// The lines that were not written, and those of children, who share this piece of memory.
using Count = std::atomic<std::uint64_t>;
constinit Count unwritten{0};
constinit std::atomic<Count*> unwrittenByChildren{nullptr};

enum class Watcher : std::uint8_t { none, starting, running, leftBehind };
constinit std::atomic<Watcher> watcher{Watcher::none};
constinit thread_local bool isWatcher = false;

bool isChild() {
    return watcher.load(std::memory_order_relaxed) == Watcher::leftBehind;
}

void countUnwritten() {
    auto* const children = unwrittenByChildren.load();
    (isChild() && children != nullptr ? *children : unwritten).fetch_add(1);
}

/** A child leaves it to the daemon to tell. */
bool mayTellUnwritten() {
    const auto* const children = unwrittenByChildren.load(std::memory_order_acquire);
    const bool any = unwritten.load(std::memory_order_relaxed) != 0 ||
                     (children != nullptr && children->load(std::memory_order_relaxed) != 0);
    return any && !isChild() && !bracket::isClosed();
}

std::uint64_t takeUnwritten() {
    auto* const children = unwrittenByChildren.load();
    return unwritten.exchange(0) + (children != nullptr ? children->exchange(0) : 0);
}

/** Whether syslog would take a line right now. Asks without sending anything, and does not wait. */
bool takesALine() {
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) {
        return false;
    }
    constexpr sockaddr_un address{AF_UNIX, _PATH_LOG};
    bool takes = false;
    if (connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        pollfd room{.fd = probe, .events = POLLOUT, .revents = 0};
        takes = poll(&room, 1, 0) == 1 && (room.revents & POLLOUT) != 0;
    } else {
        takes = errno == EPROTOTYPE; // A stream. How full that is does not show.
    }
    ::close(probe);
    return takes;
}

// Of the one who is inside the bracket.
constinit Clock::duration timeLost{0};
constinit Clock::time_point timeLostUntil{};

/** Whether syslog reads so slowly that waiting for it takes more than a fifth of the time, and has
 *  taken 200 ms: not when it was this process that did not get to run. */
bool isTooSlow(Clock::duration lasted) {
    constexpr auto slow = 5ms;
    constexpr int share = 5;
    if (lasted < slow) {
        return false;
    }
    const auto now = Clock::now();
    const auto regained = (now - lasted - timeLostUntil) / share;
    timeLost = std::max(timeLost - regained, Clock::duration::zero()) + lasted;
    timeLostUntil = now;
    if (timeLost < bracket::longestVisit) {
        return false;
    }
    timeLost = Clock::duration::zero();
    return !takesALine();
}

/** glibc closes, opens and sends once more after a send that was interrupted. */
bool wasGivenUp(Clock::duration lasted, int error) {
#ifdef __GLIBC__
    return error == EINTR && lasted >= bracket::longestVisit + bracket::betweenInterruptions;
#else
    return error == EINTR && lasted >= bracket::longestVisit;
#endif
}

bool isWatched();

/** False when the line was not written. */
__attribute__((format(printf, 3, 0))) bool attempt(int facility, int level, const char* format,
                                                   std::va_list arguments) {
    const int errorOfCaller = errno;
    const bracket::Visit visit{isWatched()};
    if (!visit.isInside() || (!visit.isLimited() && !takesALine())) {
        return false;
    }
    errno = errorOfCaller; // For a format with "%m".
    // Opened and closed around every message: a syslog daemon that was restarted is found again.
    openlog(identity, LOG_PID | LOG_NOWAIT, facility | LOG_DAEMON);
    vsyslog(level, format, arguments);
    const int error = errno;
    closelog();

    const auto lasted = visit.lasted();
    const bool written = !wasGivenUp(lasted, error);
    if (!written || isTooSlow(lasted)) {
        bracket::close();
    }
    return written;
}

__attribute__((format(printf, 3, 4))) bool attempt(int facility, int level, const char* format,
                                                   ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const bool written = attempt(facility, level, format, arguments);
    va_end(arguments);
    return written;
}

/** Only in syslog: the debug log has the lines. */
void tellUnwritten() {
    const auto lines = takeUnwritten();
    if (lines != 0 &&
        !attempt(LOG_USER, LOG_WARNING, "%s: syslog did not read, lines not written: %ju",
                 "diag_log", static_cast<std::uintmax_t>(lines))) {
        unwritten.fetch_add(lines);
    }
}

void probe() {
    if (takesALine()) {
        const ForkGate::Pass pass;
        bracket::open();
        tellUnwritten();
    }
}

void sleepFor(Clock::duration time) {
    FutexWord nobodyWakes{0};
    futexWait(nobodyWakes, 0, time);
}

/** Interrupts whoever hangs, and looks whether a syslog that did not read does so again. */
[[noreturn]] void watch() {
    isWatcher = true;
    pthread_setname_np(pthread_self(), watcherName);
    for (std::uint32_t seen = 0;;) {
        if (bracket::interruptOverdueVisit()) {
            sleepFor(bracket::betweenInterruptions);
        } else if (bracket::isClosed()) {
            sleepFor(betweenProbes);
            probe();
        } else if (!bracket::sleepUntilNextVisit(seen)) {
            sleepFor(bracket::timeLeft());
        }
    }
}

void shareCountWithChildren() {
    if (unwrittenByChildren.load() == nullptr) {
        void* const memory =
            mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory != MAP_FAILED) {
            unwrittenByChildren.store(new (memory) Count{0});
        }
    }
}

/** Starts the watching thread with the first line. When it cannot be started, lines have a timer
 *  each, and the next one tries again. */
bool isWatched() {
    if (watcher.load() == Watcher::running) {
        return !isWatcher;
    }
    auto none = Watcher::none;
    if (!watcher.compare_exchange_strong(none, Watcher::starting)) {
        return false;
    }
    catchInterruptions();
    shareCountWithChildren();
    try {
        std::thread{watch}.detach();
    } catch (const std::exception&) {
        watcher.store(Watcher::none);
        return false;
    }
    watcher.store(Watcher::running);
    return true;
}

} // namespace

void writeToSyslog(int facility, int level, const char* format, std::va_list arguments) {
    if (mayTellUnwritten()) {
        tellUnwritten();
    }
    if (!attempt(facility, level, format, arguments)) {
        countUnwritten();
    }
}

void syslogAfterFork() {
    watcher.store(Watcher::leftBehind);
    bracket::afterFork();
}

} // namespace tavrisk
