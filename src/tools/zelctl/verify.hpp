// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/options.hpp"

#include <string>

namespace tavrisk::zelctl {

/** Checks the database at `path` and prints what it finds; true when all is well. `missing` says
 *  that there is none yet, which is well. */
bool verify(const std::string& path, bool missing, const Options& options);

} // namespace tavrisk::zelctl
