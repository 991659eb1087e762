// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/**
 * Run a command as a child process with a fixed environment of four entries and all signal
 * dispositions reset. `path` and `arguments` (null-terminated) are those of `execve`.
 *
 * system_call_timeout() polls the child once a second and ends it with SIGKILL after `minutes` of
 * such polls, which counts as success; with 0 it waits without limit. system_call_wait() waits
 * until the child ends.
 *
 * Both return 0 for success and -1 for failure: no child, a non-zero exit code, or a signal.
 */
int system_call_timeout(const char* path, char* const arguments[], std::uint32_t minutes);
int system_call_wait(const char* path, char* const arguments[]);
