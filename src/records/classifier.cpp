// SPDX-License-Identifier: Apache-2.0
#include "records/classifier.hpp"

#include "log/diag_log.hpp"
#include "records/json_outline.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace tavrisk {
namespace {

constexpr auto classifierLogName = "checkRedfishData";

constexpr std::string_view platformError = "Platform.1.0.PlatformError";

struct MessageRow {
    consteval MessageRow(std::string_view id, std::int32_t number) : messageId{id}, event{number} {
        if (id.size() >= JsonName::capacity) {
            throw std::length_error{"no record's would ever be compared with all of it"};
        }
    }

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
std::int32_t lookUp(const Table& table, const JsonName& messageId, std::int32_t otherwise) {
    const auto row = std::find_if(table.begin(), table.end(), [&](const MessageRow& candidate) {
        return messageId == candidate.messageId;
    });
    return row != table.end() ? row->event : otherwise;
}

/** Why the record is not to be reported; null for one that is. */
const char* whyNotReportable(const JsonOutline& record) {
    if (!record.isRecord()) {
        throw std::runtime_error{"it is no JSON object"};
    }
    if (record.name(JsonOutline::eventType) != "Event" &&
        record.name(JsonOutline::entryType) != "Event") {
        return R"(it is no event: neither its EventType nor its EntryType is "Event")";
    }
    for (const auto member : {JsonOutline::severity, JsonOutline::messageSeverity}) {
        const auto severity = record.name(member);
        if (severity == "Critical" || severity == "Warning") {
            return nullptr;
        }
    }
    return R"(neither its Severity nor its MessageSeverity is "Critical" or "Warning")";
}

bool isCritical(const JsonOutline& record) {
    return record.name(JsonOutline::severity) == "Critical" ||
           record.name(JsonOutline::messageSeverity) == "Critical";
}

std::string deviceName(const JsonOutline& record, const JsonName& messageId) {
    return record.inside(messageId == platformError ? JsonOutline::cper : JsonOutline::messageArgs);
}

/** Fills the verdict in step by step: when a member of the wrong type raises, the severity that is
 *  known by then stays in it. */
void judge(const JsonOutline& record, Verdict& verdict) {
    diag_log(LOG_USER, LOG_DEBUG, "%s:  parsing JSON", classifierLogName);
    verdict.severity = Severity::other;
    if (const char* why = whyNotReportable(record)) {
        verdict.reason = why;
        return;
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s: Entry parsing JSON", classifierLogName);

    const bool critical = isCritical(record);
    if (critical) {
        diag_log(LOG_USER, LOG_DEBUG, "%s: Critical parsing JSON", classifierLogName);
    }
    verdict.severity = critical ? Severity::critical : Severity::warning;
    const auto messageId = record.name(JsonOutline::messageId);
    const auto number = critical ? lookUp(criticalMessages, messageId, otherCriticalEvent)
                                 : lookUp(warningMessages, messageId, otherWarningEvent);
    auto device = deviceName(record, messageId);
    device.resize(std::min(device.find('\0'), device.size()));
    verdict.event = {number, std::move(device)};
}

} // namespace

Verdict classify(std::span<const std::uint8_t> record) {
    Verdict verdict;
    const JsonOutline outline{record};
    if (outline.finding() != JsonOutline::Finding::json) {
        verdict.reason = "it is no JSON";
    } else {
        // The record comes from a peer: a member of the wrong type may not end the daemon.
        try {
            judge(outline, verdict);
            return verdict;
        } catch (const std::runtime_error& e) { // The same line as for text that is no JSON.
            verdict.reason = e.what();
        }
    }
    diag_log(LOG_USER, LOG_WARNING, "%s: Failed parsing JSON", classifierLogName);
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
