// SPDX-License-Identifier: Apache-2.0
#include "zel/reader.hpp"

#include "text/hex.hpp"
#include "zel/layout.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <strings.h>
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

constexpr std::chrono::seconds patience{5};
constexpr int pageSize = 500;

/** Whether an error may come from another process that is just making, or recovering, the database:
 *  a reader without the right to help finds files missing, or is told that it may only read. */
bool mayPass(const SqliteError& error) {
    const auto code = error.code();
    return code == SQLITE_BUSY || code == SQLITE_READONLY || code == SQLITE_PROTOCOL ||
           code == SQLITE_CANTOPEN;
}

template <typename Read>
auto patiently(Read read) {
    return retryUntil(std::chrono::steady_clock::now() + patience, std::chrono::milliseconds{20},
                      mayPass, read);
}

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

/** A reader must make the files of the write-ahead log unless they are there. Where it may not,
 *  nobody is writing, or they would be there: the database can be read as it stands. */
bool mustBeReadAsItStands(const std::string& path) {
    const auto directory = path.find('/') == std::string::npos
                               ? std::string{"."}
                               : path.substr(0, path.rfind('/') + 1);
    return !exists(path + "-wal") && access(directory.c_str(), W_OK) != 0;
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

/** The strings of a JSON array; nothing when there is something else. */
std::optional<std::vector<std::string>> parseArguments(const std::string& json) {
    try {
        Json::Value root;
        const std::unique_ptr<Json::CharReader> reader{Json::CharReaderBuilder{}.newCharReader()};
        if (reader->parse(json.data(), json.data() + json.size(), &root, nullptr) &&
            root.isArray()) {
            std::vector<std::string> arguments;
            for (const auto& element : root) {
                arguments.push_back(element.asString());
            }
            return arguments;
        }
    } catch (const std::exception&) { // Nested too deeply, or no strings.
    }
    return std::nullopt;
}

bool contains(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return strncasecmp(&a, &b, 1) == 0; }) != text.end();
}

} // namespace

const std::string& LogEntry::device() const {
    static const std::string none;
    return arguments.empty() ? none : arguments.front();
}

LogReader::LogReader(const std::string& path, bool immutable)
    : immutable_{immutable},
      connection_{connect(path, immutable)},
      schemaVersion_{checkedSchemaVersion(connection_)} {}

LogReader LogReader::open(const std::string& path) {
    try {
        return patiently([&path] {
            const NoStops whileOpening;
            return LogReader{path, mustBeReadAsItStands(path)};
        });
    } catch (const Refused& refused) {
        throw Unreadable{path +
                         (refused.reason() == Refused::Reason::newer
                              ? " was written by a later version of this program"
                              : " is damaged, or no event log") +
                         "; it is left as it is"};
    } catch (const SqliteError& error) {
        throw Unreadable{path + " cannot be read: " + error.what() +
                         (exists(path + "-wal") && !exists(path + "-shm")
                              ? "; its -shm file is missing, and cannot be made beside it"
                              : "")};
    }
}

Health LogReader::health() const {
    return patiently([this] {
        const Transaction view{connection_, Transaction::Kind::read};
        Health health{};
        health.schemaVersion = schemaVersion_;
        if (schemaVersion_ == 0) { // an empty file, about to be laid out
            return health;
        }
        Statement entries{connection_, "SELECT count(*), min(sequence), max(sequence),"
                                       " (SELECT max(seq) FROM sqlite_sequence) FROM entries"};
        entries.step();
        health.entries = entries.integer(0);
        health.first = entries.integer(1);
        health.last = entries.integer(2);
        health.highest = entries.integer(3);
        if (schemaVersion_ >= 2) {
            Statement state{connection_, "SELECT dropped, last_clear FROM state"};
            state.step();
            health.dropped = state.integer(0);
            if (auto time = state.text(1); !time.empty()) {
                health.lastClear = std::move(time);
            }
        }
        return health;
    });
}

void LogReader::forEach(const Filter& filter, bool oldestFirst,
                        const std::function<bool(const LogEntry&)>& take) const {
    if (schemaVersion_ == 0) {
        return;
    }
    std::int64_t beyond =
        oldestFirst ? filter.after.value_or(0) : std::numeric_limits<std::int64_t>::max();
    for (;;) {
        const auto entries = patiently([&] { return page(filter, oldestFirst, beyond); });
        for (const auto& entry : entries) {
            if (!filter.device || contains(entry.device(), *filter.device)) {
                if (!take(entry)) {
                    return;
                }
            }
        }
        if (entries.size() < pageSize) {
            return;
        }
        beyond = entries.back().sequence;
    }
}

std::vector<LogEntry> LogReader::page(const Filter& filter, bool oldestFirst,
                                      std::int64_t beyond) const {
    Statement query{
        connection_,
        std::string{"SELECT sequence, time, message_id, severity, arguments FROM entries"
                    " WHERE sequence "} +
            (oldestFirst ? "> ?1" : "< ?1 AND sequence > ?2") +
            " AND (?3 IS NULL OR time >= ?3) AND (?4 IS NULL OR time <= ?4)"
            " AND (?5 IS NULL OR message_id = ?5 COLLATE NOCASE)"
            " AND (?6 IS NULL OR CASE WHEN severity IN (1, 2) THEN severity ELSE 3 END = ?6)"
            " ORDER BY sequence " +
            (oldestFirst ? "ASC" : "DESC") + " LIMIT " + std::to_string(pageSize)};
    query.bind(1, beyond);
    if (!oldestFirst) {
        query.bind(2, filter.after.value_or(0));
    }
    const auto bindText = [&query](int parameter, const std::optional<std::string>& text) {
        if (text) {
            query.bind(parameter, *text);
        }
    };
    bindText(3, filter.since);
    bindText(4, filter.until);
    bindText(5, filter.messageId);
    if (filter.severity) {
        query.bind(6, static_cast<std::int64_t>(*filter.severity));
    }
    std::vector<LogEntry> entries;
    while (query.step()) {
        entries.push_back({query.integer(0), query.text(1), query.text(2), query.integer(3),
                           parseArguments(query.text(4)).value_or(std::vector{query.text(4)})});
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

std::vector<std::string> LogReader::findDamage() const {
    return patiently([this] {
        std::vector<std::string> damage;
        Statement check{connection_, "PRAGMA integrity_check"};
        while (check.step()) {
            if (auto finding = check.text(0); finding != "ok") {
                damage.push_back(std::move(finding));
            }
        }
        if (schemaVersion_ != 0) {
            // Later layouts know how many numbers have no entry any more.
            const auto missing = connection_.queryInteger(
                schemaVersion_ >= 3 ? "SELECT coalesce((SELECT max(seq) FROM sqlite_sequence), 0) -"
                                      " (SELECT count(*) FROM entries) - gone FROM state"
                                    : "SELECT max(sequence) - min(sequence) + 1 - count(*)"
                                      " FROM entries");
            if (missing > 0) {
                damage.push_back(std::to_string(missing) +
                                 " entries are missing that were neither dropped nor cleared");
            }
            findDamagedEntries(damage);
        }
        if (schemaVersion_ >= 2 && connection_.queryInteger("SELECT count(*) FROM state") != 1) {
            damage.emplace_back("the count of dropped entries and the last clearing are missing");
        }
        return damage;
    });
}

void LogReader::findDamagedEntries(std::vector<std::string>& damage) const {
    if (connection_.queryInteger("SELECT coalesce((SELECT max(sequence) FROM entries), 0) >"
                                 " coalesce((SELECT max(seq) FROM sqlite_sequence), 0)") != 0) {
        damage.emplace_back("the last sequence number is not remembered and would be used again");
    }
    Statement entries{connection_, "SELECT sequence, arguments FROM entries"};
    while (entries.step()) {
        if (!parseArguments(entries.text(1))) {
            damage.push_back("entry " + entries.text(0) + " has no list of arguments");
        }
    }
}

bool LogReader::seesNewEntries() const {
    return !immutable_ && schemaVersion_ != 0;
}

} // namespace tavrisk::zel
