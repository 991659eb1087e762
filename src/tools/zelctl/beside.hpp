// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/reader.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** What lies beside the database. */
struct Beside {
    std::vector<std::string> setAside; // damaged databases that others took the place of
    std::string waitingAt;             // where events wait when the database cannot take them
    std::int64_t waiting = 0;          // how many do
};

Beside lookBeside(const std::string& path);

/** "3: busy 2, no space 1 (1 acknowledged)", or "none". */
std::string lossesText(const std::vector<zel::Loss>& losses);

} // namespace tavrisk::tools
