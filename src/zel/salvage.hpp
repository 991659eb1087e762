// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace tavrisk::zel {

/** What has become of a damaged database. */
struct Salvage {
    std::string asideAt;      // where it lies now
    std::int64_t entries = 0; // taken over from it
};

/**
 * Puts a new database in the place of a damaged one. That one, and its write-ahead log, get another
 * name with the time in it and stay as they are; what entries can still be read are taken over and
 * marked as salvaged. The next sequence number is above `reserved` and all that were read.
 * The new one has room for that many bytes, as far as the disk has.
 *
 * Raises SqliteError and std::system_error; the damaged database then keeps its place.
 */
Salvage replaceDamaged(const std::string& path, std::int64_t reserved, std::int64_t room);

/** Puts a salvaged database in its place when whoever made it could not any more. */
void finishReplacing(const std::string& path);

} // namespace tavrisk::zel
