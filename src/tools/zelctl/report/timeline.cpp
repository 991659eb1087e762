// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/timeline.hpp"

#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/period.hpp"

#include <algorithm>
#include <chrono>

namespace tavrisk::tools {
namespace {

using std::chrono::seconds;

constexpr int mostBars = 60;
constexpr std::size_t fewestBars = 12; // or a single one would be as wide as the page

constexpr std::array<Markup, 3> words{"critical", "warning", "other"};
// Told apart without colours: full, hatched and dotted.
constexpr std::array<Markup, 3> fills{"currentColor", "url(#hatched)", "url(#dotted)"};
constexpr Markup patterns =
    R"svg(<defs><pattern id="hatched" width="5" height="5" patternUnits="userSpaceOnUse" patternTransform="rotate(45)"><rect class="warning" width="3" height="5" fill="currentColor"/></pattern>
<pattern id="dotted" width="4" height="4" patternUnits="userSpaceOnUse"><rect class="other" width="2" height="2" fill="currentColor"/></pattern></defs>
)svg";

/** What stands for its bars, of the same period each. */
struct Chart {
    TimePoint begin; // a reading of the local clock
    seconds period;
    std::vector<SeverityCounts> bars;
    std::int64_t top; // what its height stands for
};

std::int64_t sumOf(const SeverityCounts& counts) {
    return counts[0] + counts[1] + counts[2];
}

/** A round number that is not smaller, and has a round half: 2, 4, 10, 20, 40, 100 ... */
std::int64_t roundTop(std::int64_t highest) {
    for (std::int64_t ten = 1;; ten *= 10) {
        for (const auto step : {2, 4, 10}) {
            if (highest <= step * ten) {
                return step * ten;
            }
        }
    }
}

Chart chartOf(const std::vector<std::pair<TimePoint, Severity>>& times) {
    const auto [first, last] = std::minmax_element(times.begin(), times.end());
    const auto beginning = clockReading(first->first);
    Chart chart{};
    chart.period = roundPeriod(clockReading(last->first) - beginning, mostBars);
    chart.begin = roundDown(beginning, chart.period);
    chart.bars.resize(fewestBars);
    for (const auto& [time, severity] : times) {
        // When the clock is put back in autumn, an earlier hour may be read later.
        const auto after = std::max(clockReading(time) - chart.begin, std::chrono::milliseconds{});
        const auto bar = static_cast<std::size_t>(after / chart.period);
        chart.bars.resize(std::max(chart.bars.size(), bar + 1));
        ++chart.bars[bar].at(placeOf(severity));
    }
    std::int64_t highest = 0;
    for (const auto& bar : chart.bars) {
        highest = std::max(highest, sumOf(bar));
    }
    chart.top = roundTop(highest);
    return chart;
}

std::string periodText(seconds period) {
    constexpr std::int64_t minute = 60;
    constexpr std::int64_t hour = 60 * minute;
    constexpr std::int64_t day = 24 * hour;
    const auto count = period.count();
    return count % day == 0    ? countText(count / day, "day", "days")
           : count % hour == 0 ? countText(count / hour, "hour", "hours")
                               : countText(count / minute, "minute", "minutes");
}

/** A share of `whole` as a percentage with two decimals. */
std::string percent(std::int64_t share, std::int64_t whole) {
    const auto hundredths = share * 10000 / whole;
    const auto decimals = std::to_string(100 + hundredths % 100).substr(1);
    return std::to_string(hundredths / 100) + "." + decimals + "%";
}

void putBar(Html& html, const Chart& chart, std::size_t index) {
    const auto& counts = chart.bars[index];
    const auto slots = static_cast<std::int64_t>(chart.bars.size());
    const auto place = static_cast<std::int64_t>(index);
    const auto time = readingText(chart.begin + place * chart.period, "%F %H:%M");
    html << "<g><title>" << (time + ": " + countsText(counts)) << "</title>";
    std::int64_t below = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        below += counts.at(i);
        if (counts.at(i) != 0) {
            html << "<rect class=\"" << words.at(i) << "\" fill=\"" << fills.at(i) << "\" x=\""
                 << percent(10 * place + 1, 10 * slots) << "\" width=\"" << percent(8, 10 * slots)
                 << "\" y=\"" << percent(chart.top - below, chart.top) << "\" height=\""
                 << percent(counts.at(i), chart.top) << "\"/>";
        }
    }
    html << "</g>\n";
}

void putLegend(Html& html, const Chart& chart) {
    html << "<p>Each bar is of " << periodText(chart.period) << ", from below:";
    for (std::size_t i = 0; i < words.size(); ++i) {
        html << " <svg class=\"key " << words.at(i)
             << "\" xmlns=\"http://www.w3.org/2000/svg\" aria-hidden=\"true\">"
                "<rect width=\"100%\" height=\"100%\" fill=\""
             << fills.at(i) << "\"/></svg> " << words.at(i);
    }
    html << ".</p>\n";
}

void putBars(Html& html, const Chart& chart) {
    html << "<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" aria-label=\"Entries over "
            "time\">"
         << patterns;
    for (const Markup y : {Markup{"0"}, Markup{"50%"}}) {
        html << R"(<line x1="0" x2="100%" y1=")" << y << R"(" y2=")" << y << R"("/>)";
    }
    for (std::size_t i = 0; i < chart.bars.size(); ++i) {
        if (sumOf(chart.bars[i]) != 0) {
            putBar(html, chart, i);
        }
    }
    html << "</svg>\n";
}

} // namespace

std::string countsText(const SeverityCounts& counts) {
    constexpr std::array names{" critical", " warning", " other"};
    std::string text;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (counts.at(i) != 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(counts.at(i)) + names.at(i);
        }
    }
    return text.empty() ? "none" : text;
}

void putTimeline(Html& html, const std::vector<std::pair<TimePoint, Severity>>& times) {
    if (times.empty()) {
        return;
    }
    const auto chart = chartOf(times);
    putLegend(html, chart);
    html << R"(<div class="chart"><div class="scale"><span>)" << std::to_string(chart.top)
         << "</span><span>" << std::to_string(chart.top / 2) << "</span><span>0</span></div>\n";
    putBars(html, chart);
    const auto count = static_cast<std::int64_t>(chart.bars.size());
    html << "<span></span><div class=\"ends\">";
    for (const auto bar : {std::int64_t{0}, count / 2, count}) {
        html << "<span>" << readingText(chart.begin + bar * chart.period, "%F %H:%M") << "</span>";
    }
    html << "</div></div>\n";
}

} // namespace tavrisk::tools
