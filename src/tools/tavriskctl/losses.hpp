// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/output.hpp"

#include <vector>

namespace tavrisk::tools {

/** What the journal tells, as far back as it goes, of events that the daemon has lost: how many,
 *  when the last one, and by what. The daemon says it itself, whoever made the platform's
 *  libraries. Without a journal that the caller may read, that is the fact. */
std::vector<Fact> lossesInJournal();

/** All causes that it may tell. */
std::vector<const char*> lossCauses();

} // namespace tavrisk::tools
