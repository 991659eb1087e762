// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/section_kind.hpp"

#include <cstddef>
#include <cstdint>

namespace tavrisk::cper {

/** Appends `count` error information structures of an ARM processor section, which begin at
 *  `offset`; returns where they end. */
std::size_t addArmErrors(Bytes body, std::size_t offset, std::uint64_t count, Nodes& nodes,
                         Findings& findings);

} // namespace tavrisk::cper
