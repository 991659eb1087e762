// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/options.hpp"

#include <string>

namespace tavrisk::zelctl {

/** Prints entries as they come, until it has printed as many as asked for, the filter's time is
 *  over, or nobody reads any more. Waits for a log that is not there yet. */
void follow(const std::string& path, const Options& options);

} // namespace tavrisk::zelctl
