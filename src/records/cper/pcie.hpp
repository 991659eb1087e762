// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/table.hpp"

#include <array>

namespace tavrisk::cper {

/** A PCI function in 16 bits, as requesters and sources of errors are named. */
inline constexpr auto functionFields = std::to_array<Field>({
    {0, 3, "Function"},
    {3, 5, "Device number"},
    {8, 8, "Bus"},
});

/** The PCI Express capability, 60 bytes. */
extern const Table pcieCapability;

} // namespace tavrisk::cper
