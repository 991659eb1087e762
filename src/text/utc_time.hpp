// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace tavrisk::text {

/** A point in time as "2025-01-31T23:59:59.999Z": of fixed width, so that the texts sort as the
 *  times do. */
class UtcTime {
public:
    // Calendar arithmetic of our own instead of gmtime_r: that takes a lock inside the C library,
    // and a child forked while another thread holds it would wait for ever in syslog().
    template <typename Duration>
    explicit UtcTime(std::chrono::sys_time<Duration> time) {
        using namespace std::chrono;
        const auto day = floor<days>(time);
        const year_month_day date{day};
        const hh_mm_ss clock{floor<milliseconds>(time - day)};
        put(0, 4, std::clamp(static_cast<int>(date.year()), 0, 9999));
        put(5, 2, static_cast<long>(static_cast<unsigned>(date.month())));
        put(8, 2, static_cast<long>(static_cast<unsigned>(date.day())));
        put(11, 2, clock.hours().count());
        put(14, 2, clock.minutes().count());
        put(17, 2, clock.seconds().count());
        put(20, 3, clock.subseconds().count());
    }

    [[nodiscard]] std::string_view text() const { return {text_.data(), text_.size() - 1}; }

private:
    void put(std::size_t position, std::size_t digits, long value) {
        for (std::size_t i = digits; i-- > 0; value /= 10) {
            text_[position + i] = static_cast<char>('0' + value % 10);
        }
    }

    std::array<char, 25> text_ = std::to_array("0000-00-00T00:00:00.000Z");
};

} // namespace tavrisk::text
