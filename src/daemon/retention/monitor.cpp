// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/monitor.hpp"

#include "daemon/intake/data_tree.hpp"
#include "daemon/retention/child_runner.hpp"
#include "log/diag_log.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <thread>
#include <utility>

namespace {

constexpr auto monitorName = "wuxmonitor_thread";

constexpr unsigned greatestSizeInMB = 100;
constexpr unsigned greatestIntervalInMinutes = 20;
constexpr std::time_t secondsPerMinute = 60;

/** Below the data root, in the order in which they are policed. */
constexpr std::array dataDirectories{"", "dump/", "rawCPER/"};

void police(const char* directory, unsigned sizeInMB, unsigned minutes) {
    std::array<char, 80> command{};
    std::snprintf(command.data(), command.size(), "/app/bin/wuxRetensionChk.sh %s%s %u",
                  tavrisk::dataRoot, directory, sizeInMB);
    if (const int result = tavrisk::runInShell(command.data(), minutes)) {
        diag_log(8, 4, "%s: Failed policing HMC WUX data location : %d", monitorName, result);
    }
}

void sleepFor(unsigned minutes) {
    timespec left{.tv_sec = minutes * secondsPerMinute, .tv_nsec = 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace

unsigned tavrisk::effectiveSizeInMB(std::uint8_t setting) {
    return std::clamp<unsigned>(setting, 1, greatestSizeInMB);
}

unsigned tavrisk::effectiveIntervalInMinutes(std::uint8_t setting) {
    return std::clamp<unsigned>(setting, 1, greatestIntervalInMinutes);
}

void wuxmonitor_start(RetentionSettings settings) {
    // The words mislead and are kept: the monitor is about to start.
    diag_log(8, 4, "%s : No Monitoring yet!, rc = %d \n", __func__, 1);
    std::thread{wuxmonitor_thread, std::move(settings)}.detach();
}

void wuxmonitor_thread(const RetentionSettings& settings) {
    for (;;) {
        const unsigned sizeInMB = tavrisk::effectiveSizeInMB(settings.sizeInMB());
        const unsigned minutes = tavrisk::effectiveIntervalInMinutes(settings.intervalInMinutes());
        for (const auto* directory : dataDirectories) {
            police(directory, sizeInMB, minutes);
        }
        sleepFor(minutes);
    }
}
