// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/page.hpp"

#include "platform/config.hpp"
#include "records/digest.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/time_text.hpp"

#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>

namespace tavrisk::tools {
namespace {

constexpr std::int64_t mostEntries = 2000;
constexpr std::size_t mostParts = 20;
constexpr std::size_t mostBars = 60;
// Of a longer record that is not decoded, the beginning is enough.
constexpr std::size_t mostText = std::size_t{64} << 10U;

using SeverityCounts = std::array<std::int64_t, 3>; // critical, warning, other

struct Part {
    SeverityCounts counts{};
    std::string last;
};

struct Overview {
    std::int64_t matching = 0;
    std::int64_t newest = 0; // what comes later is not in this report
    SeverityCounts counts{};
    std::map<std::string, Part> parts;
    std::vector<std::pair<TimePoint, Severity>> times;
};

std::size_t placeOf(Severity severity) {
    return static_cast<std::size_t>(severity) - 1;
}

Overview overviewOf(const LogReader& reader, const Filter& filter, RawFileIndex& index) {
    Overview overview;
    overview.newest = reader.highest();
    reader.forEach(filter, true, [&overview, &index](const LogEntry& entry) {
        if (entry.sequence > overview.newest) {
            return false;
        }
        ++overview.matching;
        ++overview.counts.at(placeOf(entry.severity()));
        auto& part = overview.parts[partOf(entry, index.find(entry))];
        ++part.counts.at(placeOf(entry.severity()));
        part.last = entry.time;
        const auto time = fromLogTime(entry.time);
        if (time && !isOfUnsetClock(entry)) {
            overview.times.emplace_back(*time, entry.severity());
        }
        return true;
    });
    return overview;
}

constexpr Markup head =
    R"(<!DOCTYPE html>
<html xmlns="http://www.w3.org/1999/xhtml" lang="en"><head><meta charset="utf-8"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'"/>
<meta name="viewport" content="width=device-width, initial-scale=1"/>
<meta name="color-scheme" content="light dark"/><title>Event log report</title><style>
:root{color-scheme:light dark;--line:#bbb;--critical:#b3261e;--warning:#a15c00;--other:#5f6b7a}
@media (prefers-color-scheme:dark){:root{--line:#555;--critical:#ff8a80;--warning:#ffb74d;--other:#a9b4c2}}
body{font:16px/1.45 system-ui,sans-serif;max-width:60rem;margin:0 auto;padding:1rem;overflow-wrap:anywhere}
table{border-collapse:collapse;width:100%}th,td{text-align:left;vertical-align:top;padding:.2rem .6rem .2rem 0;border-bottom:1px solid var(--line)}
table:not(.facts) td:not(:first-child){overflow-wrap:normal}table.facts th{width:9rem;font-weight:600}summary{padding:.3rem 0;cursor:pointer}details{border-bottom:1px solid var(--line)}
pre{white-space:pre-wrap;font-size:.85rem}svg{width:100%;height:9rem;border-bottom:1px solid var(--line)}
.critical{color:var(--critical);fill:var(--critical)}.warning{color:var(--warning);fill:var(--warning)}.other{color:var(--other);fill:var(--other)}
b.critical,b.warning,b.other{text-transform:uppercase;font-size:.8rem}.ends{display:flex;justify-content:space-between;gap:1rem}
@media print{body{max-width:none;font-size:10pt}details::details-content{content-visibility:visible;display:block}}
</style></head><body>
)";

Html& fact(Html& html, Markup label, const std::string& text) {
    return html << "<tr><th scope=\"row\">" << label << "</th><td>" << text << "</td></tr>\n";
}

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
        fact(html, "Product", name);
    }
    fact(html, "Kernel", std::string{names.sysname} + " " + names.release + " " + names.machine);
    fact(html, "Report by", "zelctl " TAVRISK_VERSION);
    fact(html, "Made at", localTime(now(), "%F %T %z"));
    html << "</table>\n";
}

void putHealth(Html& html, const std::string& path, const Health& health) {
    const auto beside = lookBeside(path);
    html << "<h2>Health of the log</h2>\n<table class=\"facts\">";
    fact(html, "Database", path + ", schema " + std::to_string(health.schemaVersion));
    fact(html, "Entries",
         std::to_string(health.entries) + " of at most " + std::to_string(platform::zelMaxEntries));
    fact(html, "Dropped", std::to_string(health.dropped.entries) + " to stay below that");
    fact(html, "Lost", lossesText(health.losses));
    fact(html, "Waiting",
         beside.waiting != 0
             ? countText(beside.waiting, "event", "events") + ", in " + beside.waitingAt
             : "none");
    fact(html, "Salvaged", std::to_string(health.salvaged) + " from a damaged database");
    fact(html, "Set aside",
         countText(static_cast<std::int64_t>(beside.setAside.size()), "damaged database",
                   "damaged databases"));
    fact(html, "Cleared", health.lastClear ? localTimeText(*health.lastClear) : "never");
    html << "</table>\n";
}

std::string countsText(const SeverityCounts& counts) {
    return std::to_string(counts[0]) + " critical, " + std::to_string(counts[1]) + " warning, " +
           std::to_string(counts[2]) + " other";
}

void putSegment(Html& html, Markup of, std::size_t bar, std::int64_t top, std::int64_t height) {
    html << R"(<rect class=")" << of << R"(" x=")" << std::to_string(bar * 10 + 1) << R"(" y=")"
         << std::to_string(top) << R"(" width="8" height=")" << std::to_string(height) << R"("/>)";
}

void putBar(Html& html, std::size_t bar, const SeverityCounts& counts, std::int64_t highest,
            const std::string& time) {
    constexpr std::int64_t room = 1000;
    constexpr std::array<Markup, 3> classes{"critical", "warning", "other"};
    html << "<g><title>" << (time + ": " + countsText(counts)) << "</title>";
    std::int64_t below = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const auto bottom = below * room / highest;
        below += counts.at(i);
        const auto top = below * room / highest;
        putSegment(html, classes.at(i), bar, room - top, top - bottom);
    }
    html << "</g>\n";
}

void putTimeline(Html& html, const Overview& overview) {
    if (overview.times.empty()) {
        return;
    }
    const auto [first, last] = std::minmax_element(overview.times.begin(), overview.times.end());
    const auto begin = first->first;
    const auto period =
        (last->first - begin) / static_cast<std::int64_t>(mostBars) + std::chrono::milliseconds{1};
    std::array<SeverityCounts, mostBars> bars{};
    for (const auto& [time, severity] : overview.times) {
        ++bars.at(static_cast<std::size_t>((time - begin) / period)).at(placeOf(severity));
    }
    std::int64_t highest = 0;
    for (const auto& bar : bars) {
        highest = std::max(highest, bar[0] + bar[1] + bar[2]);
    }
    html << "<h2>Over time</h2>\n<p>Each bar from below: critical, warning, other; the highest is "
         << countText(highest, "entry", "entries")
         << ".</p>\n<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" aria-label=\"Entries "
            "over time\" viewBox=\"0 0 600 1000\" preserveAspectRatio=\"none\">\n";
    for (std::size_t i = 0; i < bars.size(); ++i) {
        putBar(html, i, bars.at(i), highest,
               localTime(begin + static_cast<std::int64_t>(i) * period));
    }
    html << "</svg>\n<div class=\"ends\"><span>" << localTime(begin) << "</span><span>"
         << localTime(last->first) << "</span></div>\n";
}

void putParts(Html& html, const Overview& overview) {
    std::vector<std::pair<std::string, Part>> rows{overview.parts.begin(), overview.parts.end()};
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.counts > b.second.counts;
    });
    html << "<h2>Most affected parts</h2>\n<table><tr><th>Part</th><th>Entries</th><th>Last</th>"
            "</tr>\n";
    for (std::size_t i = 0; i < std::min(rows.size(), mostParts); ++i) {
        const auto& [device, part] = rows[i];
        html << "<tr><td>" << (device.empty() ? std::string{"(without a name)"} : device)
             << "</td><td>" << countsText(part.counts) << "</td><td>" << localTimeText(part.last)
             << "</td></tr>\n";
    }
    html << "</table>\n";
    if (rows.size() > mostParts) {
        html << "<p>" << std::to_string(rows.size() - mostParts) << " more are not shown.</p>\n";
    }
}

void putRecord(Html& html, const std::string& path) {
    const auto bytes = readRawFile(path).value_or(std::vector<std::uint8_t>{});
    const auto digest = sha512Text(bytes);
    html << "<p>" << path << ", " << std::to_string(bytes.size()) << " bytes, SHA-512 "
         << digest.value_or("unknown: it is gone, or empty") << "</p>\n";
    const auto content = contentOf(path, bytes);
    html << "<p><strong>" << content.summary.sentence << "</strong></p>\n<pre>";
    html.lines(content.lines) << "</pre>\n";
    if (!isCper(path)) { // a text by itself
        html << "<pre>";
        html.lines({reinterpret_cast<const char*>(bytes.data()), std::min(bytes.size(), mostText)});
        html << "</pre>\n";
    }
    if (bytes.size() > mostText) {
        html << "<p>The record is longer than what is shown.</p>\n";
    }
}

void putRawFiles(Html& html, const RawFiles& found) {
    if (!found.unreadable.empty()) {
        html << "<p>Could not look everywhere: " << found.unreadable << "</p>\n";
    }
    if (found.paths.empty()) {
        html << "<p>No raw file was found.</p>\n";
    }
    if (found.isGuess()) {
        html << "<p><strong>A guess</strong>: kept " << std::to_string(found.delay.count())
             << " s before the entry, perhaps of an earlier report.</p>\n";
    } else if (found.paths.size() > 1) {
        html << "<p>It came from one of these.</p>\n";
    }
    for (const auto& path : found.paths) {
        putRecord(html, path);
    }
}

Markup classOf(Severity severity) {
    return severity == Severity::critical  ? Markup{"critical"}
           : severity == Severity::warning ? Markup{"warning"}
                                           : Markup{"other"};
}

void putEntry(Html& html, const LogEntry& entry, const RawFiles& found) {
    const auto severity = classOf(entry.severity());
    html << "<details><summary><b class=\"" << severity << "\">" << severity << "</b> #"
         << std::to_string(entry.sequence) << " " << localTimeText(entry.time) << " "
         << entry.messageId << ": <bdi>" << messageText(entry) << "</bdi>";
    if (!found.summary.sentence.empty() && !found.isGuess()) {
        html << "<br/><bdi>" << found.summary.sentence << "</bdi>";
    }
    html << "</summary>\n";
    if (const auto& given = entry.acknowledgement) {
        html << "<p>Acknowledged by " << given->by << ", " << localTimeText(given->at) << ": "
             << given->note << "</p>\n";
    }
    putRawFiles(html, found);
    html << "</details>\n";
}

void putEntries(Html& html, const LogReader& reader, const Filter& filter, const Overview& overview,
                RawFileIndex& index, std::int64_t most, std::set<std::string>& rawFiles) {
    std::int64_t shown = 0;
    html << "<h2>Entries, newest first</h2>\n<p>" << countsText(overview.counts) << ".</p>\n";
    reader.forEach(filter, false, [&](const LogEntry& entry) {
        if (entry.sequence <= overview.newest) {
            const auto found = index.find(entry);
            putEntry(html, entry, found);
            rawFiles.insert(found.paths.begin(), found.paths.end());
            ++shown;
        }
        return shown < most;
    });
    if (shown < overview.matching) {
        html << "<p>" << std::to_string(overview.matching - shown)
             << " older ones are not shown.</p>\n";
    }
}

} // namespace

Shown putPage(Html& html, const Log& log, const Arguments& arguments) {
    Shown shown;
    auto filter = filterOf(arguments);
    const auto reader = log.open();
    html << head;
    putMachine(html);
    putHealth(html, log.path(), reader ? reader->health() : Health{});
    if (reader) {
        resolveBoot(filter, *reader);
        if (isFiltered(arguments)) {
            html << "<p>Only some entries were asked for; what follows is of these.</p>\n";
        }
        if (const auto dropped = reader->dropped(filter); dropped.entries != 0) {
            html << "<p>Entries that may belong here were dropped to stay below the cap, up to #"
                 << std::to_string(dropped.last.sequence) << ".</p>\n";
        }
        RawFileIndex index;
        const auto overview = overviewOf(*reader, filter, index);
        putTimeline(html, overview);
        putParts(html, overview);
        shown.newest = overview.newest;
        putEntries(html, *reader, filter, overview, index, limitOf(arguments).value_or(mostEntries),
                   shown.rawFiles);
    }
    html << "</body></html>\n";
    return shown;
}

} // namespace tavrisk::tools
