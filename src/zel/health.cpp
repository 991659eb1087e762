// SPDX-License-Identifier: Apache-2.0
#include "zel/json_text.hpp"
#include "zel/layout.hpp"
#include "zel/reader.hpp"
#include "zel/reading.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

// What the reader tells of the log as a whole.
namespace tavrisk::zel {

namespace {

/** What stands between the quotes of an array of one text without escapes, which is what nearly all
 *  entries have. */
std::optional<std::string> plainText(std::string_view json) {
    constexpr std::string_view begin = "[\"";
    constexpr std::string_view end = "\"]";
    if (json.size() < begin.size() + end.size() || !json.starts_with(begin) ||
        !json.ends_with(end)) {
        return std::nullopt;
    }
    const auto text = json.substr(begin.size(), json.size() - begin.size() - end.size());
    const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
        return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= ' ';
    });
    return plain ? std::optional{std::string{text}} : std::nullopt;
}

} // namespace

std::optional<std::vector<std::string>> parseArguments(const std::string& json) {
    if (auto text = plainText(json)) {
        return std::vector{std::move(*text)};
    }
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

Position LogReader::positionOf(std::int64_t sequence) const {
    Statement entry{connection_, "SELECT time FROM entries WHERE sequence = ?"};
    entry.bind(1, sequence);
    return entry.step() ? Position{sequence, entry.text(0)} : Position{};
}

Health LogReader::health() const {
    return patiently([this] {
        const Transaction view{connection_, Transaction::Kind::read};
        Health health;
        health.schemaVersion = schemaVersion_;
        if (schemaVersion_ == 0) { // an empty file, about to be laid out
            return health;
        }
        Statement entries{connection_, "SELECT (SELECT count(*) FROM entries),"
                                       " (SELECT min(sequence) FROM entries),"
                                       " (SELECT max(sequence) FROM entries),"
                                       " (SELECT max(seq) FROM sqlite_sequence)"};
        entries.step();
        health.entries = entries.integer(0);
        health.first = positionOf(entries.integer(1));
        health.last = positionOf(entries.integer(2));
        health.highest = entries.integer(3);
        if (schemaVersion_ >= 2) {
            Statement state{connection_, "SELECT dropped, last_clear FROM state"};
            state.step();
            health.dropped.entries = state.integer(0);
            if (auto time = state.text(1); !time.empty()) {
                health.lastClear = std::move(time);
            }
        }
        if (schemaVersion_ >= 3) {
            health.dropped.last = dropped({}).last;
            health.losses = losses();
            health.spillMark = spillMark();
            health.salvaged =
                connection_.queryInteger("SELECT count(*) FROM entries WHERE salvaged");
        }
        return health;
    });
}

Figures LogReader::figures() const {
    return patiently([this] {
        const Transaction view{connection_, Transaction::Kind::read};
        Figures figures;
        if (schemaVersion_ == 0) {
            return figures;
        }
        figures.last = positionOf(connection_.queryInteger("SELECT max(sequence) FROM entries"));
        if (schemaVersion_ >= 2) {
            figures.dropped = connection_.queryInteger("SELECT dropped FROM state");
        }
        // Later layouts know how many numbers have no entry any more.
        figures.entries = connection_.queryInteger(
            schemaVersion_ >= 3
                ? "SELECT coalesce((SELECT max(seq) FROM sqlite_sequence), 0) - gone FROM state"
                : "SELECT count(*) FROM entries");
        if (schemaVersion_ >= 3) {
            figures.losses = losses();
            figures.spillMark = spillMark();
            figures.totals = totals();
        }
        return figures;
    });
}

std::vector<Total> LogReader::totals() const {
    Statement rows{connection_, "SELECT message_id, severity, device, recorded FROM totals"};
    std::vector<Total> totals;
    while (rows.step()) {
        totals.push_back(
            {rows.text(0), severityOf(rows.integer(1)), rows.text(2), rows.integer(3)});
    }
    return totals;
}

std::vector<Loss> LogReader::losses() const {
    Statement rows{connection_, "SELECT cause, events, acknowledged, last_at FROM losses"
                                " ORDER BY events DESC, cause"};
    std::vector<Loss> losses;
    while (rows.step()) {
        losses.push_back({rows.text(0), rows.integer(1), rows.integer(2), rows.text(3)});
    }
    return losses;
}

std::int64_t LogReader::spillMark() const {
    return connection_.queryInteger("SELECT spill FROM state");
}

std::int64_t LogReader::highest() const {
    return patiently([this]() -> std::int64_t {
        return schemaVersion_ == 0
                   ? 0
                   : connection_.queryInteger("SELECT max(seq) FROM sqlite_sequence");
    });
}

std::int64_t LogReader::goneBeyond(std::int64_t sequence) const {
    return patiently([this, sequence]() -> std::int64_t {
        if (schemaVersion_ == 0) {
            return 0;
        }
        Statement gone{connection_, "SELECT max(seq) - ?1 - (SELECT count(*) FROM entries WHERE"
                                    " sequence > ?1) FROM sqlite_sequence"};
        gone.bind(1, sequence);
        return gone.step() ? std::max<std::int64_t>(gone.integer(0), 0) : 0;
    });
}

Dropped LogReader::dropped(const Filter& filter) const {
    Dropped dropped;
    if (schemaVersion_ < 3) {
        return dropped;
    }
    Statement rows{connection_, "SELECT message_id, severity, device, dropped, last_dropped,"
                                " last_dropped_at FROM totals WHERE dropped <> 0"};
    while (rows.step()) {
        const auto device = rows.text(2);
        const LogEntry entry{
            rows.integer(4), rows.text(5), rows.text(0), rows.integer(1), {device}};
        const bool isRest = entry.messageId.empty(); // of messages and devices that nobody knows
        const auto named = [&entry](const std::vector<std::string>& ids) {
            return std::find(ids.begin(), ids.end(), entry.messageId) != ids.end();
        };
        if ((filter.since && entry.time < *filter.since) ||
            entry.sequence <= filter.after.value_or(0) ||
            (!filter.severities.empty() && !filter.severities.contains(entry.severity())) ||
            (!isRest && ((!filter.messageIds.empty() && !named(filter.messageIds)) ||
                         named(filter.otherThanIds) || (filter.also && !filter.also(entry))))) {
            continue;
        }
        dropped.entries += rows.integer(3);
        if (entry.sequence > dropped.last.sequence) {
            dropped.last = {entry.sequence, entry.time};
        }
    }
    return dropped;
}

std::vector<Boot> LogReader::boots() const {
    return patiently([this] {
        std::vector<Boot> boots;
        if (schemaVersion_ < 3) {
            return boots;
        }
        Statement rows{connection_, "SELECT boot_id, count(*), min(sequence), max(sequence)"
                                    " FROM entries WHERE boot_id IS NOT NULL GROUP BY boot_id"
                                    " ORDER BY min(sequence)"};
        while (rows.step()) {
            boots.push_back({rows.text(0), rows.integer(1), positionOf(rows.integer(2)),
                             positionOf(rows.integer(3))});
        }
        return boots;
    });
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

void LogReader::copyTo(const std::string& path) const {
    const Connection copy{path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX};
    patiently([&] {
        auto* const backup = sqlite3_backup_init(copy.get(), "main", connection_.get(), "main");
        if (backup != nullptr) {
            sqlite3_backup_step(backup, -1); // in one step: of one state
        }
        const int result = sqlite3_backup_finish(backup);
        if (backup == nullptr || result != SQLITE_OK) {
            throw SqliteError{sqlite3_errcode(copy.get()), sqlite3_errmsg(copy.get())};
        }
    });
    copy.execute("PRAGMA journal_mode = DELETE");
}

} // namespace tavrisk::zel
