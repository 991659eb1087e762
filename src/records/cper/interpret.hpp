// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/table.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrisk::cper {

/** What is wrong with a structure. */
struct Findings {
    /** Sentences. */
    std::vector<std::string> problems;
    /** Labels of the fields that are valid and not there. */
    std::vector<std::string_view> missing;
};

/** The part of `bytes` that begins at `offset`, of `length` bytes at most; shorter or empty when
 *  there are not so many. */
Bytes cut(Bytes bytes, std::uint64_t offset, std::uint64_t length = SIZE_MAX);

/** The little-endian number of 8 bytes at most; nothing when it is not wholly inside. */
std::optional<std::uint64_t> numberAt(Bytes bytes, std::size_t offset, std::size_t width);

/** The same, 0 when it is not there. */
inline std::uint64_t numberOr0(Bytes bytes, std::size_t offset, std::size_t width) {
    return numberAt(bytes, offset, width).value_or(0);
}

/** `count` bits of a number from bit `low` on. */
constexpr std::uint64_t slice(std::uint64_t value, unsigned low, unsigned count) {
    return (value >> low) & (count < 64 ? (std::uint64_t{1} << count) - 1 : ~std::uint64_t{0});
}

constexpr bool isSet(std::uint64_t value, unsigned bit) {
    return slice(value, bit, 1) != 0;
}

/** "0x" and as many digits as `bits` bits have. */
std::string hexText(std::uint64_t value, unsigned bits);

/** The digits of the bytes in their order. */
std::string hexDigits(Bytes bytes);

/** The little-endian number that all of the bytes make. */
std::string hexText(Bytes bytes);

std::string guidText(const std::uint8_t* bytes);

/** A text up to its first NUL, without blanks at its end; bytes that are not printable ASCII stand
 *  as "\xNN". */
std::string plainText(Bytes bytes);

/** The choice with the name of its value. */
Choice choose(std::uint64_t value, const Show& show);

/** A register's value with its bits. */
Register readBits(std::uint64_t value, unsigned bits, Fields fields);

/** The bytes as numbers of `unit` bytes; what is left over is not shown. */
Node wordList(std::string_view label, Bytes bytes, std::size_t unit);

/** Appends the valid fields that the bytes hold; `valid` are the validation bits in force when the
 *  table has none of its own. */
void interpret(const Table& table, Bytes bytes, Nodes& nodes, Findings& findings,
               std::uint64_t valid = ~std::uint64_t{0});

} // namespace tavrisk::cper
