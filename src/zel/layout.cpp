// SPDX-License-Identifier: Apache-2.0
#include "zel/layout.hpp"

#include <array>
#include <cstddef>

namespace tavrisk::zel {
namespace {

// Step N takes a database from layout N to N + 1; an empty one takes them all. A step that has
// once been released stays as it is.
constexpr std::array schemaSteps{
    "CREATE TABLE entries ("
    " sequence INTEGER PRIMARY KEY AUTOINCREMENT,"
    " time TEXT NOT NULL,"
    " message_id TEXT NOT NULL,"
    " severity INTEGER NOT NULL,"
    " arguments TEXT NOT NULL);"
    "PRAGMA user_version = 1",

    "CREATE TABLE state ("
    " dropped INTEGER NOT NULL," // entries that the cap has dropped so far
    " last_clear TEXT);"
    "INSERT INTO state (dropped) VALUES (0);"
    "PRAGMA user_version = 2",

    "ALTER TABLE entries ADD COLUMN boot_id TEXT;"       // NULL in entries of older layouts
    "ALTER TABLE entries ADD COLUMN since_boot INTEGER;" // milliseconds, suspension included
    "ALTER TABLE entries ADD COLUMN salvaged INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE entries ADD COLUMN acknowledged_by TEXT;"
    "ALTER TABLE entries ADD COLUMN acknowledged_at TEXT;"
    "ALTER TABLE entries ADD COLUMN acknowledgement_note TEXT;"
    // Numbers up to the highest whose entry was dropped or cleared, or that a salvage has passed
    // over. An entry that is missing beyond these is missing for no reason.
    "ALTER TABLE state ADD COLUMN gone INTEGER NOT NULL DEFAULT 0;"
    "UPDATE state SET gone = coalesce((SELECT max(seq) FROM sqlite_sequence), 0) -"
    " (SELECT count(*) FROM entries);"
    // Of the spill file: the last piece that was taken in, and the losses that were told of.
    "ALTER TABLE state ADD COLUMN spill INTEGER NOT NULL DEFAULT 0;"
    // What was recorded since the database was made or came to this layout, and of it dropped. Rows
    // are never removed, so the highest rowid is their number; what there is no room for counts in
    // the row of its severity without message and device.
    "CREATE TABLE totals ("
    " message_id TEXT NOT NULL,"
    " severity INTEGER NOT NULL,"
    " device TEXT NOT NULL,"
    " recorded INTEGER NOT NULL,"
    " dropped INTEGER NOT NULL DEFAULT 0,"
    " last_dropped INTEGER," // the newest of them, its sequence number
    " last_dropped_at TEXT," // and its time
    " UNIQUE (message_id, severity, device));"
    "CREATE TABLE losses ("
    " cause TEXT PRIMARY KEY,"
    " events INTEGER NOT NULL,"
    " acknowledged INTEGER NOT NULL DEFAULT 0," // how many of them
    " last_at TEXT);"                           // when the newest was told of
    "PRAGMA user_version = 3",
};

std::int64_t versionOf(const Connection& connection, bool looksAtPages) {
    try {
        // One view of the whole: another process may be making the tables right now.
        const Transaction view{connection, Transaction::Kind::read};
        const auto version = connection.queryInteger("PRAGMA user_version");
        if (version > schemaVersion) {
            throw Refused{Refused::Reason::newer};
        }
        const bool foreign =
            version < 0 ||
            (version == 0 && connection.queryInteger("SELECT count(*) FROM sqlite_schema") != 0);
        if (foreign || (looksAtPages && connection.queryText("PRAGMA quick_check(1)") != "ok")) {
            throw Refused{Refused::Reason::damaged};
        }
        // Tables of other names or columns do not let themselves be asked for these.
        if (version >= 1) {
            Statement{connection, "SELECT sequence, time, message_id, severity, arguments, seq"
                                  " FROM entries, sqlite_sequence"};
        }
        if (version >= 2) {
            Statement{connection, "SELECT dropped, last_clear FROM state"};
        }
        if (version >= 3) {
            Statement{
                connection,
                "SELECT boot_id, since_boot, salvaged, acknowledged_by, acknowledged_at,"
                " acknowledgement_note, gone, spill, recorded, device, last_dropped_at, cause,"
                " acknowledged, last_at"
                " FROM entries, state, totals, losses"};
        }
        return version;
    } catch (const SqliteError& error) {
        if (error.code() == SQLITE_NOTADB || error.code() == SQLITE_CORRUPT ||
            error.code() == SQLITE_ERROR) {
            throw Refused{Refused::Reason::damaged};
        }
        throw;
    }
}

} // namespace

const std::int64_t schemaVersion = schemaSteps.size();

std::int64_t schemaVersionOf(const Connection& connection) {
    return versionOf(connection, false);
}

std::int64_t checkedSchemaVersion(const Connection& connection) {
    return versionOf(connection, true);
}

void climb(const Connection& connection) {
    // Read again: another process may have been here first.
    const auto version = connection.queryInteger("PRAGMA user_version");
    for (auto step = version; step < schemaVersion; ++step) {
        connection.execute(schemaSteps.at(static_cast<std::size_t>(step)));
    }
}

void bringUpToDate(const Connection& connection) {
    Transaction transaction{connection};
    climb(connection);
    transaction.commit();
}

} // namespace tavrisk::zel
