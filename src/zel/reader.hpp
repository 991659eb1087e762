// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/severity.hpp"
#include "zel/sqlite.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrisk::zel {

/** Why the log cannot be read, as a sentence for the user. */
class Unreadable final : public std::runtime_error {
public:
    explicit Unreadable(const std::string& sentence, bool isDamage = false)
        : std::runtime_error{sentence}, isDamage_{isDamage} {}

    /** Whether the database is damaged, or none. */
    [[nodiscard]] bool isDamage() const noexcept { return isDamage_; }

private:
    bool isDamage_;
};

struct Acknowledgement {
    std::string by;
    std::string at; // UTC
    std::string note;
};

struct LogEntry {
    std::int64_t sequence;
    std::string time; // UTC, as it stands in the log
    std::string messageId;
    std::int64_t severityCode;
    std::vector<std::string> arguments;
    // What older layouts do not have.
    std::string bootId{};
    std::optional<std::chrono::milliseconds> sinceBoot{};
    bool salvaged = false;
    std::optional<Acknowledgement> acknowledgement{};

    [[nodiscard]] Severity severity() const { return severityOf(severityCode); }
    /** What the message is about: the first argument, or "" without one. */
    [[nodiscard]] const std::string& device() const;
};

/** What entries must be like to be shown; an empty one lets all through. */
struct Filter {
    std::optional<std::string> since{}; // UTC, as the log has it
    std::optional<std::string> until{};
    std::set<Severity> severities{}; // one of them, or any when there is none; so with those below
    std::vector<std::string> messageIds{};
    std::vector<std::string> otherThanIds{}; // none of them
    std::optional<std::int64_t> after{};
    std::optional<std::string> bootId{};
    bool open = false; // not acknowledged
    /** And whatever else there is to ask. */
    std::function<bool(const LogEntry&)> also{};
};

struct Position {
    std::int64_t sequence = 0; // 0 where there is none
    std::string time;
};

/** Entries that the cap has dropped. */
struct Dropped {
    std::int64_t entries = 0;
    Position last; // the newest of them; nothing in older layouts
};

/** Events that never became entries, by the cause of it. */
struct Loss {
    std::string cause;
    std::int64_t events;
    std::int64_t acknowledged; // of them
    std::string lastAt;        // UTC, when the newest was told of
};

/** A start of the machine that entries are of. */
struct Boot {
    std::string id;
    std::int64_t entries;
    Position first;
    Position last;
};

/** How many entries were ever recorded of a message, severity and device. What there was no row
 *  for counts in one of its severity alone. */
struct Total {
    std::string messageId;
    Severity severity;
    std::string device;
    std::int64_t recorded;
};

/** What the log counts of itself. */
struct Figures {
    std::int64_t entries = 0;
    std::int64_t dropped = 0;
    Position last;
    std::vector<Loss> losses;
    std::int64_t spillMark = 0; // for Waiting::isTold()
    std::vector<Total> totals;  // nothing in older layouts
};

struct Health {
    std::int64_t schemaVersion = 0;
    std::int64_t entries = 0;
    Position first;
    Position last;
    std::int64_t highest = 0; // the last number given out, were the entry removed since or not
    std::int64_t salvaged = 0;
    Dropped dropped;
    std::optional<std::string> lastClear;
    std::vector<Loss> losses;
    std::int64_t spillMark = 0; // for Waiting::isTold()
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

    /** Looks through all of the log, unlike the others here. */
    [[nodiscard]] Health health() const;

    /** Looks at none but the last entry, but in a log of an older layout. */
    [[nodiscard]] Figures figures() const;

    /** The last number given out, were the entry removed since or not. */
    [[nodiscard]] std::int64_t highest() const;

    /** Passes the entries that the filter lets through, until there are none left or `take` returns
     *  false. */
    void forEach(const Filter& filter, bool oldestFirst,
                 const std::function<bool(const LogEntry&)>& take) const;

    [[nodiscard]] std::optional<LogEntry> find(std::int64_t sequence) const;

    /** How many entries with a higher number than this are in the log no more. */
    [[nodiscard]] std::int64_t goneBeyond(std::int64_t sequence) const;

    /** What the cap has dropped that the filter may have let through: of messages, severities and
     *  devices it lets through, perhaps of another time. */
    [[nodiscard]] Dropped dropped(const Filter& filter) const;

    /** The boots that there are entries of, first one first. */
    [[nodiscard]] std::vector<Boot> boots() const;

    /** Writes the whole log to a file that is there and empty: one state of it, whatever is written
     *  meanwhile, in a database that needs no other file. Raises SqliteError. */
    void copyTo(const std::string& path) const;

    /** What the full check of the database finds wrong; nothing when all is well. */
    [[nodiscard]] std::vector<std::string> findDamage() const;

    /** Whether the path no longer leads to what was opened. */
    [[nodiscard]] bool hasMoved() const { return connection_.hasMoved(); }

    /** Whether entries written from now on can be seen; if not, another reader may. */
    [[nodiscard]] bool seesNewEntries() const;

private:
    LogReader(const std::string& path, bool immutable);

    [[nodiscard]] std::vector<LogEntry> page(const Filter& filter, bool oldestFirst,
                                             std::int64_t beyond, std::size_t size) const;
    [[nodiscard]] Position positionOf(std::int64_t sequence) const;
    [[nodiscard]] std::vector<Loss> losses() const;
    [[nodiscard]] std::int64_t spillMark() const;
    [[nodiscard]] std::vector<Total> totals() const;
    void findDamagedEntries(std::vector<std::string>& damage) const;

    bool immutable_; // taken as a file that nobody writes to
    Connection connection_;
    std::int64_t schemaVersion_;
};

} // namespace tavrisk::zel
