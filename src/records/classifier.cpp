// SPDX-License-Identifier: Apache-2.0
#include "records/classifier.hpp"

#include "log/diag_log.hpp"
#include "records/json_outline.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavrisk {
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

/** Fills the verdict in step by step: when a member of the wrong type raises, the severity that is
 *  known by then stays in it. */
void judge(const Json::Value& record, Verdict& verdict) {
    diag_log(LOG_USER, LOG_DEBUG, "%s:  parsing JSON", logName);
    verdict.severity = Severity::other;
    if (const char* why = whyNotReportable(record)) {
        verdict.reason = why;
        return;
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s: Entry parsing JSON", logName);

    const bool critical = isCritical(record);
    if (critical) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: Critical parsing JSON", logName);
    }
    verdict.severity = critical ? Severity::critical : Severity::warning;
    const auto messageId = text(record, "MessageId");
    const auto number = critical ? lookUp(criticalMessages, messageId, otherCriticalEvent)
                                 : lookUp(warningMessages, messageId, otherWarningEvent);
    const auto device = deviceName(record, messageId);
    verdict.event = {number, device.substr(0, device.find('\0'))};
}

/** Makes a tree of the text that is known to be JSON, nested no deeper than jsoncpp accepts. */
Json::Value parse(const std::string& json) {
    // Comments are accepted but not collected: jsoncpp would copy all of a record that is nothing
    // else.
    constexpr bool collectComments = false;
    Json::Reader reader;
    Json::Value root;
    try {
        if (!reader.parse(json.data(), json.data() + json.size(), root, collectComments)) {
            // jsoncpp reads some numbers from a stream, which turns want of memory into bad input.
            throw std::bad_alloc{};
        }
    } catch (const Json::RuntimeError&) { // What jsoncpp raises without memory for a text.
        throw std::bad_alloc{};
    }
    return root;
}

} // namespace

Verdict classify(std::span<const std::uint8_t> record) {
    Verdict verdict;
    const JsonOutline outline{record};
    if (outline.finding() != JsonOutline::Finding::json) {
        verdict.reason = "it is no JSON";
    } else {
        // jsoncpp throws its own exceptions for members of the wrong type. The record comes from a
        // peer: none may end the daemon.
        try {
            judge(parse(outline.text()), verdict);
            return verdict;
        } catch (const std::runtime_error& e) { // The same line as for text that is no JSON.
            verdict.reason = e.what();
        }
    }
    diag_log(LOG_USER, LOG_WARNING, "%s: Failed parsing JSON", logName);
    return verdict;
}

std::string whyNotJson(std::span<const std::uint8_t> record) {
    const auto* begin = reinterpret_cast<const char*>(record.data());
    Json::Reader reader;
    Json::Value root;
    try {
        reader.parse(begin, begin + record.size(), root, false);
    } catch (const Json::RuntimeError& e) {
        return e.what(); // Nested too deeply.
    }
    std::string reason{"it is no JSON"};
    const auto errors = reader.getStructuredErrors();
    if (!errors.empty()) {
        reason += ": at byte " + std::to_string(errors.front().offset_start) + ", " +
                  errors.front().message;
    }
    return reason;
}

} // namespace tavrisk

int checkRedfishData(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
                     std::uint32_t& severity) {
    const auto verdict = tavrisk::classify(record);
    if (verdict.severity) {
        severity = code(*verdict.severity);
    }
    if (!verdict.event) {
        return 0;
    }
    event = verdict.event->number;
    device = strdup(verdict.event->device.c_str());
    return 1;
}
