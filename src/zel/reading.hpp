// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// What the files of the reader share.
namespace tavrisk::zel {

/** Whether an error may come from another process that is just making, or recovering, the database:
 *  a reader without the right to help finds files missing, or is told that it may only read. */
inline bool mayPass(const SqliteError& error) {
    const auto code = error.code();
    return code == SQLITE_BUSY || code == SQLITE_READONLY || code == SQLITE_PROTOCOL ||
           code == SQLITE_CANTOPEN;
}

/** Reads, again for five seconds while it fails with such an error. */
template <typename Read>
auto patiently(Read read) {
    return retryUntil(std::chrono::steady_clock::now() + std::chrono::seconds{5},
                      std::chrono::milliseconds{20}, mayPass, read);
}

/** The strings of a JSON array; nothing when there is something else. */
std::optional<std::vector<std::string>> parseArguments(const std::string& json);

} // namespace tavrisk::zel
