// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrisk::tools {

struct LostEvents {
    std::string cause;
    std::int64_t events;
};

/** What the daemon has said since this boot of events that it lost, as far as the journal has it,
 *  whatever library has the event log. Nothing when there is no journal, or none for this user. */
std::optional<std::vector<LostEvents>> lossesInJournal();

} // namespace tavrisk::tools
