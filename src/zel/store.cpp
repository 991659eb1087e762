// SPDX-License-Identifier: Apache-2.0
#include "zel/store.hpp"

#include "text/utc_time.hpp"
#include "zel/files.hpp"
#include "zel/layout.hpp"
#include "zel/room.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace tavrisk::zel {
namespace {

// With a checkpoint at so many pages, there is room for as many of the next transaction in a log of
// this size, which it keeps.
constexpr std::uint32_t pagesToCheckpoint = 256;
constexpr off_t logSize = 2097152;
constexpr std::uint32_t mostPagesInLog = 4072; // 16 MiB

/** A directory that cannot be made shows when the database in it cannot. */
void makeDirectory(const std::filesystem::path& directory) {
    std::error_code ignored;
    if (!directory.empty() && std::filesystem::create_directories(directory, ignored)) {
        Directory{directory.parent_path()}.sync();
    }
}

/** Bytes of an entry with a device of 36 characters, all that comes with it included. */
constexpr std::int64_t bytesOfEntry = 192;

Connection openForWriting(const std::string& path, const Opening& opening) {
    Connection connection{path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX};
    sqlite3_busy_timeout(connection.get(), static_cast<int>(opening.patience.count()));
    // Closing must neither touch a database that was refused nor remove, by name, the write-ahead
    // log of the one that has taken this one's place. And readers without the right to make the
    // log's files need them to stay.
    sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);

    const auto version = checkedSchemaVersion(connection);
    if (version == 0) {
        makeWithRoom(connection, opening.entries * bytesOfEntry);
    }
    finishRoom(connection);
    connection.execute("PRAGMA journal_mode = WAL;"
                       "PRAGMA synchronous = FULL;"            // a commit survives loss of power
                       "PRAGMA journal_size_limit = 2097152"); // as logSize
    if (version < schemaVersion) {
        bringUpToDate(connection);
    }
    return connection;
}

template <typename Body>
auto patiently(Patience patience, Body body) {
    return retryUntil(
        std::chrono::steady_clock::now() + patience, std::chrono::milliseconds{5},
        [](const SqliteError& error) { return error.code() == SQLITE_BUSY; }, body);
}

/** SQLite does not wait by itself while another process turns a new database into a WAL one. */
Connection openPatiently(const std::string& path, const Opening& opening) {
    return patiently(opening.patience, [&] { return openForWriting(path, opening); });
}

/** One process at a time replaces a database; the others find the new one in its place. */
void waitForLock(const Directory& directory, Patience patience) {
    patiently(patience, [&directory] {
        if (!directory.tryLock()) {
            throw SqliteError{SQLITE_BUSY, "being replaced"};
        }
    });
}

/** SQLite takes an empty file for a new database, and removes the log that it has. */
bool isEmptied(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::file_size(path, ignored) == 0 &&
           static_cast<std::int64_t>(std::filesystem::file_size(path + "-wal", ignored)) > 0;
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

std::string bootId() {
    std::string id;
    std::getline(std::ifstream{"/proc/sys/kernel/random/boot_id"}, id);
    return id;
}

Store::Store(const std::string& path, const Opening& opening)
    : numbers_{(makeDirectory(std::filesystem::path{path}.parent_path()), path + ".numbers")},
      connection_{open(path, opening)},
      begin_{connection_, "BEGIN IMMEDIATE"},
      commit_{connection_, "COMMIT"},
      insert_{connection_, "INSERT OR IGNORE INTO entries (time, message_id, severity, arguments,"
                           " boot_id, since_boot, sequence)"
                           " VALUES (?, ?, ?, ?, ?, ?, nullif(?, 0))"},
      oldest_{connection_, "SELECT min(sequence) FROM entries"},
      totals_{connection_},
      shares_{connection_, totals_},
      bootId_{bootId()} {
    countOn();
    oldest(); // with what is read first, SQLite makes the last of its files
    guard_ = std::make_unique<Guard>(path);
    guard_->reserveLog(logSize);
}

Store::~Store() {
    if (guard_) { // else the constructor has failed
        guard_->growSharedMemory();
    }
}

Connection Store::open(const std::string& path, const Opening& opening) {
    const auto condition = isEmptied(path) ? Condition::damaged : opening.condition;
    const bool leftUnfinished = std::filesystem::exists(path + ".salvaged");
    try {
        if (condition == Condition::unknown && !leftUnfinished) {
            return openPatiently(path, opening);
        }
    } catch (const Refused& refused) {
        if (!isDamaged(refused)) {
            throw;
        }
    }
    const Directory directory{std::filesystem::path{path}.parent_path()};
    waitForLock(directory, opening.patience);
    finishReplacing(path);
    try {
        if (condition == Condition::unknown) {
            return openPatiently(path, opening);
        }
    } catch (const Refused& refused) {
        if (!isDamaged(refused)) {
            throw;
        }
    }
    salvage_ = replaceDamaged(path, numbers_.read().reserved, opening.entries * bytesOfEntry);
    return openPatiently(path, opening);
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

Guard::State Store::look() {
    guard_->growSharedMemory();
    return guard_->look();
}

std::vector<std::int64_t> Store::append(std::span<const Entry> entries, std::int64_t maxEntries,
                                        const Losses& losses, std::int64_t spillMark) {
    Transaction transaction{connection_, begin_, commit_};
    std::vector<std::int64_t> numbers;
    std::vector<const Entry*> added;
    bool restored = false;
    std::int64_t last = 0;
    for (const auto& entry : entries) {
        numbers.push_back(insert(entry));
        if (numbers.back() != 0) {
            added.push_back(&entry);
        }
        restored = restored || entry.sequence != 0;
        last = entry.sequence == 0 ? numbers.back() : last;
    }
    totals_.count(added);
    numbers_.reserve(last);
    if (restored) {
        countRestored();
    }
    shares_.keepTo(maxEntries, entries, last);
    addLosses(connection_, losses);
    if (spillMark != 0) {
        connection_.execute(("UPDATE state SET spill = " + std::to_string(spillMark)).c_str());
    }
    transaction.commit();
    shares_.committed();
    if (last != 0) {
        numbers_.use(last);
    }
    announce(connection_);
    return numbers;
}

/** Entries with earlier numbers than the last have come in. */
void Store::countRestored() {
    connection_.execute("UPDATE state SET gone = (SELECT max(seq) FROM sqlite_sequence) -"
                        " (SELECT count(*) FROM entries)");
    shares_.forget();
}

/** Returns its number; 0 when there is one with that already. */
std::int64_t Store::insert(const Entry& entry) {
    insert_.bind(1, entry.time);
    insert_.bind(2, entry.messageId);
    insert_.bind(3, std::int64_t{entry.severity});
    insert_.bind(4, entry.arguments);
    insert_.bind(5, entry.bootId.empty() ? bootId_ : entry.bootId);
    insert_.bind(6, entry.sinceBoot);
    insert_.bind(7, entry.sequence);
    insert_.step();
    insert_.reset();
    if (sqlite3_changes64(connection_.get()) == 0) {
        return 0;
    }
    return sqlite3_last_insert_rowid(connection_.get());
}

std::int64_t Store::spillMark() const {
    return connection_.queryInteger("SELECT spill FROM state");
}

std::int64_t Store::oldest() {
    if (shares_.mayHaveRemoved()) {
        oldest_.step();
        oldestSeen_ = oldest_.integer(0);
        oldest_.reset();
    }
    return oldestSeen_;
}

bool Store::checkpoint() const {
    if (guard_->pagesInLog() < pagesToCheckpoint) {
        return false;
    }
    // Where others keep it from being done, there is a next time.
    sqlite3_wal_checkpoint_v2(connection_.get(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr,
                              nullptr);
    guard_->reserveLog(logSize);
    return true;
}

bool Store::isLogTooLong() const {
    if (guard_->pagesInLog() < mostPagesInLog) {
        return false;
    }
    setPatience(std::chrono::milliseconds{0});
    return sqlite3_wal_checkpoint_v2(connection_.get(), "main", SQLITE_CHECKPOINT_RESTART, nullptr,
                                     nullptr) != SQLITE_OK;
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
