// SPDX-License-Identifier: Apache-2.0
#pragma once

/** Where things are that the daemon, its platform and the tools must agree on. All are made by the
 *  platform, none by the daemon. */
namespace tavrisk {

/** The data tree, in RAM; it holds event records. */
inline constexpr auto dataRoot = "/var/run/hmc/";
/** Below the data tree: what `Save` was given. */
inline constexpr auto dumpDirectory = "dump/";
/** Below the data tree: raw CPERs. */
inline constexpr auto rawCperDirectory = "rawCPER/";

/** The store that survives a restart; the retention script saves the data tree here, under the same
 *  names and with the same times. */
inline constexpr auto savedRoot = "/mmc1/hmc/";

/** Limits a directory's size, or saves the data tree. Its name is spelled so. */
inline constexpr auto retentionScript = "/app/bin/wuxRetensionChk.sh";

} // namespace tavrisk
