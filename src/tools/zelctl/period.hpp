// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/time_text.hpp"

#include <chrono>

namespace tavrisk::tools {

/** The shortest round period of which fewer than `most` make up `span`. */
std::chrono::seconds roundPeriod(std::chrono::milliseconds span, int most);

/** The last round reading of the clock up to this one; weeks begin on Mondays. */
TimePoint roundDown(TimePoint reading, std::chrono::seconds period);

} // namespace tavrisk::tools
