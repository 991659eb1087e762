// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrisk::zel {

/** Tells the system log, as critical, what an operator has to know. A system log that does not take
 *  the line at once does not get it: nobody is held up. */
void notice(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

} // namespace tavrisk::zel
