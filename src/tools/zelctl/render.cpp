// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/render.hpp"

#include "records/catalogue.hpp"
#include "text/utf8.hpp"
#include "tools/zelctl/time_text.hpp"

#include <json/writer.h>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

namespace tavrisk::zelctl {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// Characters that are not seen but change how others are: directions, joiners, line ends, tags.
constexpr std::array invisible{
    Range{0xad, 0xad},     Range{0x61c, 0x61c},   Range{0x180e, 0x180e},
    Range{0x200b, 0x200f}, Range{0x2028, 0x202e}, Range{0x2060, 0x206f},
    Range{0xfeff, 0xfeff}, Range{0xfff9, 0xfffb}, Range{0xe0000, 0xe007f},
};

bool isInvisible(char32_t codePoint) {
    return std::any_of(invisible.begin(), invisible.end(), [codePoint](const Range& range) {
        return codePoint >= range.first && codePoint <= range.last;
    });
}

std::string escape(const text::Character& character) {
    if (character.codePoint == '\n') {
        return "\\n";
    }
    const auto code = static_cast<unsigned>(character.codePoint);
    std::array<char, 16> text{};
    const char* const format = character.valid && code > 0x7f ? "\\u{%x}" : "\\x%02x";
    const int length = std::snprintf(text.data(), text.size(), format, code);
    return {text.data(), static_cast<std::size_t>(length)};
}

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

const char* environment(const char* variable) {
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

/** To such a one a byte of a longer character could be a command of its own. */
bool isTerminalWithoutUtf8() {
    static const bool answer = [] {
        const auto style = Style::ofStandardOutput();
        return style.terminal && !style.utf8;
    }();
    return answer;
}

// Of a longer message, a list shows the beginning; `show` has it whole.
constexpr std::size_t mostMessageLines = 4;

constexpr std::size_t timeWidth = 19;
constexpr std::size_t severityWidth = 8;
constexpr std::size_t messageIdWidth = 7;

} // namespace

Style Style::ofStandardOutput() {
    Style style;
    style.terminal = isatty(STDOUT_FILENO) != 0;
    style.colour = style.terminal && *environment("NO_COLOR") == '\0' &&
                   std::string_view{environment("TERM")} != "dumb";
    style.utf8 = std::string_view{nl_langinfo(CODESET)} == "UTF-8";
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
        style.width = size.ws_col;
    }
    return style;
}

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
        const auto length = lineLength(text, width - indent);
        result += text.substr(0, length);
        text.remove_prefix(length);
        if (text.empty()) {
            return result;
        }
        result += "\n" + std::string(indent, ' ');
    }
}

std::string harmless(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto character = text::firstCharacter(text);
        if (!character.valid || character.isControl() || isInvisible(character.codePoint) ||
            (character.length > 1 && isTerminalWithoutUtf8())) {
            result += escape(character);
        } else {
            result += text.substr(0, character.length);
        }
        text.remove_prefix(character.length);
    }
    return result;
}

std::string messageText(const LogEntry& entry) {
    const auto* const row = findMessage(entry.messageId);
    if (row == nullptr) {
        return "(not in the catalogue) " + entry.device();
    }
    constexpr std::string_view placeholder = "%s";
    std::string text = row->text;
    return text.replace(text.find(placeholder), placeholder.size(), entry.device());
}

std::string localTimeText(const std::string& stored) {
    const auto time = fromLogTime(stored);
    return time ? localTime(*time) : harmless(stored);
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
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

std::string entryLine(const Style& style, const LogEntry& entry, std::size_t sequenceWidth) {
    const auto sequence = std::to_string(entry.sequence);
    const auto sequenceColumns = std::max(sequenceWidth, sequence.size());
    const auto beside = sequenceColumns + timeWidth + severityWidth + messageIdWidth + 8;
    return std::string(sequenceColumns - sequence.size(), ' ') + sequence + "  " +
           padded(localTimeText(entry.time), timeWidth) + "  " +
           coloured(style, entry.severity(), padded(name(entry.severity()), severityWidth)) + "  " +
           padded(harmless(entry.messageId), messageIdWidth) + "  " +
           hanging(style, beside, harmless(messageText(entry)), mostMessageLines);
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
    value["arguments"] = Json::arrayValue;
    for (const auto& argument : entry.arguments) {
        value["arguments"].append(argument);
    }
    return value;
}

std::string jsonLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = false;
    return Json::writeString(builder, value);
}

} // namespace tavrisk::zelctl
