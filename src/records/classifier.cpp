// SPDX-License-Identifier: Apache-2.0
#include "records/classifier.hpp"

#include "log/diag_log.hpp"
#include "records/json_outline.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
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

/** What `read` returns; a type that jsoncpp refuses is raised again under the member's name. */
template <typename Read>
std::string readText(const char* member, Read read) {
    try {
        return read();
    } catch (const Json::LogicError&) {
        throw std::runtime_error{std::string{"its "} + member + " is of the wrong type"};
    }
}

/** The member as text, "" when it is missing; raises for a record that is no object and for a
 *  member that is one, or an array. */
std::string text(const Json::Value& record, const char* member) {
    return readText(member, [&] { return record[member].asString(); });
}

/** Why the record is not to be reported; null for one that is. */
const char* whyNotReportable(const Json::Value& record) {
    if (!record.isObject() && !record.isNull()) {
        throw std::runtime_error{"it is no JSON object"};
    }
    if (text(record, "EventType") != "Event" && text(record, "EntryType") != "Event") {
        return R"(it is no event: neither its EventType nor its EntryType is "Event")";
    }
    if (text(record, "Severity") == "Critical" || text(record, "Severity") == "Warning" ||
        text(record, "MessageSeverity") == "Critical" ||
        text(record, "MessageSeverity") == "Warning") {
        return nullptr;
    }
    return R"(neither its Severity nor its MessageSeverity is "Critical" or "Warning")";
}

bool isCritical(const Json::Value& record) {
    return text(record, "Severity") == "Critical" || text(record, "MessageSeverity") == "Critical";
}

std::string deviceName(const Json::Value& record, std::string_view messageId) {
    return messageId == platformError
               ? readText("CPER", [&] { return record["CPER"]["NotificationType"].asString(); })
               : readText("MessageArgs", [&] { return record["MessageArgs"][0].asString(); });
}

std::string whyNotParsed(const Json::Reader& reader) {
    const auto errors = reader.getStructuredErrors();
    std::string reason{"it is no JSON"};
    if (!errors.empty()) {
        reason += ": at byte " + std::to_string(errors.front().offset_start) + ", " +
                  errors.front().message;
    }
    return reason;
}

/** Null for a record to be reported, whose outputs it sets; otherwise why it is not. */
const char* classify(const Json::Value& record, std::int32_t& event, char*& device,
                     std::uint32_t& severity) {
    diag_log(8, 7, "%s:  parsing JSON", logName);
    severity = severityOther;
    if (const char* why = whyNotReportable(record)) {
        return why;
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
    return nullptr;
}

/** Makes a tree of the text that is known to be JSON, nested no deeper than jsoncpp accepts. */
Json::Value parse(const std::string& json) {
    // Comments are accepted, but kept for nobody: a record of nothing else would be copied.
    constexpr bool collectComments = false;
    Json::Reader reader;
    Json::Value root;
    try {
        if (!reader.parse(json.data(), json.data() + json.size(), root, collectComments)) {
            // A stream that reads a number keeps want of memory to itself.
            throw std::bad_alloc{};
        }
    } catch (const Json::RuntimeError&) { // As jsoncpp calls want of memory for a text.
        throw std::bad_alloc{};
    }
    return root;
}

/** Why the parser does not take the record, of which it sees all here. */
std::string whyNotJson(std::span<const std::uint8_t> record) {
    const auto* begin = reinterpret_cast<const char*>(record.data());
    Json::Reader reader;
    Json::Value root;
    try {
        reader.parse(begin, begin + record.size(), root, false);
    } catch (const Json::RuntimeError& e) {
        return e.what(); // Nested too deeply.
    }
    return whyNotParsed(reader);
}

/** What both public functions do; `reason` may be null. Want of memory is raised: nothing is known
 *  of the record then. */
int examine(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
            std::uint32_t& severity, std::string* reason) {
    const tavrisk::JsonOutline outline{record};
    std::string why;
    if (outline.finding() != tavrisk::JsonOutline::Finding::json) {
        why = reason != nullptr ? whyNotJson(record) : "";
    } else {
        // jsoncpp throws its own exceptions for members of the wrong type. The record comes from a
        // peer: none may end the daemon.
        try {
            const char* whyNot = classify(parse(outline.text()), event, device, severity);
            if (whyNot != nullptr && reason != nullptr) {
                *reason = whyNot;
            }
            return whyNot == nullptr ? 1 : 0;
        } catch (const std::runtime_error& e) { // The same line as for text that is no JSON.
            why = e.what();
        }
    }
    if (reason != nullptr) {
        *reason = why;
    }
    diag_log(8, 4, "%s: Failed parsing JSON", logName);
    return 0;
}

} // namespace

int checkRedfishData(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
                     std::uint32_t& severity) {
    return examine(record, event, device, severity, nullptr);
}

int tavrisk::explainRedfishData(std::span<const std::uint8_t> record, std::int32_t& event,
                                char*& device, std::uint32_t& severity, std::string& reason) {
    return examine(record, event, device, severity, &reason);
}
