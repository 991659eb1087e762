// SPDX-License-Identifier: Apache-2.0
#include "zel/store.hpp"

#include "text/utc_time.hpp"
#include "zel/files.hpp"
#include "zel/layout.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace tavrisk::zel {
namespace {

// How long other processes may hold the database before a write is given up.
constexpr std::chrono::seconds patience{10};

/** A directory that cannot be made shows when the database in it cannot. */
void makeDirectory(const std::filesystem::path& directory) {
    std::error_code ignored;
    if (!directory.empty() && std::filesystem::create_directories(directory, ignored)) {
        Directory{directory.parent_path()}.sync();
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

template <typename Body>
auto patiently(Body body) {
    return retryUntil(
        std::chrono::steady_clock::now() + patience, std::chrono::milliseconds{5},
        [](const SqliteError& error) { return error.code() == SQLITE_BUSY; }, body);
}

/** SQLite does not wait by itself while another process turns a new database into a WAL one. */
Connection openPatiently(const std::string& path) {
    return patiently([&path] { return openForWriting(path); });
}

/** One process at a time replaces a database; the others find the new one in its place. */
void waitForLock(const Directory& directory) {
    patiently([&directory] {
        if (!directory.tryLock()) {
            throw SqliteError{SQLITE_BUSY, "being replaced"};
        }
    });
}

std::string bootId() {
    std::string id;
    std::getline(std::ifstream{"/proc/sys/kernel/random/boot_id"}, id);
    return id;
}

bool isDamaged(const Refused& refused) {
    return refused.reason() == Refused::Reason::damaged;
}

/** Wakes readers that watch the directory. What a commit writes can be seen there before its
 * entries can, so a file is closed once more afterwards. SQLite has its locks on the other two
 * files: they would be lost. */
void announce(const Connection& connection) {
    const char* const log = sqlite3_filename_wal(sqlite3_db_filename(connection.get(), "main"));
    const int opened = ::open(log, O_WRONLY | O_CLOEXEC);
    if (opened >= 0) {
        ::close(opened);
    }
}

} // namespace

Store::Store(const std::string& path, Condition condition)
    : numbers_{(makeDirectory(std::filesystem::path{path}.parent_path()), path + ".numbers")},
      connection_{open(path, condition)},
      insert_{connection_, "INSERT INTO entries (time, message_id, severity, arguments,"
                           " boot_id, since_boot) VALUES (?, ?, ?, ?, ?, ?)"},
      totals_{connection_},
      shares_{connection_, totals_},
      bootId_{bootId()} {
    countOn();
}

Connection Store::open(const std::string& path, Condition condition) {
    const bool leftUnfinished = std::filesystem::exists(path + ".salvaged");
    try {
        if (condition == Condition::unknown && !leftUnfinished) {
            return openPatiently(path);
        }
    } catch (const Refused& refused) {
        if (!isDamaged(refused)) {
            throw;
        }
    }
    const Directory directory{std::filesystem::path{path}.parent_path()};
    waitForLock(directory);
    finishReplacing(path);
    try {
        if (condition == Condition::unknown) {
            return openPatiently(path);
        }
    } catch (const Refused& refused) {
        if (!isDamaged(refused)) {
            throw;
        }
    }
    salvage_ = replaceDamaged(path, numbers_.read().reserved);
    return openPatiently(path);
}

/** A database that does not know of numbers that were given out goes on above them. */
void Store::countOn() {
    const auto numbers = numbers_.read();
    Statement highest{connection_, "SELECT coalesce((SELECT seq FROM sqlite_sequence"
                                   " WHERE name = 'entries'), 0)"};
    if (numbers.used == 0 || (highest.step() && highest.integer(0) >= numbers.used)) {
        return;
    }
    highest.reset();
    Transaction transaction{connection_};
    Statement skip{connection_, "UPDATE state SET gone = gone + ?1 - coalesce((SELECT max(seq)"
                                " FROM sqlite_sequence), 0)"};
    skip.bind(1, numbers.reserved);
    skip.step();
    connection_.execute("DELETE FROM sqlite_sequence WHERE name = 'entries'");
    Statement go{connection_, "INSERT INTO sqlite_sequence (name, seq) VALUES ('entries', ?)"};
    go.bind(1, numbers.reserved);
    go.step();
    transaction.commit();
}

void Store::append(std::span<const Entry> entries, std::int64_t maxEntries, const Losses& losses) {
    Transaction transaction{connection_};
    const auto last = insert(entries);
    numbers_.reserve(last);
    shares_.keepTo(maxEntries, entries, last);
    addLosses(connection_, losses);
    transaction.commit();
    shares_.committed();
    numbers_.use(last);
    announce(connection_);
}

/** Returns the number of the last one. */
std::int64_t Store::insert(std::span<const Entry> entries) {
    std::int64_t last = 0;
    for (const auto& entry : entries) {
        insert_.bind(1, entry.time);
        insert_.bind(2, entry.messageId);
        insert_.bind(3, std::int64_t{entry.severity});
        insert_.bind(4, entry.arguments);
        insert_.bind(5, bootId_);
        insert_.bind(6, entry.sinceBoot);
        insert_.step();
        last = sqlite3_last_insert_rowid(connection_.get()); // before that of a total
        insert_.reset();
        totals_.count(entry);
    }
    return last;
}

void Store::clear() {
    Transaction transaction{connection_};
    connection_.execute("DELETE FROM entries");
    shares_.forget();
    Statement note{connection_, "UPDATE state SET last_clear = ?, gone = gone + ?"};
    const text::UtcTime now{std::chrono::system_clock::now()};
    note.bind(1, now.text());
    note.bind(2, sqlite3_changes64(connection_.get()));
    note.step();
    transaction.commit();
    announce(connection_);
}

} // namespace tavrisk::zel
