// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tavrisk::text {

/** Whether it is a letter or digit of ASCII, in any locale. */
constexpr bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

} // namespace tavrisk::text
