// SPDX-License-Identifier: Apache-2.0
#include "records/cper_text.hpp"

#include "text/hex.hpp"

#include <string_view>

namespace {

/** Replaces every letter of `form` by the two-digit pair that it stands for, 'a' for the first; all
 *  else stays as it is. */
std::string arrange(std::string_view form, std::string hex) {
    constexpr std::string_view pairs = "abcdefghijklmnop";
    hex.resize(2 * pairs.size(), '0');

    std::string text;
    for (const char place : form) {
        const auto pair = pairs.find(place);
        if (pair == std::string_view::npos) {
            text += place;
        } else {
            text.append(hex, 2 * pair, 2);
        }
    }
    return text;
}

} // namespace

std::string bytesToHex(const std::uint8_t* bytes, std::size_t count) {
    std::string hex;
    hex.reserve(2 * count);
    for (std::size_t i = 0; i < count; ++i) {
        hex.append(tavrisk::text::hexPair(bytes[i]).data(), 2);
    }
    return hex;
}

std::string hexToGuidText(const std::string& hex) {
    return arrange("dcba-fe-hg-ij-klmnop", hex);
}

std::string cperTimestampText(const std::uint8_t* bytes, std::size_t count) {
    // Month, day, century and year, hours, minutes and seconds; 'd' are the flags.
    return arrange("f_e_hg_cba", bytesToHex(bytes, count));
}
