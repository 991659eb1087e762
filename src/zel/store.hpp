// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"

#include <cstdint>
#include <exception>
#include <span>
#include <string>

/** The database behind the embedded event log: its layout, and the one way to write to it. */
namespace tavrisk::zel {

struct Entry {
    std::string time; // UTC, as text::UtcTime has it
    std::string messageId;
    std::uint16_t severity;
    std::string arguments; // a JSON array of strings
};

/** A database that is left alone, for fear of destroying what it holds. */
class Refused final : public std::exception {
public:
    enum class Reason { newer, damaged };

    explicit Refused(Reason reason) : reason_{reason} {}
    [[nodiscard]] Reason reason() const noexcept { return reason_; }
    [[nodiscard]] const char* what() const noexcept override {
        return reason_ == Reason::newer ? "written by a later version" : "damaged";
    }

private:
    Reason reason_;
};

/** The layout this version writes; `PRAGMA user_version` holds the layout of a database. */
extern const std::int64_t schemaVersion;

/** The layout of an open database, 0 for an empty one. Raises Refused for a later layout, for a
 *  database of something else and for one whose pages do not hold together. */
std::int64_t checkedSchemaVersion(const Connection& connection);

/** A database opened for writing, by one thread at a time; other processes may have it open too.
 *  After each change, the write-ahead log in the database's directory is opened and closed once
 *  (IN_CLOSE_WRITE of inotify): whoever waits for entries can see them then. */
class Store {
public:
    /** Makes what is missing, up to the directories, and brings an older layout up to date. Raises
     *  Refused or SqliteError. */
    explicit Store(const std::string& path);

    /** Whether the path no longer leads to the file that is open. */
    [[nodiscard]] bool hasMoved() const;

    /** Adds the entries in their order, and drops the oldest ones beyond `maxEntries`. All are on
     *  the disk when this returns; none is when it raises. */
    void append(std::span<const Entry> entries, std::int64_t maxEntries);

    /** Removes all entries; their sequence numbers are not used again. */
    void clear();

private:
    Connection connection_;
};

} // namespace tavrisk::zel
