// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * Writes one diagnostic message to both sinks: the platform debug log and syslog (identity
 * "tavrisk", daemon facility). The text is passed on as it stands: callers write their own prefix
 * and line end. Never fails visibly, keeps nothing between calls, and may be called from every
 * thread and in a child between `fork` and `execve`.
 *
 * `facility` is a syslog facility (8, `LOG_USER`, throughout the daemon), `level` a syslog
 * priority: 2 critical, 4 warning (every failure), 5 notice, 6 informational, 7 debug (progress).
 */
void diag_log(int facility, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
