// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>

namespace tavrisk {

/**
 * Writes a message to syslog, under the identity "tavrisk", on the calling thread and before it
 * returns, unless syslog does not read: then the message is not written, but counted. The first
 * thread that meets with that waits for 200 ms, the others no longer; from then on nobody waits
 * until syslog reads again. A line of its own then says how many messages are missing.
 *
 * May be called from every thread, within a ForkGate::Pass, and in a child between `fork` and
 * `execve`.
 */
void writeToSyslog(int facility, int level, const char* format, std::va_list arguments)
    __attribute__((format(printf, 3, 0)));

/** First thing in a child: what nobody takes care of there is put in order. */
void syslogAfterFork();

} // namespace tavrisk
