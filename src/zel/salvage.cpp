// SPDX-License-Identifier: Apache-2.0
#include "zel/salvage.hpp"

#include "text/utc_time.hpp"
#include "text/utf8.hpp"
#include "zel/files.hpp"
#include "zel/layout.hpp"
#include "zel/room.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>

namespace tavrisk::zel {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t pageSize = 4096;

// Every number is looked for by itself, so that a bad page costs its own entries only. When this
// many in a row had none, the search takes longer steps.
constexpr int patientMisses = 4096;

bool isText(std::string_view text) {
    while (!text.empty()) {
        const auto character = text::firstCharacter(text);
        if (!character.valid || character.codePoint == 0) {
            return false;
        }
        text.remove_prefix(character.length);
    }
    return true;
}

/** Copies entries of a database that may fail at any of them. */
class EntryReader {
public:
    EntryReader(const Connection& from, const Connection& to, std::int64_t highest);

    void run();

    std::int64_t entries = 0;

private:
    bool takeIfThere(std::int64_t sequence);
    std::int64_t behindGap(std::int64_t sequence, std::int64_t step);
    bool take(std::int64_t sequence);

    std::int64_t highest_;
    Statement select_;
    Statement next_;
    Statement insert_;
};

constexpr std::string_view laterColumns =
    "boot_id, since_boot, acknowledged_by, acknowledged_at, acknowledgement_note";

Statement selectFrom(const Connection& connection) {
    const std::string some = "SELECT sequence, time, message_id, severity, arguments, ";
    const std::string where = " FROM entries WHERE sequence = ?";
    try {
        return {connection, some + std::string{laterColumns} + where};
    } catch (const SqliteError&) { // an older layout
        return {connection, some + "NULL, NULL, NULL, NULL, NULL" + where};
    }
}

EntryReader::EntryReader(const Connection& from, const Connection& to, std::int64_t highest)
    : highest_{highest},
      select_{selectFrom(from)},
      next_{from, "SELECT sequence FROM entries WHERE sequence > ? LIMIT 1"},
      insert_{to,
              "INSERT INTO entries (sequence, time, message_id, severity, arguments, " +
                  std::string{laterColumns} +
                  ", salvaged) SELECT ?1, ?2, ?3, ?4, ?5, nullif(?6, ''), nullif(?7, ''),"
                  " nullif(?8, ''), nullif(?9, ''), nullif(?10, ''), 1"
                  " WHERE ?2 GLOB '[0-9][0-9][0-9][0-9]-[0-1][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]"
                  ":[0-6][0-9].[0-9][0-9][0-9]Z' AND ?3 <> ''"
                  " AND CASE WHEN json_valid(?5) THEN json_type(?5) = 'array' AND NOT EXISTS"
                  " (SELECT 1 FROM json_each(?5) WHERE type <> 'text') END RETURNING 1"} {}

void EntryReader::run() {
    int misses = 0;
    std::int64_t step = 1;
    for (std::int64_t sequence = 1; sequence <= highest_;) {
        if (takeIfThere(sequence)) {
            misses = 0;
            step = 1;
        }
        if (++misses > patientMisses) {
            step *= 2;
            sequence = behindGap(sequence, std::min(step, highest_));
        } else {
            ++sequence;
        }
    }
}

bool EntryReader::takeIfThere(std::int64_t sequence) {
    bool taken = false;
    try {
        select_.bind(1, sequence);
        taken = select_.step() && take(sequence);
    } catch (const SqliteError& error) {
        if (error.code() != SQLITE_CORRUPT && error.code() != SQLITE_IOERR) {
            throw;
        }
    }
    select_.reset();
    return taken;
}

/** Where to look on when there was nothing for long. */
std::int64_t EntryReader::behindGap(std::int64_t sequence, std::int64_t step) {
    std::int64_t next = 0;
    try {
        next_.bind(1, sequence);
        next = next_.step() ? std::max(next_.integer(0), sequence + 1) : highest_ + 1;
    } catch (const SqliteError&) { // a bad page
        next = sequence + step;
    }
    next_.reset();
    return next;
}

/** Takes an entry over if it is such as this log writes. */
bool EntryReader::take(std::int64_t sequence) {
    const auto severity = select_.integer(3);
    if (severity < 0 || severity > std::numeric_limits<std::uint16_t>::max() ||
        select_.text(3) != std::to_string(severity)) {
        return false;
    }
    std::array<std::string, 10> texts;
    for (int column = 1; column < 10; ++column) {
        auto& text = texts.at(static_cast<std::size_t>(column));
        text = select_.text(column);
        if (!isText(text)) {
            return false;
        }
        insert_.bind(column + 1, text);
    }
    insert_.bind(1, sequence);
    insert_.bind(4, severity);
    const bool taken = insert_.step();
    insert_.reset();
    if (taken) {
        ++entries;
    }
    return taken;
}

/** Copies what may be there or not, whole or not at all. */
void tryCopy(const Connection& from, const Connection& to, const char* select, const char* insert,
             int columns) {
    to.execute("SAVEPOINT part");
    try {
        Statement rows{from, select};
        while (rows.step()) {
            Statement row{to, insert};
            std::array<std::string, 7> texts;
            for (int column = 0; column < columns; ++column) {
                auto& text = texts.at(static_cast<std::size_t>(column));
                text = rows.text(column);
                row.bind(column + 1, text);
            }
            row.step();
        }
        to.execute("RELEASE part");
    } catch (const SqliteError&) {
        if (sqlite3_get_autocommit(to.get()) == 0) {
            to.execute("ROLLBACK TO part; RELEASE part");
        }
    }
}

void remove(const std::string& path) {
    std::error_code ignored;
    fs::remove(path, ignored);
}

void removeWithLog(const std::string& path) {
    for (const auto* suffix : {"-wal", "-shm", "-journal", ""}) {
        remove(path + suffix);
    }
}

/** A second name for the same file where there are such, or else a copy. */
void linkOrCopy(const std::string& from, const std::string& to) {
    std::error_code failed;
    if (fs::exists(from)) {
        fs::create_hard_link(from, to, failed);
        if (failed) {
            fs::copy_file(from, to);
        }
    }
}

Connection openDamaged(const std::string& path) {
    Connection connection{path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX};
    sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    connection.execute("PRAGMA writable_schema = ON"); // takes a damaged schema as far as it goes
    return connection;
}

std::int64_t highestIn(const Connection& from) {
    constexpr auto sanest = std::int64_t{1} << 48U;
    try {
        const auto highest =
            from.queryInteger("SELECT seq FROM sqlite_sequence WHERE name = 'entries'");
        return highest > 0 && highest < sanest ? highest : sanest;
    } catch (const SqliteError&) {
        return sanest;
    }
}

/** Fills the new database from what can be read of `path`. False when that is nothing. */
bool fill(const Connection& to, const std::string& path, std::int64_t reserved, Salvage& salvage) {
    const auto from = openDamaged(path);
    // A number above those that were reserved is none of the log's.
    EntryReader reader{from, to, reserved != 0 ? reserved : highestIn(from)};
    reader.run();
    if (reader.entries == 0) {
        return false;
    }
    tryCopy(from, to, "SELECT dropped, last_clear FROM state",
            "UPDATE state SET dropped = CAST(?1 AS INTEGER), last_clear = nullif(?2, '')", 2);
    tryCopy(from, to, "SELECT spill FROM state", "UPDATE state SET spill = CAST(?1 AS INTEGER)", 1);
    tryCopy(from, to,
            "SELECT message_id, severity, device, recorded, dropped, last_dropped, last_dropped_at"
            " FROM totals",
            "INSERT INTO totals SELECT ?1, CAST(?2 AS INTEGER), ?3, CAST(?4 AS INTEGER),"
            " CAST(?5 AS INTEGER), CAST(nullif(?6, '') AS INTEGER), nullif(?7, '')",
            7);
    tryCopy(from, to, "SELECT cause, events, acknowledged, last_at FROM losses",
            "INSERT INTO losses SELECT ?1, CAST(?2 AS INTEGER), CAST(?3 AS INTEGER),"
            " nullif(?4, '')",
            4);
    salvage.entries = reader.entries;
    return true;
}

/** Gives a copy the first page of a database that was just made: the entries begin on the same page
 *  in all of them. */
void replaceFirstPage(const std::string& path, const std::string& made) {
    std::array<char, pageSize> page{};
    std::ifstream{made, std::ios::binary}.read(page.data(), page.size());
    page.at(18) = page.at(19) = 2;              // has a write-ahead log
    std::fill_n(page.begin() + 92, 4, char{0}); // so the size is that of the file
    std::fstream file{path, std::ios::binary | std::ios::in | std::ios::out};
    file.write(page.data(), page.size());
}

void fillWithAnotherFirstPage(const Connection& to, const std::string& made,
                              const std::string& aside, std::int64_t reserved, Salvage& salvage) {
    const auto copy = made + "-copy";
    removeWithLog(copy);
    fs::copy_file(aside, copy);
    if (fs::exists(aside + "-wal")) {
        fs::copy_file(aside + "-wal", copy + "-wal");
    }
    replaceFirstPage(copy, made);
    try {
        fill(to, copy, reserved, salvage);
    } catch (const SqliteError&) { // nothing to be read here either
    }
    removeWithLog(copy);
}

void makeSalvaged(const std::string& made, const std::string& aside, std::int64_t reserved,
                  std::int64_t room, Salvage& salvage) {
    removeWithLog(made);
    const Connection to{made, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX};
    to.execute("PRAGMA synchronous = EXTRA");
    makeWithRoom(to, room);
    Transaction transaction{to};
    bool filled = false;
    try {
        // Opened as it is, an empty one would lose its log.
        filled = fs::file_size(aside) != 0 && fill(to, aside, reserved, salvage);
    } catch (const SqliteError& error) {
        if (error.code() != SQLITE_NOTADB && error.code() != SQLITE_CORRUPT &&
            error.code() != SQLITE_ERROR) { // the last: it has no such table
            throw;
        }
    }
    if (!filled) {
        fillWithAnotherFirstPage(to, made, aside, reserved, salvage);
    }
    Statement number{to, "INSERT OR REPLACE INTO sqlite_sequence (rowid, name, seq) VALUES (1,"
                         " 'entries', max(?, coalesce((SELECT max(sequence) FROM entries), 0)))"};
    number.bind(1, reserved);
    number.step();
    to.execute("UPDATE state SET gone = (SELECT seq FROM sqlite_sequence) -"
               " (SELECT count(*) FROM entries)");
    transaction.commit();
}

} // namespace

Salvage replaceDamaged(const std::string& path, std::int64_t reserved, std::int64_t room) {
    std::string time{text::UtcTime{std::chrono::system_clock::now()}.text()};
    std::erase_if(time, [](char c) { return c == '-' || c == ':'; });
    Salvage salvage;
    salvage.asideAt = path + ".damaged-" + time;
    const auto made = path + ".salvage";
    try {
        linkOrCopy(path, salvage.asideAt);
        linkOrCopy(path + "-wal", salvage.asideAt + "-wal");
        makeSalvaged(made, salvage.asideAt, reserved, room, salvage);
        remove(salvage.asideAt + "-shm");
        fs::rename(made, path + ".salvaged"); // From here on it is the log.
    } catch (...) {
        removeWithLog(made);
        removeWithLog(salvage.asideAt);
        throw;
    }
    finishReplacing(path);
    return salvage;
}

void finishReplacing(const std::string& path) {
    if (fs::exists(path + ".salvaged")) {
        const Directory directory{fs::path{path}.parent_path()};
        // The old log would be taken for the new database's.
        remove(path + "-wal");
        remove(path + "-shm");
        directory.sync();
        fs::rename(path + ".salvaged", path);
        directory.sync();
    }
}

} // namespace tavrisk::zel
