// SPDX-License-Identifier: Apache-2.0
#include "platform/config.hpp"
#include "records/catalogue.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"
#include "tools/zelctl/period.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/time_text.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace tavrisk::tools {
namespace {

using Counts = std::map<std::string, std::int64_t>;
using Row = std::pair<std::string, std::int64_t>;

struct Statistics {
    Health health;
    Beside beside;
    std::int64_t bytesOnDisk = 0;
    std::int64_t matching = 0;
    Counts bySeverity{{"critical", 0}, {"warning", 0}, {"other", 0}};
    Counts byMessageId;
    Counts byDevice;
    std::optional<Counts> byPart; // where asked for
    std::vector<TimePoint> times; // of the matching entries
};

std::int64_t bytesOnDisk(const std::string& path) {
    std::int64_t bytes = 0;
    for (const auto* suffix : {"", "-wal", "-shm"}) {
        struct stat status {};
        if (stat((path + suffix).c_str(), &status) == 0) {
            bytes += status.st_blocks * std::int64_t{S_BLKSIZE};
        }
    }
    return bytes;
}

Statistics collect(const std::string& path, const std::optional<LogReader>& reader, Filter filter,
                   bool withParts) {
    Statistics statistics;
    RawFileIndex index;
    if (withParts) {
        statistics.byPart.emplace();
    }
    statistics.bytesOnDisk = bytesOnDisk(path);
    statistics.beside = lookBeside(path);
    if (!reader) {
        return statistics;
    }
    statistics.health = reader->health();
    resolveBoot(filter, *reader);
    reader->forEach(filter, true, [&](const LogEntry& entry) {
        ++statistics.matching;
        ++statistics.bySeverity[name(entry.severity())];
        ++statistics.byMessageId[entry.messageId];
        ++statistics.byDevice[entry.device()];
        if (statistics.byPart) {
            ++(*statistics.byPart)[partOf(entry, index.find(entry))];
        }
        if (const auto time = fromLogTime(entry.time)) {
            statistics.times.push_back(*time);
        }
        return true;
    });
    return statistics;
}

/** Most frequent first. */
std::vector<Row> ranked(const Counts& counts) {
    std::vector<Row> rows{counts.begin(), counts.end()};
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& a, const Row& b) { return a.second > b.second; });
    return rows;
}

/** Most frequent first. */
Json::Value toJson(const Counts& counts, const char* key) {
    Json::Value rows{Json::arrayValue};
    for (const auto& [label, count] : ranked(counts)) {
        Json::Value row{Json::objectValue};
        row[key] = label;
        row["count"] = Json::Int64{count};
        rows.append(std::move(row));
    }
    return rows;
}

std::string rightAligned(std::int64_t number, std::size_t width) {
    const auto text = std::to_string(number);
    return std::string(std::max(width, text.size()) - text.size(), ' ') + text;
}

Fact positionFact(const char* label, const char* key, const zel::Position& position) {
    const auto& [sequence, time] = position;
    if (sequence == 0) {
        return {label, *label == '\0' ? "" : "none", key};
    }
    Fact fact{label, "#" + std::to_string(sequence) + ", " + localTimeText(time), key};
    fact.json["sequence"] = Json::Int64{sequence};
    fact.json["time"] = time;
    return fact;
}

Fact lossesFact(const std::vector<zel::Loss>& losses) {
    Fact fact{"  Lost", lossesText(losses), "losses", Json::arrayValue};
    for (const auto& loss : losses) {
        Json::Value row;
        row["cause"] = loss.cause;
        row["events"] = Json::Int64{loss.events};
        row["acknowledged"] = Json::Int64{loss.acknowledged};
        row["lastAt"] = loss.lastAt.empty() ? Json::Value{} : Json::Value{loss.lastAt};
        fact.json.append(row);
    }
    return fact;
}

Fact droppedFact(const zel::Dropped& dropped) {
    const auto last =
        dropped.last.sequence == 0 ? "" : ", up to #" + std::to_string(dropped.last.sequence);
    return {"  Dropped", std::to_string(dropped.entries) + " to stay below that" + last, "dropped",
            Json::Int64{dropped.entries}};
}

std::vector<Fact> healthFacts(const std::string& path, const Statistics& statistics) {
    const auto& health = statistics.health;
    const auto& beside = statistics.beside;
    const auto& cleared = health.lastClear;
    const auto cap = platform::zelMaxEntries;
    return {
        {"  Database", harmless(path), "database", path},
        {"", "", "schemaVersion", Json::Int64{health.schemaVersion}},
        {"  Entries", std::to_string(health.entries) + " of at most " + std::to_string(cap),
         "entries", Json::Int64{health.entries}},
        {"", "", "cap", Json::Int64{cap}},
        droppedFact(health.dropped),
        positionFact("", "lastDropped", health.dropped.last),
        lossesFact(allLosses(health.losses, health.spillMark, beside)),
        {beside.waiting.entries != 0 ? "  Waiting" : "", "events, in " + harmless(beside.waitingAt),
         "waiting", beside.waiting.entries != 0},
        {health.salvaged != 0 ? "  Salvaged" : "",
         std::to_string(health.salvaged) + " from a damaged database", "salvaged",
         Json::Int64{health.salvaged}},
        {beside.setAside.empty() ? "" : "  Set aside",
         countText(static_cast<std::int64_t>(beside.setAside.size()), "damaged database",
                   "damaged databases"),
         "setAside", tools::toJson(beside.setAside)},
        positionFact("  First", "first", health.first),
        positionFact("  Last", "last", health.last),
        {"  Cleared", cleared ? localTimeText(*cleared) : "never", "lastClear",
         cleared ? Json::Value{*cleared} : Json::Value{}},
        {"  Size", sizeText(statistics.bytesOnDisk) + " on disk", "bytesOnDisk",
         Json::Int64{statistics.bytesOnDisk}},
    };
}

Json::Value toJson(const Statistics& statistics, Json::Value object) {
    object["matching"] = Json::Int64{statistics.matching};
    for (const auto& [severity, count] : statistics.bySeverity) {
        object["bySeverity"][severity] = Json::Int64{count};
    }
    object["byMessageId"] = toJson(statistics.byMessageId, "messageId");
    object["byDevice"] = toJson(statistics.byDevice, "device");
    if (statistics.byPart) {
        object["byPart"] = toJson(*statistics.byPart, "part");
    }
    return object;
}

void putTable(const std::string& title, const std::vector<Row>& rows, const Style& style,
              const std::function<std::string(const std::string&)>& label) {
    constexpr std::size_t longest = 10;
    if (rows.empty()) {
        return;
    }
    putLine("");
    putLine(emphasised(style, title));
    std::size_t shown = 0;
    for (const auto& [key, count] : rows) {
        if (style.terminal && shown++ == longest) {
            putLine("          and " + std::to_string(rows.size() - longest) + " more");
            return;
        }
        putLine(rightAligned(count, 8) + "  " + label(key));
    }
}

std::string severityLabel(const Style& style, const std::string& word) {
    return word == name(Severity::critical)  ? coloured(style, Severity::critical, word)
           : word == name(Severity::warning) ? coloured(style, Severity::warning, word)
                                             : word;
}

std::string messageLabel(const std::string& id) {
    const auto* const row = findMessage(id);
    return padded(harmless(id), 7) + "  " +
           (row != nullptr ? messageAbout(*row, "<device>") : "(not in the catalogue)");
}

std::string deviceLabel(const std::string& device) {
    return device.empty() ? "(without a name)" : harmless(device);
}

/** Takes off the times of a clock that was not set yet: they would make all others one bar. */
std::int64_t takeOffUnsetClock(std::vector<TimePoint>& readings) {
    using namespace std::chrono;
    const auto plausible = *fromLogTime(firstPlausibleTime);
    const auto first = std::lower_bound(readings.begin(), readings.end(), plausible);
    if (first == readings.end()) {
        return 0;
    }
    const auto count = first - readings.begin();
    readings.erase(readings.begin(), first);
    return count;
}

void putChart(const std::vector<TimePoint>& times, const Style& style) {
    constexpr int mostRows = 12;
    if (times.empty()) {
        return;
    }
    std::vector<TimePoint> readings(times.size());
    std::transform(times.begin(), times.end(), readings.begin(), clockReading);
    std::sort(readings.begin(), readings.end());
    const auto unset = takeOffUnsetClock(readings);
    const auto period = roundPeriod(readings.back() - readings.front(), mostRows);
    const auto start = roundDown(readings.front(), period);
    std::vector<std::int64_t> bars;
    for (const auto reading : readings) {
        const auto bar = static_cast<std::size_t>((reading - start) / period);
        bars.resize(std::max(bars.size(), bar + 1));
        ++bars[bar];
    }

    constexpr int besideBar = 32;
    const std::int64_t highest = *std::max_element(bars.begin(), bars.end());
    const std::int64_t room = std::clamp(style.width - besideBar, 10, 60);
    putLine("");
    putLine(emphasised(style, "Over time"));
    if (unset != 0) {
        putLine(padded("  before 2020", 18) + rightAligned(unset, 8) + "  (the clock was not set)");
    }
    for (std::size_t i = 0; i < bars.size(); ++i) {
        const auto begin = start + static_cast<std::int64_t>(i) * period;
        std::string bar;
        for (std::int64_t step = (bars[i] * room + highest - 1) / highest; step > 0; --step) {
            bar += style.utf8 ? "\u2588" : "#";
        }
        putLine("  " + readingText(begin, "%F %H:%M") + rightAligned(bars[i], 8) + "  " + bar);
    }
}

void putText(const std::vector<Fact>& health, const Statistics& statistics, const char* which) {
    const auto style = Style::ofStandardOutput();
    putLine(emphasised(style, "Health"));
    putFacts(health, 13);

    const auto count = ", " + std::to_string(statistics.matching) + which;
    std::vector<Row> severities;
    for (const auto severity : {Severity::critical, Severity::warning, Severity::other}) {
        severities.emplace_back(name(severity), statistics.bySeverity.at(name(severity)));
    }
    putTable("Entries by severity" + count, severities, style,
             [&style](const std::string& word) { return severityLabel(style, word); });
    putTable("Entries by message" + count, ranked(statistics.byMessageId), style, messageLabel);
    putTable("Entries by device" + count, ranked(statistics.byDevice), style, deviceLabel);
    if (statistics.byPart) {
        putTable("Entries by part" + count, ranked(*statistics.byPart), style, deviceLabel);
    }
    if (style.terminal) {
        putChart(statistics.times, style);
    }
}

} // namespace

Json::Value statisticsOf(const Log& log, const Arguments& arguments) {
    const auto statistics = collect(log.path(), log.open(), filterOf(arguments), true);
    return toJson(statistics, tools::toJson(healthFacts(log.path(), statistics)));
}

Exit stats(const Log& log, const Arguments& arguments) {
    const auto statistics =
        collect(log.path(), log.open(), filterOf(arguments), arguments.has("parts"));
    const auto health = healthFacts(log.path(), statistics);
    if (const auto form = formOf(arguments); form != Form::text) {
        Records{form}.put(toJson(statistics, tools::toJson(health)));
    } else {
        putText(health, statistics, isFiltered(arguments) ? " that match" : " in all");
    }
    return Exit::done;
}

} // namespace tavrisk::tools
