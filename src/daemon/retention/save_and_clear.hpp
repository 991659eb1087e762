// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/**
 * Has the retention script save the data cache and, only when that succeeded, empties the three
 * data directories. Blocks the caller while the commands run and changes the working directory
 * meanwhile.
 *
 * Returns 0 when the save succeeded, whatever happened while clearing, and 1 when it failed. A
 * directory that cannot be entered raises std::filesystem::filesystem_error; what is left to clear
 * is then not cleared, and the working directory stays at the last directory entered.
 */
std::int32_t saveAndClearCache();
