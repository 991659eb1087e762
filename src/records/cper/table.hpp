// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/tree.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/**
 * What the layouts of records and sections are written in: constant tables, read by one interpreter
 * (interpret.hpp). A new kind of section is a new table.
 */
namespace tavrisk::cper {

using Bytes = std::span<const std::uint8_t>;

/** Instead of a validation bit: the field is valid in any case. */
inline constexpr std::int8_t always = -1;

struct Name {
    std::uint64_t value;
    std::string_view name;
    std::string_view meaning{};
};
using Names = std::span<const Name>;

struct KnownGuid {
    std::string_view guid;
    std::string_view name;
    std::string_view shortName{};
};
using KnownGuids = std::span<const KnownGuid>;

enum class Kind : std::uint8_t {
    number,
    signedNumber,
    hex,
    text,
    guid,
    choice,
    /** A choice whose value is the sum of those that are named. */
    bitChoice,
    bits,
    part,
    /** Numbers one after the other, as many as there is room for. */
    words,
    bytes,
    /** Two bytes in BCD, minor and major. */
    revision,
    timestamp,
    /** Since 1970, UTC. */
    nanoseconds,
};

/** Bits of a register. A single one without names is a flag: it is named when it is set, and when
 * it has a validation bit, which is another one of the register, shown as 0 or 1 as well. */
struct Field {
    std::uint8_t low;
    std::uint8_t count;
    std::string_view name;
    std::int8_t valid = always;
    Names names{};
    /** `number`, `hex`, or `bytes` for hex with the bits left at their places. */
    Kind kind = Kind::number;
};
using Fields = std::span<const Field>;

struct Table;

/** How a field is to be shown. */
struct Show {
    Kind kind;
    Names names{};
    /** The name of values that have none. */
    std::string_view otherwise{"reserved"};
    KnownGuids guids{};
    Fields fields{};
    const Table* table = nullptr;
    std::uint8_t unit = 0;
    std::uint8_t low = 0;
    std::uint8_t count = 0;

    /** Only these bits of the field. */
    [[nodiscard]] constexpr Show bits(std::uint8_t first, std::uint8_t number) const {
        Show slice{*this};
        slice.low = first;
        slice.count = number;
        return slice;
    }
};

namespace show {

inline constexpr Show number{.kind = Kind::number};
inline constexpr Show signedNumber{.kind = Kind::signedNumber};
inline constexpr Show hex{.kind = Kind::hex};
inline constexpr Show text{.kind = Kind::text};
inline constexpr Show guid{.kind = Kind::guid};
inline constexpr Show bytes{.kind = Kind::bytes};
inline constexpr Show revision{.kind = Kind::revision};
inline constexpr Show timestamp{.kind = Kind::timestamp};
inline constexpr Show nanoseconds{.kind = Kind::nanoseconds};
constexpr Show guidOf(KnownGuids guids) {
    return {.kind = Kind::guid, .guids = guids};
}
constexpr Show oneOf(Names names, std::string_view otherwise = "reserved") {
    return {.kind = Kind::choice, .names = names, .otherwise = otherwise};
}
constexpr Show sumOf(Names names) {
    return {.kind = Kind::bitChoice, .names = names};
}
constexpr Show bitsOf(Fields fields) {
    return {.kind = Kind::bits, .fields = fields};
}
constexpr Show part(const Table& table) {
    return {.kind = Kind::part, .table = &table};
}
constexpr Show words(std::uint8_t unit) {
    return {.kind = Kind::words, .unit = unit};
}

} // namespace show

/** A condition besides the validation bit: what a field of the same structure holds. */
struct When {
    std::uint8_t offset = 0;
    std::uint8_t width = 0;
    std::uint8_t low = 0;
    std::uint8_t count = 0;
    /** The validation bit of that field. */
    std::int8_t valid = always;
    /** A bit for each value with which the condition holds, from 0 to 30; bit 31 is for all others,
     *  and for a field that is not valid or not there. */
    std::uint32_t holds = 0;
};

/** A field of a structure. The label is the field's name, and what its name in JSON is made of. */
struct Row {
    std::uint16_t offset;
    std::uint16_t width;
    std::string_view label;
    std::int8_t valid;
    Show show;
    When when{};
};

struct Table {
    std::span<const Row> rows;
    /** Of a structure as it is to be; 0 when any will do. */
    std::uint16_t size = 0;
    /** Where its validation bits are; without a width it has none and takes those of the structure
     *  that it is a part of. */
    std::uint16_t validOffset = 0;
    std::uint8_t validWidth = 0;
    std::string_view validLabel{"Validation bits"};
    /** Names of validation bits that no field goes by. */
    Names moreValid{};
    /** A shorter form that is whole as well; 0 when there is none. */
    std::uint16_t shortSize = 0;
};

} // namespace tavrisk::cper
