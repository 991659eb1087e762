// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrisk {

/**
 * The road of a child from `fork` to `execve`. Other threads of the daemon may have held any lock
 * at the moment of the fork, so there is nothing on it but system calls and the diagnostic log,
 * which is made for that.
 */

/**
 * First thing in the child: sets every signal to its default and unblocks all, makes the child
 * leader of a process group of its own, and has SIGALRM end it should it not get to the end of its
 * road: the debug-log library or the C library's time zone code could, called by another library
 * behind the back of the log, hold a lock. A child that waits for ever would be ended at the end
 * of its budget and count as a command that did its work.
 */
void enterChild();

/** Becomes the command, with the fixed environment and none of the daemon's descriptors. Returns
 *  only when it could not: `execve`'s result, with `errno` set. */
int becomeCommand(const char* path, char* const* arguments);

} // namespace tavrisk
