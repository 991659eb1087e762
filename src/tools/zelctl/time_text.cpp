// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/time_text.hpp"

#include "text/utc_time.hpp"

#include <algorithm>
#include <array>
#include <charconv>
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

    std::string_view word() {
        const auto* const end = std::find_if_not(rest_.begin(), rest_.end(),
                                                 [](char c) { return c >= 'a' && c <= 'z'; });
        const auto found = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
        rest_.remove_prefix(found.size());
        return found;
    }

private:
    std::string_view rest_;
};

std::tm toLocal(TimePoint time) {
    const std::time_t point = floor<seconds>(time).time_since_epoch().count();
    std::tm parts{};
    localtime_r(&point, &parts);
    return parts;
}

/** So many days before the day that it is at that time, here. */
year_month_day localDay(TimePoint time, days before) {
    const auto reading = time + seconds{toLocal(time).tm_gmtoff};
    return year_month_day{floor<days>(reading) - before};
}

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

/** A date, "today" or "yesterday"; or, in front of a time of day alone, the day that it is. */
std::optional<year_month_day> scanDay(Scanner& scanner, TimePoint now) {
    auto ahead = scanner;
    const auto word = ahead.word();
    if (word == "today" || word == "yesterday") {
        scanner = ahead;
        return localDay(now, days{word == "today" ? 0 : 1});
    }
    return scanTimeOfDay(ahead) ? localDay(now, days{0}) : scanDate(scanner);
}

std::optional<TimePoint> scanPoint(Scanner scanner, TimePoint now, Bound bound) {
    auto ahead = scanner;
    const bool timeAlone = scanTimeOfDay(ahead).has_value();
    const auto date = scanDay(scanner, now);
    if (!date) {
        return {};
    }
    TimeOfDay timeOfDay;
    if (timeAlone || scanner.anyOf("T ")) {
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

std::optional<seconds> unitOf(std::string_view word) {
    struct Unit {
        std::array<std::string_view, 5> words;
        seconds length;
    };
    constexpr std::array units{Unit{{"w", "week", "weeks"}, weeks{1}},
                               Unit{{"d", "day", "days"}, days{1}},
                               Unit{{"h", "hour", "hours"}, hours{1}},
                               Unit{{"m", "min", "mins", "minute", "minutes"}, minutes{1}},
                               Unit{{"s", "sec", "secs", "second", "seconds"}, seconds{1}}};
    for (const auto& unit : units) {
        if (!word.empty() &&
            std::find(unit.words.begin(), unit.words.end(), word) != unit.words.end()) {
            return unit.length;
        }
    }
    return {};
}

/** "-1h30m" or "1 hour 30 minutes ago". */
std::optional<seconds> scanSpan(Scanner scanner) {
    constexpr seconds longest = years{1000};
    const bool minus = scanner.anyOf("-").has_value();
    seconds span{0};
    auto count = scanner.number(1, 6);
    if (!count) {
        return {};
    }
    for (; count; count = scanner.number(1, 6)) {
        scanner.anyOf(" ");
        const auto unit = unitOf(scanner.word());
        if (!unit) {
            return {};
        }
        span = std::min(span + *count * *unit, longest);
        scanner.anyOf(" ");
    }
    const bool complete = (minus || scanner.word() == "ago") && scanner.atEnd();
    return complete ? std::optional{span} : std::nullopt;
}

/** "@1700000000": seconds since 1970. */
std::optional<TimePoint> scanEpoch(std::string_view text, Bound bound) {
    std::int64_t whole = 0;
    const auto* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data() + 1, end, whole);
    constexpr std::int64_t latest = 253'402'300'799; // the end of the year 9999
    if (error != std::errc{} || stopped != end || whole < 0 || whole > latest) {
        return {};
    }
    return sys_seconds{seconds{whole}} + milliseconds{bound == Bound::last ? 999 : 0};
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
    } else if (text.starts_with('@')) {
        time = scanEpoch(text, bound);
    } else {
        time = scanPoint(Scanner{text}, now, bound);
    }
    if (!time) {
        return {};
    }
    return std::string{text::UtcTime{*time}.text()};
}

std::optional<TimePoint> fromLogTime(std::string_view text) {
    constexpr std::size_t length = std::string_view{"2025-01-31T23:59:59.999Z"}.size();
    return text.size() == length && text.ends_with('Z') ? scanPoint(Scanner{text}, {}, Bound::first)
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
