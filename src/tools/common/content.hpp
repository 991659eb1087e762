// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <cstdint>
#include <span>
#include <string>

namespace tavrisk::tools {

/** What a record says of itself in short, whatever the daemon makes of it. */
struct Summary {
    /** What happened to which part; empty when the record does not tell. */
    std::string sentence;
    /** The part alone; empty when the record does not tell. */
    std::string part;
};

Summary summaryOfCper(std::span<const std::uint8_t> bytes);
Summary summaryOfEvent(std::span<const std::uint8_t> bytes);

/** All of what it says. */
struct Content {
    Summary summary;
    /** The rest, line by line, each with a newline. */
    std::string lines{};
    /** All of it, as members of the JSON object. */
    Json::Value members{Json::objectValue};
};

/** Of a CPER, of which any part may be missing; the lines are the decoded record. */
Content contentOfCper(std::span<const std::uint8_t> bytes);

/** Of an event record: its Message, Resolution and OriginOfCondition. Bytes that are no JSON object
 *  have no content. */
Content contentOfEvent(std::span<const std::uint8_t> bytes);

} // namespace tavrisk::tools
