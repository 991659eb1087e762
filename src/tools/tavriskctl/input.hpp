// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** The bytes of the file, or of standard input for "-". Raises Failure when it cannot be read or is
 *  larger than what D-Bus can carry. */
std::vector<std::uint8_t> readInput(const std::string& file);

/** What messages call the file: its name, or "standard input" for "-". */
std::string displayName(const std::string& file);

/** The digest text of the bytes, empty for no bytes. */
std::string digestText(std::span<const std::uint8_t> bytes);

} // namespace tavrisk::tools
