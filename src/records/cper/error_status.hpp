// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/table.hpp"

#include <array>

namespace tavrisk::cper {

inline constexpr auto errorStatusTypes = std::to_array<Name>({
    {1, "ERR_INTERNAL", "error inside the component"},
    {4, "ERR_MEM", "storage error in DRAM"},
    {5, "ERR_TLB", "storage error in TLB"},
    {6, "ERR_CACHE", "storage error in cache"},
    {7, "ERR_FUNCTION", "error in a functional unit"},
    {8, "ERR_SELFTEST", "self test failed"},
    {9, "ERR_FLOW", "queue over- or underflow"},
    {16, "ERR_BUS", "error on the bus"},
    {17, "ERR_MAP", "address absent in IO-TLB/IO-PDIR"},
    {18, "ERR_IMPROPER", "improper access"},
    {19, "ERR_UNIMPL", "access to an unmapped address"},
    {20, "ERR_LOL", "loss of lockstep"},
    {21, "ERR_RESPONSE", "response without request"},
    {22, "ERR_PARITY", "bus parity"},
    {23, "ERR_PROTOCOL", "protocol error"},
    {24, "ERR_ERROR", "path error detected"},
    {25, "ERR_TIMEOUT", "bus timeout"},
    {26, "ERR_POISONED", "poisoned data was read"},
});

/** The error status of the memory and PCI sections. */
inline constexpr auto errorStatus = std::to_array<Field>({
    {8, 8, "Error type", always, errorStatusTypes},
    {16, 1, "address"},
    {17, 1, "control"},
    {18, 1, "data"},
    {19, 1, "detected by responder"},
    {20, 1, "detected by requester"},
    {21, 1, "first error"},
    {22, 1, "overflow"},
});

} // namespace tavrisk::cper
