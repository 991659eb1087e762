// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrisk::retention {

/** What became of work that was given to a child. */
struct Ending {
    enum class Kind { exited, killed, late, notStarted };
    Kind kind;
    int value; // The exit status, the signal, or errno.
};

/**
 * Has a child do the work; its result is the child's exit status. A child that takes longer than
 * that many seconds is killed and not waited for: in a call to a slow device it dies when that
 * comes back. The child does not outlive its parent.
 */
Ending withinTime(int seconds, int (*work)());

} // namespace tavrisk::retention
