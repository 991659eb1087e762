// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/interpret.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/table.hpp"
#include "records/cper/tree.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace tavrisk::cper {

/** A section in words: "single-bit ECC error", "node 0, card 1"; the place may be empty. */
struct Described {
    std::string what;
    Phrase where;
};

/** What is known of a section type. */
struct SectionKind {
    std::string_view guid;
    std::string_view name;
    /** The fixed part of its body; null when only the name is known. */
    const Table* table = nullptr;
    /** Appends what the table cannot say, such as what follows the fixed part; returns where the
     *  section ends. Null when the table says all. */
    std::size_t (*more)(Bytes body, Nodes& nodes, Findings& findings) = nullptr;
    Described (*describe)(const Node* body) = nullptr;
};

std::span<const SectionKind* const> sectionKinds();

/** Null for a type that is not known. */
const SectionKind* findSectionKind(std::string_view guid);

/** How far to trust a length that a section gives of itself: the bytes up to it if there are so
 *  many, and it is at least `least`; else all. One that differs from the bytes there are is a
 *  problem. */
Bytes upToStated(Bytes body, std::uint64_t stated, std::size_t least, Findings& findings);

/** Structures of one kind behind each other. */
struct Repeated {
    std::string_view label;
    std::string_view elementLabel;
    const Table* table;
    std::size_t stride;
};

/** As many of `count` as there are bytes for from `offset` on; what is not there is a problem. */
void addRepeated(const Repeated& repeated, Bytes bytes, std::size_t offset, std::uint64_t count,
                 Nodes& nodes, Findings& findings);

extern const SectionKind processorGeneric;
extern const SectionKind processorX86;
extern const SectionKind processorArm;
extern const SectionKind memory;
extern const SectionKind memory2;
extern const SectionKind pcie;
extern const SectionKind firmwareReference;
extern const SectionKind pciBus;
extern const SectionKind pciComponent;
extern const SectionKind dmarGeneric;
extern const SectionKind dmarVtd;
extern const SectionKind dmarIommu;
extern const SectionKind ccix;
extern const SectionKind cxlProtocol;
extern const SectionKind cxlGeneralMedia;
extern const SectionKind cxlDram;
extern const SectionKind cxlMemoryModule;
extern const SectionKind cxlPhysicalSwitch;
extern const SectionKind cxlVirtualSwitch;
extern const SectionKind cxlMldPort;
extern const SectionKind cxlMemorySparing;
extern const SectionKind cxlDynamicCapacity;
extern const SectionKind fruMemoryPoison;

} // namespace tavrisk::cper
