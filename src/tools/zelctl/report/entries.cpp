// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/entries.hpp"

#include "records/digest.hpp"
#include "tools/zelctl/entry_text.hpp"

#include <algorithm>

namespace tavrisk::tools {
namespace {

// What is longer is in the raw file, which the page names.
constexpr std::size_t mostSentence = 2000;
constexpr std::size_t mostText = std::size_t{64} << 10U;
constexpr std::size_t mostPage = std::size_t{16} << 20U;

Markup classOf(Severity severity) {
    return severity == Severity::critical  ? Markup{"critical"}
           : severity == Severity::warning ? Markup{"warning"}
                                           : Markup{"other"};
}

void putText(Html& html, std::string_view text) {
    if (!text.empty()) {
        html << "<pre>";
        html.lines(beginningOf(text, mostText)) << "</pre>\n";
    }
}

} // namespace

Html& putFact(Html& html, Markup label, const std::string& text) {
    return html << "<tr><th scope=\"row\">" << label << "</th><td>" << text << "</td></tr>\n";
}

void Entries::put(const LogEntry& entry, const RawFiles& found) {
    const auto severity = classOf(entry.severity());
    const auto number = std::to_string(entry.sequence);
    html_ << "<details id=\"e" << number << "\"><summary><b class=\"" << severity << "\">"
          << severity << "</b> #" << number << " " << localTimeText(entry.time)
          << (isOfUnsetClock(entry) ? Markup{" (the clock was not set) "} : Markup{" "})
          << entry.messageId << ": <bdi>" << messageText(entry) << "</bdi>";
    if (const auto& sentence = found.summary.sentence; !sentence.empty() && !found.isGuess()) {
        html_ << "<br/><bdi>" << beginningOf(sentence, mostSentence) << "</bdi>";
    }
    html_ << "</summary>\n";
    putFacts(entry);
    putRawFiles(entry, found);
    html_ << "</details>\n";
}

void Entries::putFacts(const LogEntry& entry) {
    html_ << "<table class=\"facts\">";
    putFact(html_, "Time", entry.time + (isOfUnsetClock(entry) ? ", the clock was not set" : ""));
    putFact(html_, "Severity",
            std::string{name(entry.severity())} + " (" + std::to_string(entry.severityCode) + ")");
    for (const auto& argument : entry.arguments) {
        putFact(html_, "Argument", argument);
    }
    if (entry.sinceBoot) {
        putFact(html_, "Boot", bootText(entry));
    }
    if (entry.salvaged) {
        putFact(html_, "Salvaged", "from a damaged database");
    }
    if (const auto& given = entry.acknowledgement) {
        putFact(html_, "Acknowledged",
                "by " + given->by + ", " + localTimeText(given->at) + ": " + given->note);
    }
    html_ << "</table>\n";
}

void Entries::putRawFiles(const LogEntry& entry, const RawFiles& found) {
    if (!found.unreadable.empty()) {
        html_ << "<p>Could not look everywhere: " << found.unreadable << "</p>\n";
    }
    if (found.paths.empty()) {
        html_ << "<p>No raw file was found.</p>\n";
    }
    if (found.isGuess()) {
        html_ << "<p><strong>A guess</strong>: kept " << std::to_string(found.delay.count())
              << " s before the entry, perhaps of an earlier report.</p>\n";
    } else if (found.paths.size() > 1) {
        html_ << "<p>It came from one of these.</p>\n";
    }
    for (const auto& path : found.paths) {
        const auto [shown, isNew] = shownAt_.try_emplace(path, entry.sequence);
        if (isNew) {
            putRecord(path);
        } else {
            const auto at = std::to_string(shown->second);
            html_ << "<p>" << path << ", at <a href=\"#e" << at << "\">#" << at << "</a></p>\n";
        }
    }
}

void Entries::putRecord(const std::string& path) {
    const auto bytes = readRawFile(path).value_or(std::vector<std::uint8_t>{});
    html_ << "<table class=\"facts\">";
    putFact(html_, "Raw file", path);
    putFact(html_, "Size", countText(static_cast<std::int64_t>(bytes.size()), "byte", "bytes"));
    putFact(html_, "SHA-512", sha512Text(bytes).value_or("unknown: it is gone, or empty"));
    html_ << "</table>\n";
    if (html_.size() > mostPage) {
        html_ << "<p>What it says is left out: the page would become too large.</p>\n";
        return;
    }
    const auto content = contentOf(path, bytes);
    html_ << "<p><strong>" << beginningOf(content.summary.sentence, mostSentence)
          << "</strong></p>\n";
    putText(html_, content.lines);
    if (!isCper(path)) { // a text by itself
        putText(html_, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    if (bytes.size() > mostText) {
        html_ << "<p>The record is longer than what is shown.</p>\n";
    }
}

} // namespace tavrisk::tools
