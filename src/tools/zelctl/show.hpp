// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/options.hpp"

namespace tavrisk::zelctl {

/** Prints one entry with all there is to know of it. Raises Problem when there is no such entry. */
void show(const LogReader* reader, const Options& options);

} // namespace tavrisk::zelctl
