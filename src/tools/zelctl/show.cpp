// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/time_text.hpp"

#include <sstream>
#include <tuple>

namespace tavrisk::tools {
namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t labelWidth = 16;

/** Texts one below the other, the first behind the label. */
void add(std::vector<Fact>& facts, const Style& style, std::string label, const Texts& texts) {
    for (const auto& text : texts) {
        facts.push_back({label, hanging(style, labelWidth, harmless(text))});
        label = " ";
    }
}

void addOrigin(std::vector<Fact>& facts, const Style& style, const LogEntry& entry) {
    if (entry.sinceBoot) {
        facts.push_back({"  Boot", harmless(bootText(entry))});
    }
    if (isOfUnsetClock(entry)) {
        facts.push_back({" ", "(the clock was not set)"});
    }
    if (entry.salvaged) {
        facts.push_back({"  Salvaged", "from a damaged database"});
    }
    if (const auto& given = entry.acknowledgement) {
        const auto note = given->note.empty() ? "" : ": " + given->note;
        add(facts, style, "  Acknowledged",
            {"by " + given->by + ", " + localTimeText(given->at) + note});
    }
}

void addEntry(std::vector<Fact>& facts, const Style& style, const LogEntry& entry) {
    const auto time = fromLogTime(entry.time);
    facts.push_back({"  Time", time ? localTime(*time, "%F %T %z") + " (" + entry.time + ")"
                                    : harmless(entry.time)});
    facts.push_back({"  Severity", coloured(style, entry.severity(), name(entry.severity())) +
                                       " (" + std::to_string(entry.severityCode) + ")"});
    add(facts, style, "  Message", {entry.messageId + ": " + messageText(entry)});
    add(facts, style, "  Arguments", entry.arguments.empty() ? Texts{"none"} : entry.arguments);
    addOrigin(facts, style, entry);
}

void addRawFiles(std::vector<Fact>& facts, const Style& style, const RawFiles& found) {
    const auto& unreadable = found.unreadable;
    const auto otherwise = unreadable.empty() ? "no longer there" : "cannot be told: " + unreadable;
    add(facts, found.paths.empty() ? style : Style{}, // Who copies a path wants it in one piece.
        found.paths.size() > 1 ? "  One of" : "  Raw file",
        found.paths.empty() ? Texts{otherwise} : found.paths);
    if (found.isGuess()) {
        facts.push_back({" ", "(a guess: kept " + std::to_string(found.delay.count()) +
                                  " s before the entry, perhaps of an earlier report)"});
    }
    facts.push_back({"", "", "rawFiles", toJson(found.paths)});
    facts.push_back({"", "", "rawFilesAreGuess", found.isGuess()});
    facts.push_back({"", "", "rawFilesUnreadable",
                     unreadable.empty() ? Json::Value{} : Json::Value{unreadable}});
}

/** What the record says, in one sentence, and which part that is about. */
void addSummary(std::vector<Fact>& facts, const Style& style, const Summary& summary) {
    for (const auto& [label, key, text] :
         {std::tuple{"  Says", "sentence", summary.sentence}, {"  Part", "part", summary.part}}) {
        if (!text.empty()) {
            add(facts, style, label, {text});
        }
        facts.push_back({"", "", key, text.empty() ? Json::Value{} : Json::Value{text}});
    }
}

/** Lines that are set in by what they belong to, two blanks further. */
void putRecord(const Style& style, const std::string& lines) {
    std::istringstream stream{lines};
    for (std::string line; std::getline(stream, line);) {
        putLine(hanging(style, line.find_first_not_of(' ') + 4, "  " + line));
    }
}

/** All that the first record says. */
Content contentOfFirst(const RawFiles& found) {
    const auto bytes = found.paths.empty() ? std::nullopt : readRawFile(found.paths.front());
    return bytes ? contentOf(found.paths.front(), *bytes) : Content{};
}

} // namespace

Exit show(const Log& log, const Arguments& arguments) {
    const auto sequence = toNumber("SEQ", arguments.operands.front(), 1);
    const auto reader = log.open();
    const auto entry = reader ? reader->find(sequence) : std::optional<LogEntry>{};
    if (!entry) {
        throw Failure{Exit::failed, "there is no entry " + std::to_string(sequence)};
    }
    const auto style = Style::ofStandardOutput();
    std::vector<Fact> facts;
    addEntry(facts, style, *entry);
    const auto found = RawFileIndex{}.find(*entry);
    const auto content = contentOfFirst(found);
    addRawFiles(facts, style, found);
    addSummary(facts, style, found.summary);
    facts.push_back({"", "", "record", content.members.empty() ? Json::Value{} : content.members});
    if (const auto form = formOf(arguments); form != Form::text) {
        Records{form}.put(toJson(facts, toJson(*entry)));
    } else {
        putLine(emphasised(style, "Entry " + std::to_string(sequence)));
        putFacts(facts, labelWidth);
        if (!content.lines.empty()) {
            putLine("\n" + emphasised(style, found.isGuess() ? "Its record, if the guess is right"
                                             : found.paths.size() > 1 ? "The first of these records"
                                                                      : "Its record"));
            putRecord(style, content.lines);
        }
    }
    return Exit::done;
}

} // namespace tavrisk::tools
