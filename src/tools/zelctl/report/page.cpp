// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/page.hpp"

#include "platform/config.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/completeness.hpp"
#include "tools/zelctl/condition.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/report/entries.hpp"
#include "tools/zelctl/report/timeline.hpp"
#include "tools/zelctl/time_text.hpp"

#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace tavrisk::tools {
namespace {

constexpr std::int64_t mostEntries = 2000;
constexpr std::size_t mostParts = 20;

struct Part {
    SeverityCounts counts{};
    std::string last;
};

struct Overview {
    std::int64_t matching = 0;
    SeverityCounts counts{};
    std::map<std::string, Part> parts;
    std::vector<std::pair<TimePoint, Severity>> times;
    std::int64_t ofUnsetClock = 0;
};

void survey(Overview& overview, const LogReader& reader, const Filter& filter, std::int64_t newest,
            RawFileIndex& index) {
    reader.forEach(filter, true, [&overview, &index, newest](const LogEntry& entry) {
        if (entry.sequence > newest) {
            return false;
        }
        const auto severity = placeOf(entry.severity());
        ++overview.matching;
        ++overview.counts.at(severity);
        auto& part = overview.parts[partOf(entry, index.find(entry))];
        ++part.counts.at(severity);
        part.last = entry.time;
        const auto time = fromLogTime(entry.time);
        if (time && !isOfUnsetClock(entry)) {
            overview.times.emplace_back(*time, entry.severity());
        } else {
            ++overview.ofUnsetClock;
        }
        return true;
    });
}

constexpr Markup head =
    R"(<!DOCTYPE html>
<html xmlns="http://www.w3.org/1999/xhtml" lang="en"><head><meta charset="utf-8"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'"/>
<meta name="viewport" content="width=device-width, initial-scale=1"/>
<meta name="color-scheme" content="light dark"/><title>Event log report</title><style>
:root{color-scheme:light dark;--line:#bbb;--back:#f3f4f6;--critical:#b3261e;--warning:#8a5000;--other:#5f6b7a}
@media (prefers-color-scheme:dark){:root{--line:#555;--back:#22262b;--critical:#ff8a80;--warning:#ffb74d;--other:#a9b4c2}}
body{font:16px/1.45 system-ui,sans-serif;max-width:60rem;margin:0 auto;padding:1rem;overflow-wrap:anywhere}
h1{font-size:1.6rem;line-height:1.2}h2{font-size:1.2rem;margin:2rem 0 .5rem}
table{border-collapse:collapse;width:100%}th,td{text-align:left;vertical-align:top;padding:.2rem .6rem .2rem 0;border-bottom:1px solid var(--line)}
.parts td:not(:first-child){overflow-wrap:normal}.parts td:last-child{white-space:nowrap}table.facts th{width:9rem;font-weight:600}
details{border-bottom:1px solid var(--line)}details[open]{padding-bottom:1rem}summary{padding:.4rem 0;cursor:pointer}
pre{white-space:pre-wrap;font-size:.8rem;background:var(--back);padding:.5rem .7rem;margin:.5rem 0}
.critical{color:var(--critical)}.warning{color:var(--warning)}.other{color:var(--other)}
b.critical,b.warning,b.other{text-transform:uppercase;font-size:.8rem}
.verdict{font-weight:600;border-left:.3rem solid;padding:.3rem .7rem}
.chart{display:grid;grid-template-columns:auto 1fr;gap:.6rem .5rem;font-size:.8rem}
.scale{display:flex;flex-direction:column;justify-content:space-between;text-align:right;line-height:0}
.chart svg{width:100%;height:10rem;border-bottom:1px solid}line{stroke:var(--line)}.key{width:.9rem;height:.9rem;vertical-align:-.1rem}
.ends{display:flex;justify-content:space-between;gap:1rem}.ends span:nth-child(2){text-align:center}.ends span:last-child{text-align:right}
@media (max-width:35rem){.parts th{display:none}.parts tr{display:block;border-bottom:1px solid var(--line);padding:.3rem 0}.parts td{display:inline;border:0}.parts td:first-child{display:block;padding:0}table.facts th{width:7rem}}
@media print{body{max-width:none;font-size:10pt}h2,summary{break-after:avoid}.chart{break-inside:avoid}}
</style></head><body>
)";

std::string firstLine(const char* path) {
    std::string line;
    std::getline(std::ifstream{path}, line, '\n');
    return line.substr(0, line.find('\0'));
}

/** What the firmware calls the machine: of a PC's, or of a device tree's. */
std::string product() {
    const auto name = firstLine("/sys/class/dmi/id/product_name");
    return name.empty() ? firstLine("/sys/firmware/devicetree/base/model") : name;
}

void putMachine(Html& html) {
    utsname names{};
    uname(&names);
    html << "<h1>Event log of " << std::string{names.nodename} << "</h1>\n<table class=\"facts\">";
    if (const auto name = product(); !name.empty()) {
        putFact(html, "Product", name);
    }
    putFact(html, "Kernel", std::string{names.sysname} + " " + names.release + " " + names.machine);
    putFact(html, "Report by", "zelctl " TAVRISK_VERSION);
    putFact(html, "Made at", localTime(now(), "%F %T %z"));
    html << "</table>\n";
}

std::string positionText(const zel::Position& position) {
    return position.sequence == 0
               ? "none"
               : "#" + std::to_string(position.sequence) + ", " + localTimeText(position.time);
}

void putVerdict(Html& html, const Condition& condition) {
    constexpr std::array<Markup, 4> classes{"other", "warning", "critical", "critical"};
    html << "<p class=\"verdict " << classes.at(static_cast<std::size_t>(condition.level)) << "\">"
         << textOf(condition) << "</p>\n";
}

void putHealth(Html& html, const std::string& path, const Beside& beside, const Health& health) {
    html << "<table class=\"facts\">";
    putFact(html, "Database", path + ", schema " + std::to_string(health.schemaVersion));
    putFact(html, "Entries",
            std::to_string(health.entries) + " of at most " +
                std::to_string(platform::zelMaxEntries));
    putFact(html, "First", positionText(health.first));
    putFact(html, "Last", positionText(health.last));
    putFact(html, "Dropped", std::to_string(health.dropped.entries) + " to stay below that");
    putFact(html, "Lost", lossesText(allLosses(health.losses, health.spillMark, beside)));
    putFact(html, "Waiting",
            beside.waiting.entries != 0
                ? countText(beside.waiting.entries, "event", "events") + ", in " + beside.waitingAt
                : "none");
    putFact(html, "Salvaged", std::to_string(health.salvaged) + " from a damaged database");
    putFact(html, "Set aside",
            countText(static_cast<std::int64_t>(beside.setAside.size()), "damaged database",
                      "damaged databases"));
    putFact(html, "Cleared", health.lastClear ? localTimeText(*health.lastClear) : "never");
    html << "</table>\n";
}

/** What may be missed in what follows. */
void putMissed(Html& html, const LogReader& reader, const Filter& filter,
               const Completeness& completeness) {
    if (const auto shortfall = completeness.lacksEntries(reader.highest())) {
        html << "<p>The log may lack entries: " << shortfall->problem << ".</p>\n";
    }
    if (const auto dropped = reader.dropped(filter); dropped.entries != 0) {
        html << "<p>Entries that may belong here were dropped to stay below the cap, up to #"
             << std::to_string(dropped.last.sequence) << " of " << localTimeText(dropped.last.time)
             << ".</p>\n";
    }
    if (filter.since) {
        html << "<p>Entries of a time when the clock was not set, before 2020, are not looked "
                "for.</p>\n";
    }
}

void putTimes(Html& html, const Overview& overview) {
    html << "<h2>Over time</h2>\n";
    putTimeline(html, overview.times);
    if (overview.ofUnsetClock != 0) {
        html << "<p>Not in the picture: " << countText(overview.ofUnsetClock, "entry", "entries")
             << " of a time when the clock was not set.</p>\n";
    }
}

void putParts(Html& html, const Overview& overview) {
    std::vector<std::pair<std::string, Part>> rows{overview.parts.begin(), overview.parts.end()};
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.counts > b.second.counts;
    });
    html << "<h2>Most affected parts</h2>\n<table "
            "class=\"parts\"><tr><th>Part</th><th>Entries</th><th>Last</th>"
            "</tr>\n";
    for (std::size_t i = 0; i < std::min(rows.size(), mostParts); ++i) {
        const auto& [device, part] = rows[i];
        html << "<tr><td>"
             << (device.empty() ? std::string{"(without a name)"} : beginningOf(device, 200))
             << "</td><td>" << countsText(part.counts) << "</td><td>" << localTimeText(part.last)
             << "</td></tr>\n";
    }
    html << "</table>\n";
    if (rows.size() > mostParts) {
        html << "<p>" << std::to_string(rows.size() - mostParts) << " more are not shown.</p>\n";
    }
}

void putCount(Html& html, const Overview& overview, std::int64_t most) {
    html << "<h2>Entries, newest first</h2>\n<p>" << countsText(overview.counts) << ".";
    if (most < overview.matching) {
        html << " " << countText(overview.matching - most, "older one is", "older ones are")
             << " not shown.";
    }
    html << "</p>\n";
}

/** Puts what can be read of a log, part by part: one that cannot be read leaves the others. */
class LogPart {
public:
    LogPart(Html& html, const Log& log, const Arguments& arguments, Shown& shown)
        : html_{html}, log_{log}, arguments_{arguments}, shown_{shown} {}

    void put() {
        const Completeness completeness{log_.path()}; // before the log is opened
        std::optional<LogReader> reader;
        attempt([&] { reader = log_.open(); });
        if (reader) {
            put(*reader, completeness);
        } else if (shown_.problem.empty()) {
            putHealth(html_, log_.path(), lookBeside(log_.path()), {});
        }
    }

private:
    void put(const LogReader& reader, const Completeness& completeness) {
        auto filter = filterOf(arguments_);
        const auto beside = lookBeside(log_.path());
        attempt([&] { putHealth(html_, log_.path(), beside, reader.health()); });
        attempt([&] { resolveBoot(filter, reader); });
        attempt([&] { shown_.newest = reader.highest(); });
        if (isFiltered(arguments_)) {
            html_ << "<p>Only some entries were asked for; what follows is of these.</p>\n";
        }
        attempt([&] { putMissed(html_, reader, filter, completeness); });
        RawFileIndex index;
        Overview overview;
        attempt([&] { survey(overview, reader, filter, shown_.newest, index); });
        putTimes(html_, overview);
        putParts(html_, overview);
        auto most = limitOf(arguments_).value_or(mostEntries);
        putCount(html_, overview, most);
        attempt([&] { putEntries(reader, filter, index, most); });
    }

    void putEntries(const LogReader& reader, const Filter& filter, RawFileIndex& index,
                    std::int64_t most) {
        Entries entries{html_};
        reader.forEach(filter, false, [&](const LogEntry& entry) {
            if (entry.sequence <= shown_.newest) {
                const auto files = index.find(entry);
                shown_.unreadable = files.unreadable;
                shown_.rawFiles.insert(files.paths.begin(), files.paths.end());
                entries.put(entry, files);
                --most;
            }
            return most > 0;
        });
    }

    /** Says on the page, where it stands, what cannot be read. */
    void attempt(const std::function<void()>& work) {
        const auto problem = problemOfReading(work);
        if (!problem.empty()) {
            html_ << "<p class=\"critical\">Here something of the log could not be read: "
                  << problem << "</p>\n";
            shown_.problem = shown_.problem.empty() ? problem : shown_.problem;
        }
    }

    Html& html_;
    const Log& log_;
    const Arguments& arguments_;
    Shown& shown_;
};

} // namespace

Shown putPage(Html& html, const Log& log, const Arguments& arguments) {
    Shown shown;
    html << head;
    putMachine(html);
    html << "<h2>Health of the log</h2>\n";
    putVerdict(html, conditionOf(log, {}));
    LogPart{html, log, arguments, shown}.put();
    html << "</body></html>\n";
    return shown;
}

} // namespace tavrisk::tools
