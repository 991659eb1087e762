// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <ctime>

namespace tavrisk {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == sizeof(std::uint32_t) && FutexWord::is_always_lock_free);

/** Sleeps while `word` has that value, until it is woken or `longest` is over; returns early now
 *  and then. Unlike the waits of the standard library it knows a limit. */
inline void futexWait(FutexWord& word, std::uint32_t value, std::chrono::nanoseconds longest) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(longest);
    const timespec timeout{.tv_sec = seconds.count(), .tv_nsec = (longest - seconds).count()};
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, &timeout, nullptr, 0);
}

inline void futexWait(FutexWord& word, std::uint32_t value) {
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

inline void futexWakeOne(FutexWord& word) {
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace tavrisk
