// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace tavrisk {

/** How bad an event is, in the codes that the event log takes. */
enum class Severity : std::uint8_t { critical = 1, warning = 2, other = 3 };

constexpr std::uint32_t code(Severity severity) {
    return static_cast<std::uint32_t>(severity);
}

/** What a code stands for; one that is not known counts as `other`. */
constexpr Severity severityOf(std::int64_t code) {
    return code == 1 || code == 2 ? static_cast<Severity>(code) : Severity::other;
}

static_assert(severityOf(code(Severity::critical)) == Severity::critical &&
              severityOf(code(Severity::warning)) == Severity::warning &&
              severityOf(0) == Severity::other && severityOf(3) == Severity::other);

constexpr const char* name(Severity severity) {
    switch (severity) {
    case Severity::critical:
        return "critical";
    case Severity::warning:
        return "warning";
    case Severity::other:
        break;
    }
    return "other";
}

} // namespace tavrisk
