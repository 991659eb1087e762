// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/names.hpp"

namespace sdbusplus::common::com::vorn::bmc {

/** What clients and the server of the interface share: its name. */
struct Tavrisk {
    static constexpr auto interface = tavrisk::interfaceName;
};

} // namespace sdbusplus::common::com::vorn::bmc
