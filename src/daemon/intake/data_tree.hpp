// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tavrisk {

/**
 * Creates or replaces the file with exactly these bytes and gives it mode 0774. `logName` stands in
 * the warnings.
 *
 * Returns 0 when written, -1 for an exception, -2 when the file could not be opened and -3 when the
 * write failed.
 */
int writeDataFile(const char* logName, const std::string& path,
                  std::span<const std::uint8_t> bytes);

} // namespace tavrisk
