// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/severity.hpp"
#include "tools/zelctl/report/html.hpp"
#include "tools/zelctl/time_text.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tavrisk::tools {

/** Critical, warning, other. */
using SeverityCounts = std::array<std::int64_t, 3>;

inline std::size_t placeOf(Severity severity) {
    return static_cast<std::size_t>(severity) - 1;
}

std::string countsText(const SeverityCounts& counts);

/** A picture of when entries were made, as inline SVG. */
void putTimeline(Html& html, const std::vector<std::pair<TimePoint, Severity>>& times);

} // namespace tavrisk::tools
