// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrisk {

/** Has OpenSSL set itself up, which it would do at the first digest otherwise: want of memory would
 *  end the program then, or have every later digest fail. At the start nothing is lost by that. The
 *  calling thread's digests take no memory from then on. */
void prepareDigests();

/** The digest text of the bytes: their SHA-512 as 128 lower-case hexadecimal digits. Nothing when
 *  there are no bytes, or no digest could be made; the diagnostic log says why. */
std::optional<std::string> sha512Text(std::span<const std::uint8_t> bytes);

} // namespace tavrisk

/**
 * Tells whether the first 128 characters of `validationString` are the digest text of the buffer.
 *
 * Returns 0 when they are, -1 when not, and -1 when no digest could be made (an empty buffer).
 */
int validateBuffer(const std::string& validationString,
                   const std::vector<std::uint8_t>& logDataBuffer);

/**
 * sha512Text() in the form that others are promised, for `length` bytes at `data`. `*text` receives
 * a NUL-terminated string that the caller releases with `free`.
 *
 * Returns 0, or -1 when a pointer is null, `length` is 0, or the digest or its text could not be
 * made; `*text` then keeps its value, or is null when only the copy of the text could not be
 * allocated.
 */
int SignIt(const std::uint8_t* data, std::uint32_t length, char** text);
