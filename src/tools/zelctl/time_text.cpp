// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/time_text.hpp"

#include "text/utc_time.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>

namespace tavrisk::tools {
namespace {

using namespace std::chrono;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/** Reads a text from left to right; what does not match is not consumed. */
class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_{text} {}

    [[nodiscard]] bool atEnd() const { return rest_.empty(); }

    std::optional<char> anyOf(std::string_view characters) {
        if (rest_.empty() || characters.find(rest_.front()) == std::string_view::npos) {
            return {};
        }
        const char found = rest_.front();
        rest_.remove_prefix(1);
        return found;
    }

    /** A number of `least` to `most` digits. */
    std::optional<int> number(std::size_t least, std::size_t most) {
        const auto* const end =
            std::find_if_not(rest_.begin(), rest_.begin() + std::min(most, rest_.size()), isDigit);
        const auto digits = static_cast<std::size_t>(end - rest_.begin());
        if (digits < least) {
            return {};
        }
        int value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            value = value * 10 + (rest_[i] - '0');
        }
        rest_.remove_prefix(digits);
        return value;
    }

private:
    std::string_view rest_;
};

std::optional<year_month_day> scanDate(Scanner& scanner) {
    const auto y = scanner.number(4, 4);
    const auto dash = scanner.anyOf("-");
    const auto m = scanner.number(2, 2);
    const auto dashToo = scanner.anyOf("-");
    const auto d = scanner.number(2, 2);
    if (!y || !dash || !m || !dashToo || !d) {
        return {};
    }
    const year_month_day date{year{*y}, month{static_cast<unsigned>(*m)},
                              day{static_cast<unsigned>(*d)}};
    return date.ok() ? std::optional{date} : std::nullopt;
}

struct TimeOfDay {
    milliseconds time{0};
    /** How much of time its text stands for: a day when there is none, a minute, a second … */
    milliseconds extent{days{1}};
};

/** "23:59", "23:59:59" or "23:59:59.999". */
std::optional<TimeOfDay> scanTimeOfDay(Scanner& scanner) {
    const auto h = scanner.number(2, 2);
    const auto colon = scanner.anyOf(":");
    const auto m = scanner.number(2, 2);
    if (!h || !colon || !m || *h > 23 || *m > 59) {
        return {};
    }
    milliseconds time = hours{*h} + minutes{*m};
    milliseconds extent = minutes{1};
    if (scanner.anyOf(":")) {
        const auto s = scanner.number(2, 2);
        if (!s || *s > 59) {
            return {};
        }
        time += seconds{*s};
        extent = seconds{1};
        if (scanner.anyOf(".")) {
            int unit = 100;
            std::optional<int> digit = scanner.number(1, 1);
            if (!digit) {
                return {};
            }
            for (; digit; digit = scanner.number(1, 1), unit /= 10) {
                time += milliseconds{*digit * unit};
                extent = milliseconds{std::max(unit, 1)};
            }
        }
    }
    return TimeOfDay{time, extent};
}

/** "Z", "+01:00", "+0100" or "+01". */
std::optional<minutes> scanOffset(Scanner& scanner) {
    if (scanner.anyOf("zZ")) {
        return minutes{0};
    }
    const auto sign = scanner.anyOf("+-");
    const auto h = scanner.number(2, 2);
    if (!sign || !h) {
        return {};
    }
    const bool colon = scanner.anyOf(":").has_value();
    const auto m = scanner.number(2, 2);
    if ((colon && !m) || *h > 23 || m.value_or(0) > 59) {
        return {};
    }
    const auto offset = hours{*h} + minutes{m.value_or(0)};
    return *sign == '-' ? -offset : minutes{offset};
}

TimePoint fromLocal(const year_month_day& date, milliseconds timeOfDay) {
    std::tm parts{};
    parts.tm_year = static_cast<int>(date.year()) - 1900;
    parts.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    parts.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    const hh_mm_ss clock{timeOfDay};
    parts.tm_hour = static_cast<int>(clock.hours().count());
    parts.tm_min = static_cast<int>(clock.minutes().count());
    parts.tm_sec = static_cast<int>(clock.seconds().count());
    parts.tm_isdst = -1;
    return sys_seconds{seconds{std::mktime(&parts)}} + clock.subseconds();
}

std::tm toLocal(TimePoint time) {
    const std::time_t point = floor<seconds>(time).time_since_epoch().count();
    std::tm parts{};
    localtime_r(&point, &parts);
    return parts;
}

std::optional<TimePoint> scanPoint(Scanner scanner, Bound bound) {
    const auto date = scanDate(scanner);
    if (!date) {
        return {};
    }
    TimeOfDay timeOfDay;
    if (scanner.anyOf("T ")) {
        const auto scanned = scanTimeOfDay(scanner);
        if (!scanned) {
            return {};
        }
        timeOfDay = *scanned;
    }
    const auto moment = timeOfDay.time + (bound == Bound::last ? timeOfDay.extent - milliseconds{1}
                                                               : milliseconds{0});
    if (scanner.atEnd()) {
        return fromLocal(*date, moment);
    }
    const auto offset = scanOffset(scanner);
    if (!offset || !scanner.atEnd()) {
        return {};
    }
    return sys_days{*date} + moment - *offset;
}

std::string formatted(const std::tm& parts, const char* format) {
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

seconds oneOf(char unit) {
    switch (unit) {
    case 'w':
        return weeks{1};
    case 'd':
        return days{1};
    case 'h':
        return hours{1};
    case 'm':
        return minutes{1};
    default:
        return seconds{1};
    }
}

std::optional<seconds> scanSpan(Scanner scanner) {
    constexpr seconds longest = years{1000};
    if (!scanner.anyOf("-") || scanner.atEnd()) {
        return {};
    }
    seconds span{0};
    while (!scanner.atEnd() && span < longest) {
        const auto count = scanner.number(1, 6);
        const auto unit = scanner.anyOf("wdhms");
        if (!count || !unit) {
            return {};
        }
        span += *count * oneOf(*unit);
    }
    return std::min(span, longest);
}

} // namespace

TimePoint now() {
    return floor<milliseconds>(system_clock::now());
}

std::optional<std::string> parseTime(std::string_view text, TimePoint now, Bound bound) {
    std::optional<TimePoint> time;
    if (text == "now") {
        time = now;
    } else if (const auto span = scanSpan(Scanner{text})) {
        time = now - *span;
    } else {
        time = scanPoint(Scanner{text}, bound);
    }
    if (!time) {
        return {};
    }
    return std::string{text::UtcTime{*time}.text()};
}

std::optional<TimePoint> fromLogTime(std::string_view text) {
    constexpr std::size_t length = std::string_view{"2025-01-31T23:59:59.999Z"}.size();
    return text.size() == length && text.ends_with('Z') ? scanPoint(Scanner{text}, Bound::first)
                                                        : std::nullopt;
}

std::string localTime(TimePoint time, const char* format) {
    return formatted(toLocal(time), format);
}

TimePoint clockReading(TimePoint time) {
    return time + seconds{toLocal(time).tm_gmtoff};
}

std::string readingText(TimePoint reading, const char* format) {
    const std::time_t point = floor<seconds>(reading).time_since_epoch().count();
    std::tm parts{};
    gmtime_r(&point, &parts);
    return formatted(parts, format);
}

} // namespace tavrisk::tools
