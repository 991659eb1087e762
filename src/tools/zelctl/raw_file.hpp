// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"

#include <chrono>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** The data files that an entry came from, as far as can be told. */
struct RawFiles {
    /** Usually one; several when the same was reported more than once in that second. */
    std::vector<std::string> paths;
    /** How long before the entry they were kept. A submission takes milliseconds: after more than a
     *  second they may be those of another report, whose file is the only one left. */
    std::chrono::seconds delay{0};
    /** Where could not be looked, and why; empty when all places could. */
    std::string unreadable;

    [[nodiscard]] bool isGuess() const { return delay > std::chrono::seconds{1}; }
};

/** Those files kept last before the entry was made that the daemon would make the same entry of:
 *  of the data tree, or else of what SaveAndClearCache has saved of it. */
RawFiles findRawFiles(const LogEntry& entry);

} // namespace tavrisk::tools
