// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sdbusplus/bus.hpp>

namespace tavrisk {

/** Serves `bus` on the calling thread until ten passes have failed in the life of the daemon, be
 *  they in a row or days apart. */
void serveUntilFailureBudgetIsSpent(sdbusplus::bus::bus& bus);

} // namespace tavrisk
