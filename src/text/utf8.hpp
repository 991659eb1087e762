// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavrisk::text {

/** One character at the start of a text, or one byte that starts none (`valid` is then false, the
 *  length 1 and the code point the byte's value). */
struct Character {
    char32_t codePoint;
    std::size_t length;
    bool valid;

    /** C0, DEL and C1: what a terminal or a line-oriented file may take as a command. */
    [[nodiscard]] constexpr bool isControl() const {
        return codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0);
    }
};

/** Decodes the first character of a UTF-8 text that is not empty. Overlong forms, surrogates and
 *  code points beyond U+10FFFF are not valid. */
constexpr Character firstCharacter(std::string_view text) {
    const auto byteAt = [text](std::size_t index) {
        return static_cast<std::uint8_t>(text[index]);
    };
    const std::uint8_t lead = byteAt(0);
    const Character stray{lead, 1, false};
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    if (lead < 0xc2 || lead > 0xf4) {
        return stray;
    }
    const std::size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (text.size() < length) {
        return stray;
    }
    char32_t codePoint = lead & (0x7fU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xc0U) != 0x80) {
            return stray;
        }
        codePoint = (codePoint << 6U) | (byteAt(i) & 0x3fU);
    }
    const char32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
    const bool surrogate = codePoint >= 0xd800 && codePoint < 0xe000;
    if (codePoint < smallest || codePoint > 0x10ffff || surrogate) {
        return stray;
    }
    return {codePoint, length, true};
}

} // namespace tavrisk::text
