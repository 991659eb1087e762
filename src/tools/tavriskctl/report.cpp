// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/report.hpp"

#include <json/writer.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>

namespace tavrisk::ctl {
namespace {

constexpr auto programName = "tavriskctl";

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

/** `lines` set in by two blanks. */
std::string setIn(std::string_view lines) {
    std::string text;
    while (!lines.empty()) {
        const auto end = std::min(lines.find('\n'), lines.size() - 1) + 1;
        text += "  " + std::string{lines.substr(0, end)};
        lines.remove_prefix(end);
    }
    return text;
}

/** What goes to standard output. */
std::string textOf(const std::string& subject, const Outcome& outcome) {
    const auto said = outcome.status == Exit::accepted ? printable(outcome.sentence) + "\n" : "";
    if (outcome.headline.empty()) {
        return (said.empty() ? "" : subject + ": " + said) + setIn(outcome.lines);
    }
    return subject + ": " + printable(outcome.headline) + "\n" + setIn(said + outcome.lines);
}

} // namespace

const char* resultWord(Exit status) {
    switch (status) {
    case Exit::accepted:
        return "accepted";
    case Exit::refused:
        return "refused";
    case Exit::usage:
        return "usage";
    case Exit::unreachable:
        break;
    }
    return "unreachable";
}

std::string printable(std::string_view text) {
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

void printJson(const Json::Value& object) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    std::cout << Json::writeString(builder, object) << std::endl;
}

void reportFailure(const Options& options, const Failure& failure) {
    if (options.json && failure.status() != Exit::usage) {
        Json::Value object;
        object["command"] = options.commandName;
        object["result"] = resultWord(failure.status());
        object["reason"] = failure.what();
        printJson(object);
    } else {
        std::cerr << programName << ": " << printable(failure.what()) << "\n";
    }
    if (failure.status() == Exit::usage) {
        std::cerr << "Try '" << programName << " "
                  << (options.commandName.empty() ? "" : options.commandName + " ") << "--help'.\n";
    }
}

Report::Report(const Options& options, std::size_t requests)
    : json_{options.json},
      command_{options.commandName},
      requests_{requests},
      progress_{!json_ && requests > 1 && isatty(STDOUT_FILENO) == 1 &&
                isatty(STDERR_FILENO) == 1} {}

void Report::tell(const std::string& subject, const Json::Value& about,
                  const std::function<Outcome()>& request) {
    showProgress(subject);
    Outcome outcome;
    try {
        outcome = request();
    } catch (const Failure& failure) {
        outcome = {failure.status(), failure.what()};
    }
    for (const auto& member : about.getMemberNames()) {
        outcome.details[member] = about[member];
    }
    worst_ = std::max(worst_, outcome.status);
    accepted_ += outcome.status == Exit::accepted ? 1 : 0;
    print(subject, outcome);
}

void Report::showProgress(const std::string& subject) {
    ++begun_;
    if (progress_) {
        clearProgress();
        // Cut off at the margin: a line that went on below could not be taken back.
        std::cerr << "\033[?7l[" << begun_ << '/' << requests_ << "] " << printable(subject)
                  << "\033[?7h" << std::flush;
    }
}

void Report::print(const std::string& subject, const Outcome& outcome) const {
    const bool accepted = outcome.status == Exit::accepted;
    if (json_) {
        auto object = outcome.details;
        object["command"] = command_;
        object["result"] = resultWord(outcome.status);
        if (!accepted) {
            object["reason"] = outcome.sentence;
        }
        printJson(object);
        return;
    }
    clearProgress();
    if (!accepted) {
        std::cerr << programName << ": " << printable(subject) << ": "
                  << printable(outcome.sentence) << "\n";
    }
    if (!progress_) {
        std::cout << textOf(printable(subject), outcome) << std::flush;
    }
}

Exit Report::finish() {
    if (progress_) {
        clearProgress();
        std::cout << accepted_ << " of " << requests_ << " accepted\n";
    }
    return worst_;
}

void Report::clearProgress() const {
    if (progress_) {
        std::cerr << "\r\033[K";
    }
}

} // namespace tavrisk::ctl
