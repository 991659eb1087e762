// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/options.hpp"

namespace tavrisk::zelctl {

/** Prints the entries that the options ask for. Without a reader, there is no database yet. */
void list(const LogReader* reader, const Options& options);

} // namespace tavrisk::zelctl
