// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"
#include "tools/zelctl/options.hpp"

#include <string>

namespace tavrisk::zelctl {

/** Prints the health of the log, then what its entries are like. Without a reader, there is no
 *  database yet. */
void printStats(const std::string& path, const LogReader* reader, const Options& options);

} // namespace tavrisk::zelctl
