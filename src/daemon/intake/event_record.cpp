// SPDX-License-Identifier: Apache-2.0
#include "daemon/intake/event_record.hpp"

#include "contract/places.hpp"
#include "daemon/events/worker.hpp"
#include "daemon/intake/data_file.hpp"
#include "log/diag_log.hpp"

#include <ctime>
#include <exception>
#include <utility>

using tavrisk::Kept;

int tavrisk_daemon_thread(std::vector<std::uint8_t> logDataBuffer, std::string validationString) {
    const auto path =
        tavrisk::dataRoot + std::move(validationString) + "." + std::to_string(time(nullptr));
    const auto kept = tavrisk::writeDataFile(__func__, path, logDataBuffer);
    try {
        startWorker(std::move(logDataBuffer));
    } catch (const std::exception& e) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed starting worker thread: %s", __func__,
                 e.what());
        return static_cast<int>(Kept::failed);
    }
    return static_cast<int>(kept);
}
