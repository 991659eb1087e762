// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"

#include <json/value.h>

#include <string>
#include <string_view>

namespace tavrisk::zelctl {

/** How standard output wants its text. */
struct Style {
    bool terminal = false; // titles and the like
    bool colour = false;
    bool utf8 = false; // characters beyond ASCII for decoration
    int width = 80;

    static Style ofStandardOutput();
};

/** The text with everything in escapes ("\n", "\x1b", "\u{202e}") that a terminal could take as
 *  a command, or that would make it show something else than what is there. */
std::string harmless(std::string_view text);

/** The text broken into lines for a terminal, all but the first indented by `indent` columns, where
 *  the first is taken to begin; what goes beyond `mostLines` is left out. */
std::string hanging(const Style& style, std::size_t indent, std::string_view text,
                    std::size_t mostLines = std::string_view::npos);

/** The catalogue's text with the entry's device filled in; for a message that it does not have,
 *  what the log knows. */
std::string messageText(const LogEntry& entry);

/** A stored time in local time, or harmlessly as it stands when it is none. */
std::string localTimeText(const std::string& stored);

std::string padded(std::string text, std::size_t width);
std::string coloured(const Style& style, Severity severity, const std::string& text);
std::string emphasised(const Style& style, const std::string& text);

/** One line of `list` and `follow`; `sequenceWidth` aligns them. */
std::string entryLine(const Style& style, const LogEntry& entry, std::size_t sequenceWidth);
std::string titleLine(const Style& style, std::size_t sequenceWidth);

Json::Value toJson(const LogEntry& entry);

/** The value on one line, in ASCII: safe for a terminal, too. */
std::string jsonLine(const Json::Value& value);

} // namespace tavrisk::zelctl
