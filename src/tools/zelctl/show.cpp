// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/show.hpp"

#include "tools/zelctl/output.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/render.hpp"
#include "tools/zelctl/time_text.hpp"

namespace tavrisk::zelctl {
namespace {

using Texts = std::vector<std::string>;

void putAll(const Style& style, std::string label, const Texts& texts,
            const std::string& otherwise) {
    const auto indent = label.size();
    if (texts.empty()) {
        putLine(label + harmless(otherwise));
    }
    for (const auto& text : texts) {
        putLine(label + hanging(style, indent, harmless(text)));
        label.assign(indent, ' ');
    }
}

void putRawFiles(const Style& style, const RawFiles& found) {
    const auto* const label = found.paths.size() > 1 ? "  One of     " : "  Raw file   ";
    putAll(style, label, found.paths,
           found.unreadable.empty() ? "no longer there" : "cannot be told: " + found.unreadable);
    if (found.isGuess()) {
        putLine("             (a guess: kept " + std::to_string(found.delay.count()) +
                " s before the entry, perhaps of an earlier report)");
    }
}

void putText(const LogEntry& entry, const RawFiles& rawFiles) {
    const auto style = Style::ofStandardOutput();
    const auto time = fromLogTime(entry.time);
    putLine(emphasised(style, "Entry " + std::to_string(entry.sequence)));
    putLine("  Time       " +
            (time ? localTime(*time, "%F %T %z") + " (" + entry.time + ")" : harmless(entry.time)));
    putLine("  Severity   " + coloured(style, entry.severity(), name(entry.severity())) + " (" +
            std::to_string(entry.severityCode) + ")");
    putAll(style, "  Message    ", {entry.messageId + ": " + messageText(entry)}, "");
    putAll(style, "  Arguments  ", entry.arguments, "none");
    putRawFiles(style, rawFiles);
}

void putJson(const LogEntry& entry, const RawFiles& rawFiles) {
    auto value = toJson(entry);
    value["rawFiles"] = Json::arrayValue;
    for (const auto& file : rawFiles.paths) {
        value["rawFiles"].append(file);
    }
    value["rawFilesAreGuess"] = rawFiles.isGuess();
    value["rawFilesUnreadable"] =
        rawFiles.unreadable.empty() ? Json::Value{} : Json::Value{rawFiles.unreadable};
    putLine(jsonLine(value));
}

} // namespace

void show(const LogReader* reader, const Options& options) {
    const auto entry =
        reader != nullptr ? reader->find(options.sequence) : std::optional<LogEntry>{};
    if (!entry) {
        throw Problem{"there is no entry " + std::to_string(options.sequence)};
    }
    (options.json ? putJson : putText)(*entry, findRawFiles(*entry));
}

} // namespace tavrisk::zelctl
