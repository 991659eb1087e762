// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/monitor.hpp"

#include "contract/places.hpp"
#include "contract/properties.hpp"
#include "daemon/retention/child_runner.hpp"
#include "daemon/threads/thread.hpp"
#include "log/diag_log.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <utility>

namespace {

constexpr auto monitorName = "wuxmonitor_thread";

/** Below the data root, in the order in which they are policed. */
constexpr std::array dataDirectories{"", tavrisk::dumpDirectory, tavrisk::rawCperDirectory};

void police(const char* directory, unsigned sizeInMB, unsigned minutes) {
    std::array<char, 80> command{};
    std::snprintf(command.data(), command.size(), "%s %s%s %u", tavrisk::retentionScript,
                  tavrisk::dataRoot, directory, sizeInMB);
    if (const int result = tavrisk::runInShell(command.data(), minutes)) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed policing HMC WUX data location : %d",
                 monitorName, result);
    }
}

void sleepFor(unsigned minutes) {
    timespec left{.tv_sec = std::time_t{minutes} * tavrisk::secondsPerMinute, .tv_nsec = 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace

void wuxmonitor_start(RetentionSettings settings) {
    // The words mislead and are kept: the monitor is about to start.
    diag_log(LOG_USER, LOG_WARNING, "%s : No Monitoring yet!, rc = %d \n", __func__, 1);
    tavrisk::startThread([settings = std::move(settings)] { wuxmonitor_thread(settings); });
}

void wuxmonitor_thread(const RetentionSettings& settings) {
    for (;;) {
        const unsigned sizeInMB = tavrisk::retentionSizeInMB.effective(settings.sizeInMB());
        const unsigned minutes =
            tavrisk::retentionIntervalInMinutes.effective(settings.intervalInMinutes());
        for (const auto* directory : dataDirectories) {
            police(directory, sizeInMB, minutes);
        }
        sleepFor(minutes);
    }
}
