// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tavrisk::platform {

/**
 * Appends one line, its line end included, to the debug log with a single write. A file that the
 * line would take past its size limit is first renamed to the same name with ".1", in place of the
 * one that has it; the two together never hold much more than twice the limit. Does nothing when
 * the file cannot be opened or written.
 *
 * Any number of threads and processes may append at once, a child between `fork` and `execve`
 * included: every call opens the file for itself and none waits for another.
 */
void appendToDebugLog(std::string_view line) noexcept;

} // namespace tavrisk::platform
