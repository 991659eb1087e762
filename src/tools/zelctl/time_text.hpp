// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tavrisk::tools {

/** Not the clock's own type: that ends in the year 2262, and people may write any. */
using TimePoint = std::chrono::sys_time<std::chrono::milliseconds>;

TimePoint now();

/** Which moment a text means that stands for a whole second, minute or day. */
enum class Bound { first, last };

/** The event log's text ("2025-01-31T23:59:59.999Z") of a time that a person has written: a date
 *  with or without a time of day, local unless it says otherwise, in place of the date "today",
 *  "yesterday" or nothing; "now"; a span before `now`, such as "-1h30m" or "1 hour ago"; or "@" and
 *  seconds since 1970. Nothing for any other text. */
std::optional<std::string> parseTime(std::string_view text, TimePoint now, Bound bound);

/** The time behind one of the event log's texts; nothing when it is none. */
std::optional<TimePoint> fromLogTime(std::string_view text);

/** In local time; `format` is one of strftime's. */
std::string localTime(TimePoint time, const char* format = "%F %T");

/** What a local clock shows at that time, as if it were UTC: its days all have 24 hours. */
TimePoint clockReading(TimePoint time);
std::string readingText(TimePoint reading, const char* format);

} // namespace tavrisk::tools
