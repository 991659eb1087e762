// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"

#include "tools/common/failure.hpp"

#include <json/writer.h>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tavrisk::tools {
namespace {

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

constexpr std::array notPrintable{
    Range{0x00, 0x1f},     Range{0x7f, 0x9f},     Range{0x200e, 0x200f}, Range{0x2028, 0x202e},
    Range{0x2066, 0x2069}, Range{0xd800, 0xdfff}, Range{0xfeff, 0xfeff},
};

bool isPrintable(std::uint32_t character) {
    return character <= 0x10ffff &&
           std::none_of(notPrintable.begin(), notPrintable.end(), [character](const Range& range) {
               return range.first <= character && character <= range.last;
           });
}

/** Length of the printable UTF-8 character that `text` begins with; 0 when there is none. */
std::size_t printableLength(std::string_view text) {
    constexpr std::array<std::uint32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<std::uint8_t>(text.front());
    if (lead < 0x80) {
        return isPrintable(lead) ? 1 : 0;
    }
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc0 || lead >= 0xf8 || text.size() < length) {
        return 0;
    }
    std::uint32_t character = lead & (0x7fU >> length);
    for (const char next : text.substr(1, length - 1)) {
        const auto byte = static_cast<std::uint8_t>(next);
        if ((byte & 0xc0U) != 0x80) {
            return 0;
        }
        character = character << 6U | (byte & 0x3fU);
    }
    return character >= smallest.at(length) && isPrintable(character) ? length : 0;
}

const char* environment(const char* variable) {
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

/** Whether the user's locale is one of UTF-8, also in a program that has set none. */
bool usersTextIsUtf8() {
    const auto locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale == nullptr) {
        return false;
    }
    const bool answer = std::string_view{nl_langinfo_l(CODESET, locale)} == "UTF-8";
    freelocale(locale);
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

std::string harmless(std::string_view text) {
    constexpr std::string_view digits{"0123456789abcdef"};
    std::string result;
    while (!text.empty()) {
        std::size_t length = printableLength(text);
        if (length != 0) {
            result += text.substr(0, length);
        } else {
            const auto byte = static_cast<std::uint8_t>(text.front());
            result += {'\\', 'x', digits[byte >> 4U], digits[byte & 0xfU]};
            length = 1;
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
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

void addMembers(Json::Value& object, const Json::Value& members) {
    for (const auto& name : members.getMemberNames()) {
        object[name] = members[name];
    }
}

} // namespace tavrisk::tools
