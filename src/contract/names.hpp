// SPDX-License-Identifier: Apache-2.0
#pragma once

/** What peers on the bus call the daemon. */
namespace tavrisk {

inline constexpr auto busName = "com.vorn.bmc.tavrisk";
inline constexpr auto objectPath = "/com/vorn/bmc/tavrisk";
inline constexpr auto interfaceName = "com.vorn.bmc.tavrisk";

} // namespace tavrisk
