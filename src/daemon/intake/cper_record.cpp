// SPDX-License-Identifier: Apache-2.0
#include "daemon/intake/cper_record.hpp"

#include "contract/places.hpp"
#include "daemon/events/worker.hpp"
#include "daemon/intake/data_file.hpp"
#include "log/diag_log.hpp"
#include "records/cper_parser.hpp"

#include <json/value.h>

namespace {

constexpr auto cperLogName = "createLogServiceEntry";

/** At the level that follows the summary's severity. The blanks differ on purpose. */
void logReceived(const Json::Value& severity, const std::string& json) {
    if (severity == "Critical") {
        diag_log(LOG_USER, LOG_CRIT, "%s: received CPER: (summary) %s", cperLogName, json.c_str());
    } else if (severity == "Warning") {
        diag_log(LOG_USER, LOG_WARNING, "%s: received CPER: (summary)  %s", cperLogName,
                 json.c_str());
    } else {
        diag_log(LOG_USER, LOG_INFO, "%s: received CPER: (summary)  %s", cperLogName, json.c_str());
    }
}

} // namespace

// By value like every function that the intake hands on to.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int createLogServiceEntry(std::vector<std::uint8_t> logDataBuffer, std::string validationString) {
    diag_log(LOG_USER, LOG_DEBUG, "%s: Processing data file: %s", cperLogName,
             validationString.c_str());
    Json::Value summary;
    if (const int result = nvCperParse(logDataBuffer, summary)) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: NV CPER parse failed : %d", cperLogName, result);
        return result;
    }

    const auto path = tavrisk::dataRoot + (tavrisk::rawCperDirectory + validationString + "." +
                                           summary["Timestamp"].asString());
    diag_log(LOG_USER, LOG_DEBUG, "%s: Attempt data write to file: %s", cperLogName, path.c_str());
    // An event whose file could not be written is reported all the same.
    tavrisk::writeDataFile(cperLogName, path, logDataBuffer);

    diag_log(LOG_USER, LOG_DEBUG, "%s: Convert JSON to byte stream of JSON", cperLogName);
    const auto json = tavrisk::cperEventRecord(summary);
    diag_log(LOG_USER, LOG_DEBUG, "%s:j.dump(summary) %s", cperLogName, json.c_str());
    logReceived(summary["MessageSeverity"], json);

    diag_log(LOG_USER, LOG_DEBUG, "%s: send basic to ze loging function", cperLogName);
    startWorker(std::vector<std::uint8_t>{json.begin(), json.end()});
    return 0;
}
