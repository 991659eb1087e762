// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace tavrisk {

/**
 * Keeps `fork` and the diagnostic log apart. A child inherits every lock in the state it had at
 * the moment of the fork, but not the threads that would release it; syslog(3) and the debug-log
 * library hold such locks. So a fork waits until no thread is inside the log, and threads that want
 * to log wait until the fork is done.
 *
 * A waiting fork goes first, however busily other threads log. It waits for five seconds at most: a
 * thread that hangs in a sink for longer costs a child that may hang there too, and is ended by its
 * alarm, but not the daemon.
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

    /**
     * fork(2) while the log is quiet: the child may log.
     *
     * The gate is not hung on `pthread_atfork`: a library that registers handlers of its own at
     * its first use would have them run before ours, and could then hold a lock for which a thread
     * waits inside the log, while the fork waits for that thread.
     */
    static pid_t fork();
};

} // namespace tavrisk
