// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/section_kind.hpp"

#include <cstddef>
#include <cstdint>

namespace tavrisk::cper {

/** How register contexts of a kind of processor lie behind each other. */
struct ContextLayout {
    const Table* header;
    std::size_t typeOffset;
    std::size_t sizeOffset;
    std::size_t sizeWidth;
    std::uint64_t lastType;
    /** Appends the registers of an array, as many as there are. */
    void (*addRegisters)(std::uint64_t type, Bytes context, Bytes array, Nodes& nodes,
                         Findings& findings);
};

/** Appends `count` contexts that begin at `offset`; returns where they end. */
std::size_t addContexts(const ContextLayout& layout, Bytes body, std::size_t offset,
                        std::uint64_t count, Nodes& nodes, Findings& findings);

} // namespace tavrisk::cper
