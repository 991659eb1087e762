// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"

#include "text/utf8.hpp"
#include "tools/common/failure.hpp"

#include <json/writer.h>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tavrisk::tools {
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

std::string harmless(std::string_view text, bool asciiOnly) {
    std::string result;
    while (!text.empty()) {
        const auto character = text::firstCharacter(text);
        if (!character.valid || character.isControl() || isInvisible(character.codePoint) ||
            (character.length > 1 && asciiOnly)) {
            result += escape(character);
        } else {
            result += text.substr(0, character.length);
        }
        text.remove_prefix(character.length);
    }
    return result;
}

const char* environment(const char* variable) {
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

/** Whether the user's locale is one of UTF-8, also in a program that has set none. */
bool usersTextIsUtf8() {
    auto* const locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale == nullptr) {
        return false;
    }
    const bool answer = std::string_view{nl_langinfo_l(CODESET, locale)} == "UTF-8";
    freelocale(locale);
    return answer;
}

Style look() {
    Style style;
    style.terminal = isatty(STDOUT_FILENO) != 0;
    style.colour = style.terminal && *environment("NO_COLOR") == '\0' &&
                   std::string_view{environment("TERM")} != "dumb";
    style.utf8 = usersTextIsUtf8();
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
        style.width = size.ws_col;
    }
    return style;
}

/** To such a one a byte of a longer character could be a command of its own. */
bool isTerminalWithoutUtf8() {
    static const bool answer = [] {
        const auto style = Style::ofStandardOutput();
        return style.terminal && !style.utf8;
    }();
    return answer;
}

void check(bool written) {
    if (written) {
        return;
    }
    if (errno == EPIPE) {
        throw NobodyReads{};
    }
    throw Failure{Exit::failed,
                  std::string{"the output could not be written: "} +
                      std::strerror(errno)}; // NOLINT(concurrency-mt-unsafe): there is one thread
}

} // namespace

Style Style::ofStandardOutput() {
    static const Style style = look();
    return style;
}

std::string harmless(std::string_view text) {
    return harmless(text, isTerminalWithoutUtf8());
}

std::string harmlessInFile(std::string_view text) {
    return harmless(text, false);
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string sizeText(std::int64_t bytes) {
    constexpr std::array units{"bytes", "KiB", "MiB", "GiB"};
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; size >= 1024 && unit + 1 < units.size(); ++unit) {
        size /= 1024;
    }
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s",
                                     size, units.at(unit));
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string jsonLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = false;
    return Json::writeString(builder, value);
}

void put(std::string_view text) {
    check(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void putLine(std::string_view line) {
    put(line);
    put("\n");
}

void flushOutput() {
    check(std::fflush(stdout) == 0);
}

void putFacts(const std::vector<Fact>& facts, std::size_t labelWidth) {
    for (const auto& fact : facts) {
        if (!fact.label.empty()) {
            putLine(padded(fact.label, labelWidth) + fact.text);
        }
    }
}

Json::Value toJson(const std::vector<Fact>& facts, Json::Value object) {
    for (const auto& fact : facts) {
        if (fact.key != nullptr) {
            object[fact.key] = fact.json;
        }
    }
    return object;
}

Json::Value toJson(const std::vector<std::string>& texts) {
    Json::Value array{Json::arrayValue};
    for (const auto& text : texts) {
        array.append(text);
    }
    return array;
}

void addMembers(Json::Value& object, const Json::Value& members) {
    for (const auto& name : members.getMemberNames()) {
        object[name] = members[name];
    }
}

} // namespace tavrisk::tools
