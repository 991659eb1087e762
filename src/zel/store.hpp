// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/guard.hpp"
#include "zel/number_file.hpp"
#include "zel/salvage.hpp"
#include "zel/shares.hpp"
#include "zel/sqlite.hpp"
#include "zel/totals.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrisk::zel {

struct Entry {
    std::string time; // UTC, as text::UtcTime has it
    std::string messageId;
    std::uint16_t severity;
    std::string arguments;      // a JSON array of strings
    std::int64_t sinceBoot = 0; // milliseconds
    std::int64_t sequence = 0;  // 0: it has none yet
    std::string bootId{};       // empty: the present one
};

/** The present one. */
std::string bootId();

enum class Condition { unknown, damaged };
using Patience = std::chrono::milliseconds;

/** How a database is opened. */
struct Opening {
    Condition condition = Condition::unknown;
    Patience patience = std::chrono::seconds{2}; // with other processes; and for all changes
    std::int64_t entries = 0; // that there is room for, whatever comes on the disk later
};

/** A database opened for writing, by one thread at a time; other processes may have it open too.
 *  After each change, the write-ahead log in the database's directory is opened and closed once
 *  (IN_CLOSE_WRITE of inotify): whoever waits for entries can see them then. */
class Store {
public:
    /** Makes what is missing, up to the directories, and brings an older layout up to date. A
     *  database that is damaged, or known to be, is replaced. Raises Refused, SqliteError or
     *  std::system_error. */
    explicit Store(const std::string& path, const Opening& opening = {});
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /** What opening has had to replace. */
    [[nodiscard]] const std::optional<Salvage>& salvage() const { return salvage_; }

    /** What has become of its files. To be asked before and after each change. */
    Guard::State look();

    /** Before each change, as part of a look or without one. */
    void growSharedMemory() { guard_->growSharedMemory(); }

    /** Gives copies of what is open here the names that were removed. Raises std::system_error. */
    void putBack() const { guard_->putBack(); }

    /** Adds the entries in their order, and drops what is beyond `maxEntries`; adds to the events
     *  that were lost. Of entries with a number, those are added that are not there any more.
     *  `spillMark` is remembered, unless it is 0. All is on the disk when this returns; nothing is
     *  when it raises. Returns the numbers, 0 of what was there already. */
    std::vector<std::int64_t> append(std::span<const Entry> entries, std::int64_t maxEntries,
                                     const Losses& losses = {}, std::int64_t spillMark = 0);

    /** How far the spill was taken in. */
    [[nodiscard]] std::int64_t spillMark() const;

    /** How long changes wait for other processes from now on. */
    void setPatience(Patience patience) const {
        sqlite3_busy_timeout(connection_.get(), static_cast<int>(patience.count()));
    }

    /** A number below which there is no entry: of the oldest one when any was last removed. */
    std::int64_t oldest();

    /** After a look that found all sound: takes the write-ahead log's pages into the database when
     *  there are enough of them. False when there are not. */
    [[nodiscard]] bool checkpoint() const;

    /** As of the last look: whether a reader that stays has made the write-ahead log longer than it
     *  may become, and it cannot be begun anew. */
    [[nodiscard]] bool isLogTooLong() const;

    /** As of the last look: whether the database's own file has all entries. */
    [[nodiscard]] bool isCheckpointed() const { return guard_->isCheckpointed(); }

    /** For what else there is to write, by this thread, in a transaction of its own. */
    [[nodiscard]] const Connection& connection() const { return connection_; }

    /** Removes all entries; their sequence numbers are not used again. */
    void clear();

private:
    Connection open(const std::string& path, const Opening& opening);
    void countOn();
    std::int64_t insert(const Entry& entry);
    void countRestored();

    NumberFile numbers_;
    std::optional<Salvage> salvage_;
    std::unique_ptr<Guard> guard_; // made after the connection, and gone after it
    Connection connection_;
    Statement begin_, commit_, insert_, oldest_;
    Totals totals_;
    Shares shares_;
    std::string bootId_;
    std::int64_t oldestSeen_ = 0;
};

} // namespace tavrisk::zel
