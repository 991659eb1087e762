// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <syslog.h> // The facility and the levels, for callers.

/**
 * Writes one diagnostic message to both sinks: the platform debug log and syslog (identity
 * "tavrisk", daemon facility). The text is passed on as it stands: callers write their own prefix
 * and line end. Never fails visibly, keeps nothing between calls, and may be called from every
 * thread and in a child between `fork` and `execve`.
 *
 * `facility` and `level` are those of <syslog.h>: throughout the daemon LOG_USER, with LOG_WARNING
 * for every failure and LOG_DEBUG for progress; few lines have another level.
 */
void diag_log(int facility, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
