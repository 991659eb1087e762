// SPDX-License-Identifier: Apache-2.0
#include "events/classifier.hpp"

#include "service/diag_log.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

namespace {

constexpr auto logName = "checkRedfishData";

constexpr std::string_view platformError = "Platform.1.0.PlatformError";

struct MessageRow {
    std::string_view messageId;
    std::int32_t event;
};

// Compared whole: a message of another registry version matches no row.
// A caution threshold that comes with critical severity counts as the critical one, and so do the
// fatal thresholds. This is deliberate: the catalogue has no events of their own for them.
constexpr std::array criticalMessages{
    MessageRow{platformError, 1},
    MessageRow{"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold", 6},
    MessageRow{"SensorEvent.1.0.0.ReadingAboveUpperCriticalThreshold", 6},
    MessageRow{"SensorEvent.1.0.0.ReadingBelowLowerCriticalThreshold", 7},
    MessageRow{"SensorEvent.1.0.0.ReadingAboveUpperFatalThreshold", 6},
    MessageRow{"SensorEvent.1.0.0.ReadingBelowLowerFatalThreshold", 7},
};
constexpr std::int32_t otherCriticalEvent = 1;

constexpr std::array warningMessages{
    MessageRow{"ResourceEvent.1.0.ResourceWarningThresholdExceeded", 4},
    MessageRow{"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold", 5},
};
constexpr std::int32_t otherWarningEvent = 2;

template <typename Table>
std::int32_t lookUp(const Table& table, std::string_view messageId, std::int32_t otherwise) {
    const auto row = std::find_if(table.begin(), table.end(), [&](const MessageRow& candidate) {
        return candidate.messageId == messageId;
    });
    return row != table.end() ? row->event : otherwise;
}

/** The member as text, "" when it is missing; raises jsoncpp's logic error for a record that is
 *  no object and for a member that is one, or an array. */
std::string text(const Json::Value& object, const char* member) {
    return object[member].asString();
}

bool isReportable(const Json::Value& record) {
    if (text(record, "EventType") != "Event" && text(record, "EntryType") != "Event") {
        return false;
    }
    return text(record, "Severity") == "Critical" || text(record, "Severity") == "Warning" ||
           text(record, "MessageSeverity") == "Critical" ||
           text(record, "MessageSeverity") == "Warning";
}

bool isCritical(const Json::Value& record) {
    return text(record, "Severity") == "Critical" || text(record, "MessageSeverity") == "Critical";
}

std::string deviceName(const Json::Value& record, std::string_view messageId) {
    return messageId == platformError ? text(record["CPER"], "NotificationType")
                                      : record["MessageArgs"][0].asString();
}

int classify(const Json::Value& record, std::int32_t& event, char*& device,
             std::uint32_t& severity) {
    diag_log(8, 7, "%s:  parsing JSON", logName);
    severity = severityOther;
    if (!isReportable(record)) {
        return 0;
    }
    diag_log(8, 7, "%s: Entry parsing JSON", logName);

    std::string messageId;
    std::int32_t number = 0;
    if (isCritical(record)) {
        diag_log(8, 7, "%s: Critical parsing JSON", logName);
        severity = severityCritical;
        messageId = text(record, "MessageId");
        number = lookUp(criticalMessages, messageId, otherCriticalEvent);
    } else {
        severity = severityWarning;
        messageId = text(record, "MessageId");
        number = lookUp(warningMessages, messageId, otherWarningEvent);
    }

    device = strdup(deviceName(record, messageId).c_str());
    event = number;
    return 1;
}

} // namespace

int checkRedfishData(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
                     std::uint32_t& severity) {
    // jsoncpp throws its own exceptions for members of the wrong type and standard ones for
    // nesting deeper than it accepts. The record comes from a peer: none may end the daemon.
    try {
        const auto* begin = reinterpret_cast<const char*>(record.data());
        Json::Value root;
        if (Json::Reader{}.parse(begin, begin + record.size(), root, true)) {
            return classify(root, event, device, severity);
        }
    } catch (const std::exception&) { // The same line as for text that is no JSON.
    }
    diag_log(8, 4, "%s: Failed parsing JSON", logName);
    return 0;
}
