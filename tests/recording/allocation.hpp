// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

/** What a test and the daemon's allocator share, mapped from a file. */
struct AllocationControl {
    static constexpr auto path = "/run/fail/allocation";
    /** Allocations until one fails, that one included; none fails from 0 on. */
    std::atomic<int> left;
};

/** While an instance lives the thread's allocations are not the daemon's, but those of what stands
 *  in for a library or the C library. */
class OfAStandIn {
public:
    OfAStandIn() { count(1); }
    ~OfAStandIn() { count(-1); }
    OfAStandIn(const OfAStandIn&) = delete;
    OfAStandIn& operator=(const OfAStandIn&) = delete;

private:
    static void count(int change);
};

/** The allocator's, if it is preloaded. */
extern "C" __attribute__((weak)) void standInsOnThread(int change);

inline void OfAStandIn::count(int change) {
    if (standInsOnThread != nullptr) {
        standInsOnThread(change);
    }
}
