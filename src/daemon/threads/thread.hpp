// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace tavrisk {

/**
 * Runs `body` on a thread of its own that nobody waits for. Raises std::system_error when no thread
 * is to be had, std::bad_alloc when there is no memory for it; `body` is not run then. What leaves
 * `body` as an exception ends the daemon.
 *
 * The stack has a size of its own: by default it would be 8 MiB on one C library, at which
 * thousands of threads want more addresses than a limit may grant, and 128 KiB on another, which is
 * little for a vendor's library.
 */
void startThread(std::function<void()> body);

} // namespace tavrisk
