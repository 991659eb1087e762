// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/entry_text.hpp"

#include "records/catalogue.hpp"
#include "text/utf8.hpp"
#include "tools/zelctl/time_text.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cwchar>

namespace tavrisk::tools {
namespace {

/** Columns that the character takes on a terminal; an escape takes one a byte. */
std::size_t columnsOf(const text::Character& character) {
    const int columns = character.valid ? wcwidth(static_cast<wchar_t>(character.codePoint)) : 1;
    return static_cast<std::size_t>(std::max(columns, 0));
}

/** Where a line has to end of which `room` columns are there: behind its last blank, or where the
 *  columns end. */
std::size_t lineLength(std::string_view text, std::size_t room) {
    std::size_t columns = 0;
    std::size_t afterBlank = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto character = text::firstCharacter(text.substr(at));
        columns += columnsOf(character);
        if (columns > room) {
            return afterBlank != 0 ? afterBlank : at;
        }
        at += character.length;
        afterBlank = character.codePoint == ' ' ? at : afterBlank;
    }
    return text.size();
}

std::string wrapped(const Style& style, const char* code, const std::string& text) {
    return style.colour ? "\x1b[" + std::string{code} + "m" + text + "\x1b[0m" : text;
}

// Of a longer message, a list shows the beginning; `show` has it whole.
constexpr std::size_t mostMessageLines = 4;

constexpr std::size_t timeWidth = 19;
constexpr std::size_t severityWidth = 8;
constexpr std::size_t messageIdWidth = 7;

/** The time of an entry; how long after its boot when nobody knew the time. */
std::string timeText(const LogEntry& entry) {
    if (!isOfUnsetClock(entry) || !entry.sinceBoot) {
        return localTimeText(entry.time);
    }
    const std::chrono::hh_mm_ss clock{*entry.sinceBoot};
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "boot+%ld:%02ld:%02ld.%03ld",
                  static_cast<long>(clock.hours().count()), clock.minutes().count(),
                  clock.seconds().count(), clock.subseconds().count());
    return text.data();
}

} // namespace

std::string hanging(const Style& style, std::size_t indent, std::string_view text,
                    std::size_t mostLines) {
    constexpr std::size_t leastRoom = 20;
    const auto width = static_cast<std::size_t>(style.width);
    if (!style.terminal || width < indent + leastRoom) {
        return std::string{text};
    }
    std::string result;
    for (std::size_t lines = 1;; ++lines) {
        if (lines > mostLines) {
            return result + "...";
        }
        auto length = lineLength(text, width - indent);
        for (auto room = width - indent - 1; text.size() - length == 1 && room > 1; --room) {
            length = lineLength(text, room); // The last character does not stand alone.
        }
        result += text.substr(0, length);
        text.remove_prefix(length);
        if (text.empty()) {
            return result;
        }
        result += "\n" + std::string(indent, ' ');
    }
}

std::string messageText(const LogEntry& entry) {
    const auto* const row = findMessage(entry.messageId);
    return row != nullptr ? messageAbout(*row, entry.device())
                          : "(not in the catalogue) " + entry.device();
}

std::string localTimeText(const std::string& stored) {
    const auto time = fromLogTime(stored);
    return time ? localTime(*time) : harmless(stored);
}

bool isOfUnsetClock(const LogEntry& entry) {
    return entry.time < firstPlausibleTime;
}

std::string bootText(const LogEntry& entry) {
    if (!entry.sinceBoot) {
        return "";
    }
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%.3f s after boot ",
                  std::chrono::duration<double>{*entry.sinceBoot}.count());
    return text.data() + entry.bootId;
}

std::string countText(std::int64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string coloured(const Style& style, Severity severity, const std::string& text) {
    switch (severity) {
    case Severity::critical:
        return wrapped(style, "1;31", text);
    case Severity::warning:
        return wrapped(style, "33", text);
    case Severity::other:
        break;
    }
    return text;
}

std::string emphasised(const Style& style, const std::string& text) {
    return wrapped(style, "1", text);
}

std::string entryLine(const Style& style, const LogEntry& entry, std::size_t sequenceWidth,
                      const std::string& more) {
    const auto sequence = std::to_string(entry.sequence);
    const auto sequenceColumns = std::max(sequenceWidth, sequence.size());
    const auto beside = sequenceColumns + timeWidth + severityWidth + messageIdWidth + 8;
    return std::string(sequenceColumns - sequence.size(), ' ') + sequence + "  " +
           padded(timeText(entry), timeWidth) + "  " +
           coloured(style, entry.severity(), padded(name(entry.severity()), severityWidth)) + "  " +
           padded(harmless(entry.messageId), messageIdWidth) + "  " +
           hanging(style, beside, harmless(messageText(entry)) + more, mostMessageLines);
}

std::string titleLine(const Style& style, std::size_t sequenceWidth) {
    return emphasised(style, std::string(std::max<std::size_t>(sequenceWidth, 1) - 1, ' ') + "#  " +
                                 padded("TIME", timeWidth) + "  " +
                                 padded("SEVERITY", severityWidth) + "  " +
                                 padded("ID", messageIdWidth) + "  MESSAGE");
}

Json::Value toJson(const LogEntry& entry) {
    Json::Value value{Json::objectValue};
    value["sequence"] = Json::Int64{entry.sequence};
    value["time"] = entry.time;
    value["messageId"] = entry.messageId;
    value["severity"] = name(entry.severity());
    value["severityCode"] = Json::Int64{entry.severityCode};
    value["message"] = messageText(entry);
    value["device"] = entry.device();
    value["arguments"] = toJson(entry.arguments);
    value["bootId"] = entry.bootId.empty() ? Json::Value{} : Json::Value{entry.bootId};
    value["millisecondsSinceBoot"] =
        entry.sinceBoot ? Json::Value{Json::Int64{entry.sinceBoot->count()}} : Json::Value{};
    value["salvaged"] = entry.salvaged;
    auto& acknowledged = value["acknowledged"];
    if (const auto& given = entry.acknowledgement) {
        acknowledged["by"] = given->by;
        acknowledged["at"] = given->at;
        acknowledged["note"] = given->note;
    }
    return value;
}

} // namespace tavrisk::tools
