// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"
#include "tools/zelctl/report/html.hpp"

#include <cstdint>
#include <set>
#include <string>

namespace tavrisk::tools {

/** What a page is of. */
struct Shown {
    std::int64_t newest = 0;          // entries that came later are not looked at
    std::set<std::string> rawFiles{}; // of the entries that it shows
};

/** Writes a page of the entries that are asked for. */
Shown putPage(Html& html, const Log& log, const Arguments& arguments);

} // namespace tavrisk::tools
