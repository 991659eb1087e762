// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavrisk {

/** Has the library make what it makes once. At the first digest, want of memory for it would end
 *  the program, or every later digest with it; at its start nothing is lost by that. */
void prepareDigests();

} // namespace tavrisk

/**
 * Makes the digest text of `length` bytes at `data`: their SHA-512 as 128 lower-case hexadecimal
 * digits. `*text` receives it as a NUL-terminated string that the caller releases with `free`.
 *
 * Returns 0, or -1 when a pointer is null, `length` is 0, or the digest or its text could not be
 * made; `*text` then keeps its value, or is null when only the text could not be allocated.
 */
int SignIt(const std::uint8_t* data, std::uint32_t length, char** text);

/**
 * Tells whether the first 128 characters of `validationString` are the digest text of the buffer.
 *
 * Returns 0 when they are, -1 when not, and -1 when no digest could be made (an empty buffer).
 */
int validateBuffer(const std::string& validationString,
                   const std::vector<std::uint8_t>& logDataBuffer);
