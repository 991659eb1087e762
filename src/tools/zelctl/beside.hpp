// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/reader.hpp"
#include "zel/spill.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** What lies beside the database. */
struct Beside {
    std::vector<std::string> setAside; // damaged databases that others took the place of
    std::string waitingAt;             // where events wait when the database cannot take them
    zel::Waiting waiting;
};

Beside lookBeside(const std::string& path);

/** The losses that a database knows of, with those that wait until it can be told of them. For each
 *  to be there once, `beside` was looked at before the database. */
std::vector<zel::Loss> allLosses(std::vector<zel::Loss> losses, std::int64_t spillMark,
                                 const Beside& beside);

/** "3: busy 2, no space 1 (1 acknowledged)", or "none". */
std::string lossesText(const std::vector<zel::Loss>& losses);

} // namespace tavrisk::tools
