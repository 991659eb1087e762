// SPDX-License-Identifier: Apache-2.0
#include "contract/places.hpp"
#include "contract/properties.hpp"
#include "tools/common/directory.hpp"
#include "tools/common/metrics.hpp"
#include "tools/common/output.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/losses.hpp"
#include "tools/tavriskctl/report.hpp"

#include <optional>
#include <utility>

using namespace std::chrono_literals;

namespace tavrisk::tools {
namespace {

/** Of a directory. */
Fact factOf(const std::string& path) {
    const auto& [files, bytes, error] = sizeOfDirectory(path);
    Fact fact{harmless(path), "", nullptr};
    fact.json["path"] = path;
    if (error) {
        fact.text = "cannot be read: " + error.message();
        fact.json["error"] = error.message();
    } else {
        fact.text = std::to_string(files) + (files == 1 ? " file, " : " files, ") +
                    sizeText(static_cast<std::int64_t>(bytes));
        fact.json["files"] = Json::UInt64{files};
        fact.json["bytes"] = Json::UInt64{bytes};
    }
    return fact;
}

Fact factOf(const Owner& owner) {
    Fact fact{"owner", owner.uniqueName, "owner"};
    fact.json["name"] = owner.uniqueName;
    if (owner.processId) {
        fact.text += ", pid " + std::to_string(*owner.processId);
        fact.json["pid"] = *owner.processId;
    }
    if (owner.userId) {
        fact.text += ", uid " + std::to_string(*owner.userId);
        fact.json["uid"] = *owner.userId;
    }
    if (!owner.command.empty()) {
        fact.text += ", " + harmless(owner.command);
        fact.json["command"] = owner.command;
    }
    return fact;
}

/** What is known of the daemon; `failure` says why that is not all. */
struct Seen {
    std::optional<Owner> owner;
    std::vector<Property> properties;
    std::optional<Failure> failure;
};

Seen look(const Target& target) {
    Seen seen;
    try {
        Daemon daemon{target};
        seen.owner = daemon.owner();
        if (!seen.owner) {
            throw Failure{Exit::unreachable,
                          std::string{"the daemon is not running: nobody owns "} + busName};
        }
        seen.properties = daemon.properties();
    } catch (const Failure& failure) {
        seen.failure = failure;
    }
    return seen;
}

/** Where the daemon says that its data is, or where that is when it does not say. */
std::string dataCache(const std::vector<Property>& properties) {
    for (const auto& [name, value] : properties) {
        if (name == "WUXDataCacheLocation" && std::holds_alternative<std::string>(value)) {
            return std::get<std::string>(value);
        }
    }
    const std::string_view root{dataRoot};
    return std::string{root.substr(0, root.size() - 1)};
}

/** What can be seen without the daemon, and what it says when it answers. */
std::vector<Fact> factsOf(const Seen& seen) {
    std::vector<Fact> facts;
    if (seen.owner) {
        facts.push_back({busName, seen.failure ? "does not answer" : "running"});
        facts.push_back(factOf(*seen.owner));
    }
    Json::Value properties;
    for (const auto& [name, value] : seen.properties) {
        facts.push_back({harmless(name), harmless(toText(value))});
        properties[name] = toJson(value);
    }
    if (!properties.isNull()) {
        facts.push_back({"", "", "properties", properties});
    }
    const auto cache = dataCache(seen.properties);
    Json::Value directories{Json::arrayValue};
    for (const auto* below : {"", "/dump", "/rawCPER"}) {
        facts.push_back(factOf(cache + below));
        directories.append(facts.back().json);
    }
    facts.push_back({"", "", "directories", directories});
    for (auto& fact : lossesInJournal()) {
        facts.push_back(std::move(fact));
    }
    return facts;
}

void addSettings(Metrics& metrics, const std::vector<Property>& properties) {
    constexpr std::int64_t megabyte = 1'048'576;
    constexpr std::int64_t minute = 60;
    for (const auto& [name, value] : properties) {
        const auto* const number = std::get_if<std::uint8_t>(&value);
        if (number != nullptr && name == retentionSizeInMB.name) {
            metrics.addGauge("tavrisk_retention_size_bytes",
                             "What a directory of the data cache may take, as set.",
                             *number * megabyte);
        } else if (number != nullptr && name == retentionIntervalInMinutes.name) {
            metrics.addGauge("tavrisk_retention_interval_seconds",
                             "How often that is seen to, as set.", *number * minute);
        } else if (name == systemLEDSetting.name) {
            metrics.add("tavrisk_system_led_setting_info", "gauge", "The setting SystemLEDSetting.",
                        {{1, {{"setting", toText(value)}}}});
        }
    }
}

/** As far back as the journal goes: they fall when it forgets, and are no counters. */
void addLosses(Metrics& metrics, const Json::Value& losses) {
    metrics.addGauge("tavrisk_journal_readable",
                     "Whether there is a journal that this user may read.",
                     losses.isMember("error") ? 0 : 1);
    if (losses.isMember("error")) {
        return;
    }
    std::vector<Metrics::Sample> causes;
    for (const auto* cause : lossCauses()) {
        causes.push_back({losses["causes"][cause].asInt64(), {{"cause", cause}}});
    }
    metrics.add("tavrisk_journal_lost_events", "gauge",
                "Lost events that the journal tells of, as far back as it goes.", causes);
    metrics.addGauge("tavrisk_journal_lines_not_written",
                     "Lines that the journal lacks because it was too slow.",
                     losses["linesNotWritten"].asInt64());
}

void writeMetrics(const Seen& seen, const Arguments& arguments) {
    Metrics metrics;
    metrics.addGauge("tavrisk_up", "Whether the daemon answers.", seen.failure ? 0 : 1);
    if (seen.owner && seen.owner->processId) {
        metrics.addGauge("tavrisk_process_id", "The daemon's process.", *seen.owner->processId);
    }
    addSettings(metrics, seen.properties);
    addLosses(metrics, toJson(lossesInJournal())["losses"]);
    metrics.write(arguments);
}

void putStatus(const Seen& seen, const Arguments& arguments) {
    const auto facts = factsOf(seen);
    if (arguments.json()) {
        const auto status = seen.failure ? seen.failure->status() : Exit::done;
        const std::string reason{seen.failure ? seen.failure->what() : ""};
        putLine(jsonLine(toJson(facts, resultJson(arguments.command, status, reason))));
    } else {
        putFacts(facts, 28);
    }
}

} // namespace

Exit status(const Arguments& arguments) {
    if (arguments.has("to") && !arguments.has("metrics")) {
        failUsage("--to goes with --metrics");
    }
    if (arguments.json() && arguments.has("metrics")) {
        failUsage("--metrics and --json exclude each other");
    }
    const auto seen = look(targetOf(arguments, 25s));
    arguments.has("metrics") ? writeMetrics(seen, arguments) : putStatus(seen, arguments);
    if (!seen.failure) {
        return Exit::done;
    }
    if (arguments.json()) {
        return seen.failure->status();
    }
    throw Failure{*seen.failure};
}

} // namespace tavrisk::tools
