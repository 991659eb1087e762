// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tavrisk::cper {

struct Node;
using Nodes = std::vector<Node>;

/** One of a list of named values, or several when the value's bits have names. */
struct Choice {
    std::uint64_t value;
    std::string name;
    /** What the name stands for, where it does not say so itself; else empty. */
    std::string_view meaning;
};

/** A register: its value as "0x…" of full width, the names of its bits that are set, and what its
 *  other bits hold. */
struct Register {
    std::string value;
    bool hasFlags = false;
    std::vector<std::string_view> flags;
    Nodes fields;
};

/** A GUID in its written form, lower case; the names are empty when it has none. */
struct Guid {
    std::string text;
    std::string_view name;
    std::string_view shortName;
};

/** A record's time, "2026-11-15T12:25:30" or "invalid"; precise when it is that of the error
 *  itself. */
struct Time {
    std::string text;
    bool precise;
};

/** Bytes as hexadecimal digits, two for each. */
struct Raw {
    std::string digits;
};

struct Object {
    Nodes members;
};

struct List {
    Nodes elements;
};

/** A fact with its label; an element of a list has one for all, such as "Section". Labels are
 *  constant texts. A std::string is a text of printable ASCII, or a number as "0x…". */
struct Node {
    using Value = std::variant<std::uint64_t, std::int64_t, std::string, Choice, Register, Guid,
                               Time, Raw, Object, List>;
    std::string_view label;
    Value value;
};

/** The member of an object, or the field of a register, with this label; null when there is none or
 *  `node` is null, so that look-ups can be chained. */
const Node* find(const Node* node, std::string_view label);

/** The list's elements with this label; none when there is no such list. */
const Nodes& elements(const Node* node, std::string_view label);

/** `node` as an alternative of its value; null when it is null or holds another. */
template <typename Alternative>
const Alternative* as(const Node* node) {
    return node != nullptr ? std::get_if<Alternative>(&node->value) : nullptr;
}

/** A label's name in JSON: "Physical address mask" is physicalAddressMask, "MPIDR_EL1"
 *  mpidrEl1. */
std::string jsonName(std::string_view label);

} // namespace tavrisk::cper
