// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log_reader.hpp"

#include <string>
#include <vector>

namespace tavrisk::zelctl {

/**
 * The data files that an entry came from, the one closest in time first: those kept about when the
 * entry was made that the daemon would make the same entry of. Usually one; several when the same
 * was reported more than once in a few seconds; none when they are no longer there, or may not be
 * read.
 */
std::vector<std::string> findRawFiles(const LogEntry& entry);

} // namespace tavrisk::zelctl
