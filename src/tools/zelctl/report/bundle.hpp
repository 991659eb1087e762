// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"
#include "tools/zelctl/report/page.hpp"
#include "tools/zelctl/report/spool.hpp"

#include <string>

namespace tavrisk::tools {

/** Where a bundle goes. */
struct Target {
    std::string path; // temporary files are made beside it
    int descriptor;
};

/** Packs the page and what it is of: entries and health as JSON, the raw files, the debug log, and
 * a list of it all with digests. */
void pack(const Target& target, Spool& page, const Shown& shown, const Log& log,
          const Arguments& arguments);

} // namespace tavrisk::tools
