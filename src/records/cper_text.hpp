// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/** The bytes as lower-case hexadecimal digits, two for each, without separators. */
std::string bytesToHex(const std::uint8_t* bytes, std::size_t count);

/**
 * The written form of a GUID whose 16 bytes, in the order in which a record stores them, are given
 * as 32 hexadecimal digits. The first three fields are stored little-endian and are turned round.
 * Missing digits read as zeros, further ones are not used.
 */
std::string hexToGuidText(const std::string& hex);

/**
 * A CPER timestamp (8 bytes, BCD) as MM_DD_CCYY_hhmmss. The flags in its fourth byte are not shown.
 * Missing bytes read as zeros, further ones are not used.
 */
std::string cperTimestampText(const std::uint8_t* bytes, std::size_t count);
