// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/number_file.hpp"
#include "zel/salvage.hpp"
#include "zel/shares.hpp"
#include "zel/sqlite.hpp"
#include "zel/totals.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tavrisk::zel {

struct Entry {
    std::string time; // UTC, as text::UtcTime has it
    std::string messageId;
    std::uint16_t severity;
    std::string arguments;      // a JSON array of strings
    std::int64_t sinceBoot = 0; // milliseconds
};

/** A database opened for writing, by one thread at a time; other processes may have it open too.
 *  After each change, the write-ahead log in the database's directory is opened and closed once
 *  (IN_CLOSE_WRITE of inotify): whoever waits for entries can see them then. */
class Store {
public:
    enum class Condition { unknown, damaged };

    /** Makes what is missing, up to the directories, and brings an older layout up to date. A
     *  database that is damaged, or known to be, is replaced. Raises Refused, SqliteError or
     *  std::system_error. */
    explicit Store(const std::string& path, Condition condition = Condition::unknown);

    /** What opening has had to replace. */
    [[nodiscard]] const std::optional<Salvage>& salvage() const { return salvage_; }

    /** Whether the path no longer leads to the file that is open. */
    [[nodiscard]] bool hasMoved() const { return connection_.hasMoved(); }

    /** Adds the entries in their order, and drops what is beyond `maxEntries`; adds to the events
     *  that were lost. All is on the disk when this returns; nothing is when it raises. */
    void append(std::span<const Entry> entries, std::int64_t maxEntries, const Losses& losses = {});

    /** For what else there is to write, by this thread, in a transaction of its own. */
    [[nodiscard]] const Connection& connection() const { return connection_; }

    /** Removes all entries; their sequence numbers are not used again. */
    void clear();

private:
    Connection open(const std::string& path, Condition condition);
    void countOn();
    std::int64_t insert(std::span<const Entry> entries);

    NumberFile numbers_;
    std::optional<Salvage> salvage_;
    Connection connection_;
    Statement insert_;
    Totals totals_;
    Shares shares_;
    std::string bootId_;
};

} // namespace tavrisk::zel
