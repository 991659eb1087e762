// SPDX-License-Identifier: Apache-2.0
#include "zel/store.hpp"

#include "text/utc_time.hpp"
#include "zel/layout.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <system_error>

namespace tavrisk::zel {
namespace {

// How long other processes may hold the database before a write is given up.
constexpr std::chrono::seconds patience{10};

void syncDirectory(const std::filesystem::path& directory) {
    const int opened = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened >= 0) {
        fsync(opened);
        close(opened);
    }
}

/** A directory that cannot be made shows when the database in it cannot. */
void makeDirectory(const std::filesystem::path& directory) {
    std::error_code ignored;
    if (!directory.empty() && std::filesystem::create_directories(directory, ignored)) {
        syncDirectory(directory.parent_path());
    }
}

Connection openForWriting(const std::string& path) {
    Connection connection{path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX};
    sqlite3_busy_timeout(connection.get(),
                         static_cast<int>(std::chrono::milliseconds{patience}.count()));
    // Closing must neither touch a database that was refused nor remove, by name, the write-ahead
    // log of the one that has taken this one's place. And readers without the right to make the
    // log's files need them to stay.
    sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);

    const auto version = checkedSchemaVersion(connection);
    connection.execute("PRAGMA journal_mode = WAL;"
                       "PRAGMA synchronous = FULL;" // a commit survives loss of power
                       "PRAGMA wal_autocheckpoint = 256;"
                       "PRAGMA journal_size_limit = 1048576");
    if (version < schemaVersion) {
        bringUpToDate(connection);
    }
    return connection;
}

/** SQLite does not wait by itself while another process turns a new database into a WAL one. */
Connection openPatiently(const std::string& path) {
    return retryUntil(
        std::chrono::steady_clock::now() + patience, std::chrono::milliseconds{5},
        [](const SqliteError& error) { return error.code() == SQLITE_BUSY; },
        [&path] { return openForWriting(path); });
}

/** Wakes readers that watch the directory. What a commit writes can be seen there before its
 * entries can, so a file is closed once more afterwards. SQLite has its locks on the other two
 * files: they would be lost. */
void announce(const Connection& connection) {
    const char* const log = sqlite3_filename_wal(sqlite3_db_filename(connection.get(), "main"));
    const int opened = open(log, O_WRONLY | O_CLOEXEC);
    if (opened >= 0) {
        close(opened);
    }
}

} // namespace

Store::Store(const std::string& path)
    : connection_{(makeDirectory(std::filesystem::path{path}.parent_path()), openPatiently(path))} {
}

void Store::append(std::span<const Entry> entries, std::int64_t maxEntries) {
    Transaction transaction{connection_};
    Statement insert{connection_, "INSERT INTO entries (time, message_id, severity, arguments)"
                                  " VALUES (?, ?, ?, ?)"};
    for (const auto& entry : entries) {
        insert.bind(1, entry.time);
        insert.bind(2, entry.messageId);
        insert.bind(3, std::int64_t{entry.severity});
        insert.bind(4, entry.arguments);
        insert.step();
        insert.reset();
    }

    // Sequence numbers have no gaps but the one a clearing leaves before the first entry, so the
    // newest one tells how many there are without counting them.
    Statement drop{connection_,
                   "DELETE FROM entries WHERE sequence <= (SELECT max(sequence) FROM entries) - ?"};
    drop.bind(1, maxEntries);
    drop.step();
    if (const auto dropped = sqlite3_changes64(connection_.get()); dropped != 0) {
        Statement count{connection_, "UPDATE state SET dropped = dropped + ?"};
        count.bind(1, dropped);
        count.step();
    }
    transaction.commit();
    announce(connection_);
}

void Store::clear() {
    Transaction transaction{connection_};
    connection_.execute("DELETE FROM entries");
    Statement note{connection_, "UPDATE state SET last_clear = ?"};
    const text::UtcTime now{std::chrono::system_clock::now()};
    note.bind(1, now.text());
    note.step();
    transaction.commit();
    announce(connection_);
}

} // namespace tavrisk::zel
