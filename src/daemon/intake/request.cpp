// SPDX-License-Identifier: Apache-2.0
#include "daemon/intake/request.hpp"

#include "daemon/intake/cper_record.hpp"
#include "daemon/intake/event_record.hpp"
#include "log/diag_log.hpp"
#include "records/digest.hpp"

#include <utility>

namespace {

using HandOn = int (*)(std::vector<std::uint8_t>, std::string);

int takeIn(const char* logName, HandOn handOn, std::string validationString,
           std::vector<std::uint8_t> logDataBuffer) {
    if (validationString.empty() || logDataBuffer.empty()) {
        diag_log(LOG_USER, LOG_WARNING, "%s : validationString or logDataBuffer is empty \n",
                 logName);
        return 2;
    }
    if (const int result = validateBuffer(validationString, logDataBuffer)) {
        diag_log(LOG_USER, LOG_WARNING, "%s : validateBuffer failed, rc = %d \n", logName, result);
        return result;
    }
    if (const int result = handOn(std::move(logDataBuffer), std::move(validationString))) {
        // Deliberately the same words whatever the data was handed on to.
        diag_log(LOG_USER, LOG_WARNING, "%s : tavrisk_daemon_thread not started, rc = %d \n",
                 logName, result);
        return result;
    }
    return 0;
}

} // namespace

int LogEvent(std::string validationString, std::vector<std::uint8_t> logDataBuffer) {
    return takeIn(__func__, tavrisk_daemon_thread, std::move(validationString),
                  std::move(logDataBuffer));
}

int LogCPEREvent(std::string validationString, std::vector<std::uint8_t> logDataBuffer) {
    return takeIn(__func__, createLogServiceEntry, std::move(validationString),
                  std::move(logDataBuffer));
}
