// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tavrisk {

/** What became of data that was to be kept, as the intake's functions return it. */
enum class Kept : int {
    yes = 0,
    failed = -1, // No name, or an exception.
    notOpened = -2,
    notWritten = -3
};

/** Creates or replaces the file with exactly these bytes and gives it mode 0774. `logName` stands
 * in the warnings. */
Kept writeDataFile(const char* logName, const std::string& path,
                   std::span<const std::uint8_t> bytes);

} // namespace tavrisk
