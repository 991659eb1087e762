// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/period.hpp"

namespace tavrisk::tools {

std::chrono::seconds roundPeriod(std::chrono::milliseconds span, int most) {
    using namespace std::chrono;
    for (const auto period :
         {seconds{minutes{1}}, seconds{minutes{5}}, seconds{minutes{15}}, seconds{minutes{30}},
          seconds{hours{1}}, seconds{hours{3}}, seconds{hours{6}}, seconds{hours{12}},
          seconds{days{1}}, seconds{weeks{1}}, seconds{days{30}}, seconds{days{365}}}) {
        if (span / period < most) {
            return period;
        }
    }
    return ceil<seconds>(span / most);
}

TimePoint roundDown(TimePoint reading, std::chrono::seconds period) {
    using namespace std::chrono;
    const TimePoint aMonday = sys_days{1970y / January / 5};
    const auto origin = period == weeks{1} ? aMonday : TimePoint{};
    const auto beyond = (reading - origin) % period;
    return reading - (beyond.count() < 0 ? beyond + period : beyond);
}

} // namespace tavrisk::tools
