// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace tavrisk::text {

/** The two lower-case hexadecimal digits of a byte, as an array: some callers may take no memory.
 */
constexpr std::array<char, 2> hexPair(std::uint8_t byte) {
    constexpr std::string_view digits{"0123456789abcdef"};
    return {digits[byte >> 4U], digits[byte & 0xfU]};
}

} // namespace tavrisk::text
