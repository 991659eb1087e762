// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrisk {

/**
 * Keeps `fork` and the diagnostic log apart. A child inherits every lock in the state it had at
 * the moment of the fork, but not the threads that would release it; syslog(3) holds such locks.
 * So a fork waits until no thread is inside the log, and threads that want to log wait until the
 * fork is done. The gate hangs on `pthread_atfork`: whoever forks, passes it.
 *
 * A waiting fork goes first, however busily other threads log.
 */
class ForkGate {
public:
    /** Held while a thread is inside the log. Must not be nested and must not be held by a thread
     *  that forks. */
    class Pass {
    public:
        Pass();
        ~Pass();
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
    };
};

} // namespace tavrisk
