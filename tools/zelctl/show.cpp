// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/show.hpp"

#include "tools/zelctl/output.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/render.hpp"
#include "tools/zelctl/time_text.hpp"

namespace tavrisk::zelctl {
namespace {

using Texts = std::vector<std::string>;

void putAll(const char* label, const Texts& texts, const char* otherwise) {
    if (texts.empty()) {
        putLine(std::string{label} + otherwise);
    }
    for (const auto& text : texts) {
        putLine(label + harmless(text));
        label = "             ";
    }
}

void putText(const LogEntry& entry, const Texts& rawFiles) {
    const auto style = Style::ofStandardOutput();
    const auto time = fromLogTime(entry.time);
    putLine(emphasised(style, "Entry " + std::to_string(entry.sequence)));
    putLine("  Time       " +
            (time ? localTime(*time, "%F %T %z") + " (" + entry.time + ")" : harmless(entry.time)));
    putLine("  Severity   " + coloured(style, entry.severity(), name(entry.severity())) + " (" +
            std::to_string(entry.severityCode) + ")");
    putLine("  Message    " + harmless(entry.messageId) + ": " + harmless(messageText(entry)));
    putAll("  Arguments  ", entry.arguments, "none");
    // Several fit as well when the same was reported more than once in that second.
    putAll(rawFiles.size() > 1 ? "  One of     " : "  Raw file   ", rawFiles, "no longer there");
}

void putJson(const LogEntry& entry, const Texts& rawFiles) {
    auto value = toJson(entry);
    value["rawFiles"] = Json::arrayValue;
    for (const auto& file : rawFiles) {
        value["rawFiles"].append(file);
    }
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
