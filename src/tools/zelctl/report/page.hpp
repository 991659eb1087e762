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
    std::int64_t newest = INT64_MAX;  // entries that came later are not looked at
    std::set<std::string> rawFiles{}; // of the entries that it shows
    std::string unreadable{};         // where there may be more of them, and why
    std::string problem{};            // why the log could not be read, or not all of it
};

/** Writes a page of the entries that are asked for; of a log that cannot be read, what is known of
 *  it. Raises Failure for one that is not there. */
Shown putPage(Html& html, const Log& log, const Arguments& arguments);

} // namespace tavrisk::tools
