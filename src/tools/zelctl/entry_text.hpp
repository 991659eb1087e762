// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/output.hpp"
#include "tools/zelctl/log.hpp"

#include <string>
#include <string_view>

namespace tavrisk::tools {

/** The text broken into lines for a terminal, all but the first indented by `indent` columns, where
 *  the first is taken to begin; what goes beyond `mostLines` is left out. */
std::string hanging(const Style& style, std::size_t indent, std::string_view text,
                    std::size_t mostLines = std::string_view::npos);

/** The catalogue's text with the entry's device filled in; for a message that it does not have,
 *  what the log knows. */
std::string messageText(const LogEntry& entry);

/** A stored time in local time, or harmlessly as it stands when it is none. */
std::string localTimeText(const std::string& stored);

/** Whether the entry is of a time when the clock was not set: machines without one begin in 1970.
 */
bool isOfUnsetClock(const LogEntry& entry);
/** Times of the log from this one on are of a clock that was set. */
inline constexpr auto firstPlausibleTime = "2020-01-01T00:00:00.000Z";

/** How long after which boot it was made: "12.345 s after boot ID"; empty when that is not known.
 */
std::string bootText(const LogEntry& entry);

/** "3 entries", "1 entry". */
std::string countText(std::int64_t count, const std::string& one, const std::string& many);

std::string coloured(const Style& style, Severity severity, const std::string& text);
std::string emphasised(const Style& style, const std::string& text);

/** One line of `list` and `follow`; `sequenceWidth` aligns them, `more` stands behind the message.
 */
std::string entryLine(const Style& style, const LogEntry& entry, std::size_t sequenceWidth,
                      const std::string& more = {});
std::string titleLine(const Style& style, std::size_t sequenceWidth);

Json::Value toJson(const LogEntry& entry);

} // namespace tavrisk::tools
