// SPDX-License-Identifier: Apache-2.0
#include "daemon/service/spare_memory.hpp"

#include "daemon/threads/thread.hpp"

#ifdef __GLIBC__
#include <malloc.h>
#include <unistd.h>
#endif

#include <chrono>
#include <exception>
#include <mutex>

namespace tavrisk {

#ifdef __GLIBC__
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t large = 65'536;
constexpr std::chrono::seconds quiet{2};

constinit std::mutex mutex;
bool waiting = false; // A thread is there that will trim.
Clock::time_point latestLargeCall;

/** How long is still to be waited; when that is nothing, nobody waits any more. */
Clock::duration timeLeft() {
    const std::lock_guard lock{mutex};
    const auto left = latestLargeCall + quiet - Clock::now();
    waiting = left.count() > 0;
    return left;
}

void waitAndTrim() {
    for (auto left = timeLeft(); left.count() > 0; left = timeLeft()) {
        usleep(static_cast<useconds_t>(duration_cast<std::chrono::microseconds>(left).count()) + 1);
    }
    malloc_trim(0);
}

} // namespace

// The bus loop waits for messages without a time-out: it takes another thread to notice that none
// come.
void giveBackMemoryAfter(std::size_t bytes) noexcept {
    if (bytes < large) {
        return;
    }
    const std::lock_guard lock{mutex};
    latestLargeCall = Clock::now();
    if (!waiting) {
        try {
            startThread(waitAndTrim);
            waiting = true;
        } catch (const std::exception&) {
            // The next large call tries again.
        }
    }
}
#else
// Other C libraries give back by themselves.
void giveBackMemoryAfter(std::size_t /*bytes*/) noexcept {}
#endif

} // namespace tavrisk
