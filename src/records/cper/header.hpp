// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/table.hpp"

namespace tavrisk::cper {

extern const Table headerTable;
extern const Table descriptorTable;

} // namespace tavrisk::cper
