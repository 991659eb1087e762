// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>

/** The two settings that the monitor reads afresh every cycle, from whichever thread it runs on.
 *  Made from a pointer to the object that serves them, which must outlive the monitor. */
struct RetentionSettings {
    template <typename Server>
    RetentionSettings(const Server* server)
        : sizeInMB{[server] { return server->retentionSizeInMB(); }}, intervalInMinutes{[server] {
              return server->retentionIntervalInMinutes();
          }} {}

    std::function<std::uint8_t()> sizeInMB;
    std::function<std::uint8_t()> intervalInMinutes;
};

/** Starts the retention monitor for the life of the process and returns at once. Raises
 *  std::system_error when the thread cannot be started. */
void wuxmonitor_start(RetentionSettings settings);

/** The monitor itself: runs the retention script over the data directories, sleeps for the
 *  configured period, and does so again. Never returns. */
[[noreturn]] void wuxmonitor_thread(const RetentionSettings& settings);
