// SPDX-License-Identifier: Apache-2.0
#include "zel/reader.hpp"

#include "text/hex.hpp"
#include "zel/layout.hpp"
#include "zel/reading.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <string_view>

namespace tavrisk::zel {
namespace {

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

/** The path as a URI that tells SQLite that nobody writes to the file. */
std::string immutableUri(const std::string& path) {
    std::string uri = "file:";
    for (const char c : path) {
        const auto pair = text::hexPair(static_cast<std::uint8_t>(c));
        uri.append("%").append(pair.data(), pair.size());
    }
    return uri + "?immutable=1";
}

/** Without its write-ahead log nobody is writing, or it would be there: the database can be read as
 *  it stands, also where a reader may not make files, and no file appears beside a lone copy. */
bool mustBeReadAsItStands(const std::string& path) {
    return !exists(path + "-wal") && !exists(path + "-journal");
}

/** Whoever opens the database first restores the write-ahead log and keeps writers waiting for that
 *  moment: it must not be drawn out until somebody brings a stopped job back. */
class NoStops {
public:
    NoStops() {
        sigset_t stops{};
        sigemptyset(&stops);
        for (const int signal : {SIGTSTP, SIGTTIN, SIGTTOU}) {
            sigaddset(&stops, signal);
        }
        sigprocmask(SIG_BLOCK, &stops, &before_);
    }
    ~NoStops() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    NoStops(const NoStops&) = delete;
    NoStops& operator=(const NoStops&) = delete;

private:
    sigset_t before_{};
};

Connection connect(const std::string& path, bool immutable) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
        throw Unreadable{path + ": " + std::strerror(errno)}; // NOLINT(concurrency-mt-unsafe)
    }
    if (!S_ISREG(status.st_mode)) {
        throw Unreadable{path + ": is not a file"};
    }
    constexpr int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
    Connection connection = immutable ? Connection{immutableUri(path), flags | SQLITE_OPEN_URI}
                                      : Connection{path, flags};
    sqlite3_busy_timeout(connection.get(), 1000);
    return connection;
}

/** The entries, with what an older layout does not have. */
const char* entriesOf(std::int64_t schemaVersion) {
    return schemaVersion >= 3
               ? "entries"
               : "(SELECT *, NULL AS boot_id, NULL AS since_boot, 0 AS salvaged, NULL AS"
                 " acknowledged_by, NULL AS acknowledged_at, NULL AS acknowledgement_note"
                 " FROM entries)";
}

LogEntry entryOf(const Statement& row) {
    LogEntry entry{row.integer(0), row.text(1), row.text(2), row.integer(3),
                   parseArguments(row.text(4)).value_or(std::vector{row.text(4)})};
    entry.bootId = row.text(5);
    if (!row.isNull(6)) {
        entry.sinceBoot = std::chrono::milliseconds{row.integer(6)};
    }
    entry.salvaged = row.integer(7) != 0;
    if (!row.isNull(9)) {
        entry.acknowledgement = {row.text(8), row.text(9), row.text(10)};
    }
    return entry;
}

/** For SQL to look through: each with a line end on either side. */
std::string listOf(const std::vector<std::string>& texts) {
    std::string list;
    for (const auto& text : texts) {
        list += "\n" + text + "\n";
    }
    return list;
}

std::int64_t bitsOf(const std::set<Severity>& severities) {
    std::int64_t bits = 0;
    for (const auto severity : severities) {
        bits |= std::int64_t{1} << code(severity);
    }
    return bits;
}

} // namespace

const std::string& LogEntry::device() const {
    static const std::string none;
    return arguments.empty() ? none : arguments.front();
}

LogReader::LogReader(const std::string& path, bool immutable)
    : immutable_{immutable},
      connection_{connect(path, immutable)},
      schemaVersion_{schemaVersionOf(connection_)} {}

LogReader LogReader::open(const std::string& path) {
    try {
        return patiently([&path] {
            const NoStops whileOpening;
            return LogReader{path, mustBeReadAsItStands(path)};
        });
    } catch (const Refused& refused) {
        const bool newer = refused.reason() == Refused::Reason::newer;
        throw Unreadable{path +
                             (newer ? " was written by a later version of this program"
                                    : " is damaged, or no event log") +
                             "; it is left as it is",
                         !newer};
    } catch (const SqliteError& error) {
        throw Unreadable{path + " cannot be read: " + error.what() +
                         (exists(path + "-wal") && !exists(path + "-shm")
                              ? "; its -shm file is missing, and cannot be made beside it"
                              : "")};
    }
}

void LogReader::forEach(const Filter& filter, bool oldestFirst,
                        const std::function<bool(const LogEntry&)>& take) const {
    if (schemaVersion_ == 0) {
        return;
    }
    std::int64_t beyond =
        oldestFirst ? filter.after.value_or(0) : std::numeric_limits<std::int64_t>::max();
    // Few at first, for who wants few.
    for (std::size_t size = 32;; size = std::min<std::size_t>(size * 4, 512)) {
        const auto entries = patiently([&] { return page(filter, oldestFirst, beyond, size); });
        for (const auto& entry : entries) {
            if ((!filter.also || filter.also(entry)) && !take(entry)) {
                return;
            }
        }
        if (entries.size() < size) {
            return;
        }
        beyond = entries.back().sequence;
    }
}

std::vector<LogEntry> LogReader::page(const Filter& filter, bool oldestFirst, std::int64_t beyond,
                                      std::size_t size) const {
    Statement query{
        connection_,
        std::string{"SELECT sequence, time, message_id, severity, arguments, boot_id, since_boot,"
                    " salvaged, acknowledged_by, acknowledged_at, acknowledgement_note FROM "} +
            entriesOf(schemaVersion_) + " WHERE sequence " +
            (oldestFirst ? "> ?1" : "< ?1 AND sequence > ?2") +
            " AND (?3 IS NULL OR time >= ?3) AND (?4 IS NULL OR time <= ?4)"
            " AND (?5 = 0 OR ?5 >> CASE WHEN severity IN (1, 2) THEN severity ELSE 3 END & 1)"
            " AND (?6 = '' OR instr(?6, char(10) || message_id || char(10)))"
            " AND (?7 = '' OR NOT instr(?7, char(10) || message_id || char(10)))"
            " AND (?8 IS NULL OR boot_id = ?8) AND (NOT ?9 OR acknowledged_at IS NULL)"
            " ORDER BY sequence " +
            (oldestFirst ? "ASC" : "DESC") + " LIMIT " + std::to_string(size)};
    query.bind(1, beyond);
    if (!oldestFirst) {
        query.bind(2, filter.after.value_or(0));
    }
    const auto bindText = [&query](int parameter, const std::optional<std::string>& text) {
        if (text) {
            query.bind(parameter, *text);
        }
    };
    const auto ids = listOf(filter.messageIds);
    const auto otherThanIds = listOf(filter.otherThanIds);
    bindText(3, filter.since);
    bindText(4, filter.until);
    query.bind(5, bitsOf(filter.severities));
    query.bind(6, ids);
    query.bind(7, otherThanIds);
    bindText(8, filter.bootId);
    query.bind(9, std::int64_t{filter.open ? 1 : 0});
    std::vector<LogEntry> entries;
    while (query.step()) {
        entries.push_back(entryOf(query));
    }
    return entries;
}

std::optional<LogEntry> LogReader::find(std::int64_t sequence) const {
    std::optional<LogEntry> found;
    Filter filter;
    filter.after = sequence - 1;
    forEach(filter, true, [&found, sequence](const LogEntry& entry) {
        if (entry.sequence == sequence) {
            found = entry;
        }
        return false;
    });
    return found;
}

bool LogReader::seesNewEntries() const {
    return !immutable_ && schemaVersion_ != 0;
}

} // namespace tavrisk::zel
