// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string_view>

namespace tavrisk::zelctl {

/** What keeps a command from being done, as a sentence for the user. */
class Problem final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Thrown when whoever read our output has gone: there is nothing left to do, and nothing to say.
 */
class NobodyReads final {};

/** Writes a line to standard output. Raises NobodyReads, or Problem when the output is refused. */
void putLine(std::string_view line);

/** Makes sure that all lines have left. Raises as putLine() does. */
void flushLines();

} // namespace tavrisk::zelctl
