// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/render.hpp"

#include "events/catalogue.hpp"
#include "platform/common/utf8.hpp"
#include "tools/zelctl/time_text.hpp"

#include <json/writer.h>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

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

std::string escape(const platform::Character& character) {
    if (character.codePoint == '\n') {
        return "\\n";
    }
    const auto code = static_cast<unsigned>(character.codePoint);
    std::array<char, 16> text{};
    const char* const format = character.valid && code > 0x7f ? "\\u{%x}" : "\\x%02x";
    const int length = std::snprintf(text.data(), text.size(), format, code);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string wrapped(const Style& style, const char* code, const std::string& text) {
    return style.colour ? "\x1b[" + std::string{code} + "m" + text + "\x1b[0m" : text;
}

const char* environment(const char* variable) {
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

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

std::string harmless(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto character = platform::firstCharacter(text);
        if (!character.valid || character.isControl() || isInvisible(character.codePoint)) {
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
    return std::string(std::max(sequenceWidth, sequence.size()) - sequence.size(), ' ') + sequence +
           "  " + padded(localTimeText(entry.time), timeWidth) + "  " +
           coloured(style, entry.severity(), padded(name(entry.severity()), severityWidth)) + "  " +
           padded(harmless(entry.messageId), messageIdWidth) + "  " + harmless(messageText(entry));
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
