// SPDX-License-Identifier: Apache-2.0
#include "log/diag_log.hpp"

#include "contract/platform/whelk.h"
#include "log/bounded_syslog.hpp"
#include "log/fork_gate.hpp"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace {

constexpr int debugLogComponent = 349;

// Indexed by syslog priority, emergency to debug.
constexpr std::array<std::uint8_t, 8> debugLogLevels{1, 1, 1, 2, 3, 4, 4, 5};
constexpr std::uint8_t unknownLevel = 0;

std::uint8_t debugLogLevel(int level) {
    const auto index = static_cast<std::size_t>(level);
    return index < debugLogLevels.size() ? debugLogLevels[index] : unknownLevel;
}

} // namespace

void diag_log(int facility, int level, const char* format, ...) {
    const tavrisk::ForkGate::Pass pass;

    std::va_list arguments;
    va_start(arguments, format);
    whelk_vprintf(debugLogLevel(level), debugLogComponent, format, arguments);
    va_end(arguments);

    va_start(arguments, format);
    tavrisk::writeToSyslog(facility, level, format, arguments);
    va_end(arguments);
}
