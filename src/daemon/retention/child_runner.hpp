// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/**
 * Run a command as a child process with a fixed environment of four entries, all signals at their
 * default and none of the daemon's descriptors. `path` and `arguments` (null-terminated, at least
 * two after the name) are those of `execve`.
 *
 * system_call_timeout() polls the child once a second and ends it, with all that it started and
 * that stayed in its process group, after `minutes` of such polls; this counts as success. With 0
 * minutes it waits without limit. system_call_wait() waits until the child ends.
 *
 * Both return 0 for success and -1 for failure: no child, a non-zero exit code, or a signal.
 */
int system_call_timeout(const char* path, char* const* arguments, std::uint32_t minutes);
int system_call_wait(const char* path, char* const* arguments);

namespace tavrisk {

constexpr std::uint32_t secondsPerMinute = 60;

/** Has the shell run the command line, within `minutes`. Results of system_call_timeout(). */
int runInShell(const char* commandLine, std::uint32_t minutes);

} // namespace tavrisk
