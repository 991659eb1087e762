// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/severity.hpp"
#include "zel/sqlite.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrisk::zel {

/** Why the log cannot be read, as a sentence for the user. */
class Unreadable final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct LogEntry {
    std::int64_t sequence;
    std::string time; // UTC, as it stands in the log
    std::string messageId;
    std::int64_t severityCode;
    std::vector<std::string> arguments;

    [[nodiscard]] Severity severity() const { return severityOf(severityCode); }
    /** What the message is about: the first argument, or "" without one. */
    [[nodiscard]] const std::string& device() const;
};

/** What entries must be like to be shown; an empty one lets all through. */
struct Filter {
    std::optional<std::string> since; // UTC, as the log has it
    std::optional<std::string> until;
    std::optional<Severity> severity;
    std::optional<std::string> messageId;
    std::optional<std::string> device;
    std::optional<std::int64_t> after;

    bool operator==(const Filter&) const = default;
};

struct Health {
    std::int64_t schemaVersion;
    std::int64_t entries;
    std::int64_t first; // sequence numbers, 0 without entries
    std::int64_t last;
    std::int64_t highest; // the last one given out, were the entry removed since or not
    std::int64_t dropped;
    std::optional<std::string> lastClear;
};

/**
 * The event log, opened for reading only. Holds no lock on it between calls and looks at it in
 * short steps, so that a writer is never kept from its work, however slowly the entries are taken.
 *
 * Works without the right to write to the database or its directory, too.
 */
class LogReader {
public:
    /** Raises Unreadable when there is no database, and when it is not one this program reads. */
    static LogReader open(const std::string& path);

    [[nodiscard]] Health health() const;

    /** Passes the entries that the filter lets through, until there are none left or `take` returns
     *  false. */
    void forEach(const Filter& filter, bool oldestFirst,
                 const std::function<bool(const LogEntry&)>& take) const;

    [[nodiscard]] std::optional<LogEntry> find(std::int64_t sequence) const;

    /** What the full check of the database finds wrong; nothing when all is well. */
    [[nodiscard]] std::vector<std::string> findDamage() const;

    /** Whether the path no longer leads to what was opened. */
    [[nodiscard]] bool hasMoved() const { return connection_.hasMoved(); }

    /** Whether entries written from now on can be seen; if not, another reader may. */
    [[nodiscard]] bool seesNewEntries() const;

private:
    LogReader(const std::string& path, bool immutable);

    [[nodiscard]] std::vector<LogEntry> page(const Filter& filter, bool oldestFirst,
                                             std::int64_t beyond) const;
    void findDamagedEntries(std::vector<std::string>& damage) const;

    bool immutable_; // taken as a file that nobody writes to
    Connection connection_;
    std::int64_t schemaVersion_;
};

} // namespace tavrisk::zel
