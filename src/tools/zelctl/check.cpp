// SPDX-License-Identifier: Apache-2.0
#include "platform/config.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/completeness.hpp"
#include "tools/zelctl/condition.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"

#include <algorithm>
#include <array>

namespace tavrisk::tools {
namespace {

const char* wordOf(Level level) {
    constexpr std::array words{"ok", "warning", "critical", "unknown"};
    return words.at(static_cast<std::size_t>(level));
}

using Since = std::optional<std::string>;

void lookForOpen(Condition& condition, const LogReader& reader, const Since& since) {
    std::int64_t count = 0;
    std::int64_t last = 0;
    reader.forEach({.since = since, .severities = {Severity::critical}, .open = true}, false,
                   [&](const LogEntry& entry) {
                       last = count++ == 0 ? entry.sequence : last;
                       return true;
                   });
    if (count != 0) {
        condition.add(Level::critical, countText(count, "critical entry", "critical entries") +
                                           " not acknowledged, the last #" + std::to_string(last));
    }
}

void lookForLosses(Condition& condition, const std::vector<zel::Loss>& losses, const Since& since) {
    std::int64_t events = 0;
    for (const auto& loss : losses) {
        events += !since || loss.lastAt >= *since ? loss.events - loss.acknowledged : 0;
    }
    if (events > 0) {
        condition.add(Level::critical,
                      countText(events, "event", "events") + " lost and not acknowledged");
    }
}

void lookForSalvaged(Condition& condition, const LogReader& reader, const Since& since) {
    bool found = false;
    reader.forEach({.since = since, .open = true, .also = &LogEntry::salvaged}, false,
                   [&found](const LogEntry& /*entry*/) {
                       found = true;
                       return false;
                   });
    if (found) {
        condition.add(Level::warning, "salvaged entries not acknowledged");
    }
}

void lookAround(Condition& condition, const Beside& beside, const Since& since) {
    // Their names end with the time, without what stands between its digits.
    auto earliest = since.value_or("");
    std::erase_if(earliest, [](char c) { return c == '-' || c == ':'; });
    const auto count = std::count_if(beside.setAside.begin(), beside.setAside.end(),
                                     [&earliest](const std::string& name) {
                                         return name.substr(name.rfind('-') + 1) >= earliest;
                                     });
    if (count != 0) {
        condition.add(Level::warning,
                      countText(count, "damaged database", "damaged databases") + " set aside");
    }
    if (beside.waiting.entries != 0) {
        condition.add(Level::warning, "events wait for the database");
    }
}

void look(Condition& condition, const Log& log, const Since& since) {
    const Completeness completeness{log.path()};
    const auto reader = log.open();
    const auto beside = lookBeside(log.path());
    lookAround(condition, beside, since);
    if (!reader) {
        lookForLosses(condition, allLosses({}, 0, beside), since);
        return;
    }
    const auto health = reader->health();
    if (const auto shortfall = completeness.lacksItsLog(health.highest)) {
        condition.add(Level::unknown, shortfall->problem);
    }
    const auto cap = platform::zelMaxEntries;
    condition.entries = health.entries;
    lookForOpen(condition, *reader, since);
    lookForLosses(condition, allLosses(health.losses, health.spillMark, beside), since);
    if (health.salvaged != 0) {
        lookForSalvaged(condition, *reader, since);
    }
    if (health.entries >= cap - cap / 10) {
        condition.add(Level::warning, std::to_string(health.entries) + " of at most " +
                                          std::to_string(cap) + " entries");
    }
}

} // namespace

void Condition::add(Level worse, const std::string& problem) {
    problems.insert(worse > level ? problems.begin() : problems.end(), problem);
    level = std::max(level, worse);
}

Condition conditionOf(const Log& log, const Arguments& arguments) {
    Condition condition;
    try {
        look(condition, log, timeOf(arguments, "since", false));
    } catch (const zel::SqliteError& error) {
        const bool damaged = error.code() == SQLITE_CORRUPT;
        condition.add(damaged ? Level::critical : Level::unknown, error.what());
    } catch (const zel::Unreadable& problem) {
        condition.add(problem.isDamage() ? Level::critical : Level::unknown, problem.what());
    } catch (const Failure& failure) {
        condition.add(Level::unknown, failure.what());
    }
    return condition;
}

std::string textOf(const Condition& condition) {
    std::string text = wordOf(condition.level);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(c - 'a' + 'A'); });
    text += ": ";
    for (const auto& problem : condition.problems) {
        text += (text.ends_with(": ") ? "" : "; ") + harmless(problem);
    }
    return condition.problems.empty() ? text + countText(condition.entries, "entry", "entries")
                                      : text;
}

Json::Value toJson(const Condition& condition, const std::string& path) {
    Json::Value object;
    object["status"] = wordOf(condition.level);
    object["database"] = path;
    object["entries"] = Json::Int64{condition.entries};
    object["problems"] = toJson(condition.problems);
    return object;
}

Exit check(const Log& log, const Arguments& arguments) {
    const auto form = formOf(arguments);
    const auto condition = conditionOf(log, arguments);
    if (form == Form::text) {
        putLine(textOf(condition));
    } else {
        Records{form}.put(toJson(condition, log.path()));
    }
    return static_cast<Exit>(condition.level);
}

} // namespace tavrisk::tools
