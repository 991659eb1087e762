// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace tavrisk::zel {

struct Entry {
    std::string time; // UTC, as text::UtcTime has it
    std::string messageId;
    std::uint16_t severity;
    std::string arguments; // a JSON array of strings
};

/** A database opened for writing, by one thread at a time; other processes may have it open too.
 *  After each change, the write-ahead log in the database's directory is opened and closed once
 *  (IN_CLOSE_WRITE of inotify): whoever waits for entries can see them then. */
class Store {
public:
    /** Makes what is missing, up to the directories, and brings an older layout up to date. Raises
     *  Refused or SqliteError. */
    explicit Store(const std::string& path);

    /** Whether the path no longer leads to the file that is open. */
    [[nodiscard]] bool hasMoved() const { return connection_.hasMoved(); }

    /** Adds the entries in their order, and drops the oldest ones beyond `maxEntries`. All are on
     *  the disk when this returns; none is when it raises. */
    void append(std::span<const Entry> entries, std::int64_t maxEntries);

    /** Removes all entries; their sequence numbers are not used again. */
    void clear();

private:
    Connection connection_;
};

} // namespace tavrisk::zel
