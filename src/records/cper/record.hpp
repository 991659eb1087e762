// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/table.hpp"
#include "records/cper/tree.hpp"

#include <cstddef>
#include <string>

namespace tavrisk::cper {

/** Rises when the names or kinds of what is decoded change. */
inline constexpr std::uint64_t schemaVersion = 1;

/** Of a larger record only so much is read. */
inline constexpr std::size_t mostBytes = std::size_t{1} << 20U;

/**
 * Decodes a UEFI Common Platform Error Record, which may have four bytes in front of it. Whatever
 * the bytes are, the result is an object with "Header", "Sections", a list in the order of the
 * descriptors, and "Problems", a list of sentences; what is not there, or not valid by its
 * validation bit, is left out.
 */
Node decode(Bytes bytes);

/** What happened, and to which part, in one sentence without a full stop. */
std::string sentence(const Node& record);

/** The part that it happened to, as far as somebody could replace it: the field-replaceable unit
 *  that the record names and the place of the part. Empty when it tells neither. */
std::string part(const Node& record);

} // namespace tavrisk::cper
