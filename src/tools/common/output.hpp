// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavrisk::tools {

/** How standard output wants its text. */
struct Style {
    bool terminal = false; // titles and the like
    bool colour = false;
    bool utf8 = false; // characters beyond ASCII for decoration
    int width = 80;

    /** As it was when this was first asked for. */
    static Style ofStandardOutput();
};

/** The text with everything in escapes ("\n", "\x1b", "\u{202e}") that a terminal could take as
 *  a command, or that would make it show something else than what is there. */
std::string harmless(std::string_view text);
/** The same for a file, which is UTF-8 on whatever terminal it is made. */
std::string harmlessInFile(std::string_view text);

std::string padded(std::string text, std::size_t width);

/** "42 bytes" or "1.5 KiB". */
std::string sizeText(std::int64_t bytes);

/** The value on one line, in ASCII: safe for a terminal, too. */
std::string jsonLine(const Json::Value& value);

/** Writes to standard output. Raises NobodyReads, or Failure when the output is refused. */
void put(std::string_view text);
void putLine(std::string_view line);

/** Makes sure that all of it has left. Raises as put() does. */
void flushOutput();

/** One thing that a command tells, as a line of text and as a member of its JSON object. */
struct Fact {
    /** Without a label, it is in the object alone. Both are fit for a terminal. */
    std::string label;
    std::string text;
    /** The member's name; null to have it in the text alone. */
    const char* key = nullptr;
    Json::Value json{};
};

/** Prints the facts one below the other, the texts `labelWidth` columns from the margin. */
void putFacts(const std::vector<Fact>& facts, std::size_t labelWidth);

/** The object with the facts as further members. */
Json::Value toJson(const std::vector<Fact>& facts, Json::Value object = Json::objectValue);

Json::Value toJson(const std::vector<std::string>& texts);

void addMembers(Json::Value& object, const Json::Value& members);

} // namespace tavrisk::tools
