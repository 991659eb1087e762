// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/**
 * Keeps the bytes as /var/run/hmc/dump/ + `validationString`, mode 0774. The name is used as it
 * stands, and the buffer is not checked against it.
 *
 * Returns 0 when written, -1 for an empty name, -2 when the file could not be opened and -3 when
 * the write failed.
 */
int SaveData(const std::string& validationString, const std::vector<std::uint8_t>& logDataBuffer);

namespace tavrisk {

/** What became of data that was to be kept; the numbers are what the intake's functions return. */
enum class Kept : int {
    yes = 0,
    failed = -1, // No name, or no worker.
    notOpened = -2,
    notWritten = -3
};

/** Creates or replaces the file with exactly these bytes and gives it mode 0774. `logName` stands
 *  in the warnings. */
Kept writeDataFile(const char* logName, const std::string& path,
                   std::span<const std::uint8_t> bytes) noexcept;

} // namespace tavrisk
