// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sdbusplus::common::com::vorn::bmc {

/** What clients and the server of the interface share: its name. */
struct Tavrisk {
    static constexpr auto interface = "com.vorn.bmc.tavrisk";
};

} // namespace sdbusplus::common::com::vorn::bmc
