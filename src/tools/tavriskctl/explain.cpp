// SPDX-License-Identifier: Apache-2.0
#include "records/catalogue.hpp"
#include "records/classifier.hpp"
#include "records/cper_parser.hpp"
#include "tools/common/content.hpp"
#include "tools/common/output.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/input.hpp"
#include "tools/tavriskctl/report.hpp"

#include <json/value.h>

#include <algorithm>
#include <string_view>

namespace tavrisk::tools {
namespace {

Outcome notReported(const std::string& reason) {
    Outcome outcome{Exit::done, "not reported: " + reason};
    outcome.details["reportable"] = false;
    outcome.details["reason"] = reason;
    return outcome;
}

/** What the daemon would do with an accepted event record. */
Outcome explainEvent(std::span<const std::uint8_t> record) {
    const auto verdict = classify(record);
    if (!verdict.event) {
        return notReported(verdict.severity ? verdict.reason : whyNotJson(record));
    }
    const auto& device = verdict.event->device;
    if (device.size() >= messageArgumentsCapacity) {
        return notReported("the event log takes no device name of more than " +
                           std::to_string(messageArgumentsCapacity - 1) + " bytes");
    }
    Outcome outcome;
    outcome.details["reportable"] = true;
    const auto* message = findMessage(verdict.event->number);
    const auto text = messageAbout(*message, device);
    const auto* severity = name(*verdict.severity);
    outcome.sentence = std::string{"reported as "} + message->messageId + ", " + severity +
                       ", device \"" + device + "\": " + text;
    outcome.details["messageId"] = message->messageId;
    outcome.details["message"] = text;
    outcome.details["severity"] = severity;
    outcome.details["device"] = device;
    return outcome;
}

/** What the daemon would do with an accepted CPER: its summary is classified as an event record. */
Outcome explainCper(const std::vector<std::uint8_t>& record) {
    Json::Value summary;
    if (nvCperParse(record, summary) != 0) {
        return {Exit::failed, "refused: it is too short for a CPER"};
    }
    const auto json = cperEventRecord(summary);
    auto outcome = explainEvent({reinterpret_cast<const std::uint8_t*>(json.data()), json.size()});
    outcome.sentence = "CPER of " + summary["Timestamp"].asString() + ", " +
                       summary["MessageSeverity"].asString() + ", section type " +
                       summary["SectionType"].asString() + ", notification type " +
                       summary["CPER"]["NotificationType"].asString() + "; " + outcome.sentence;
    outcome.details["summary"] = std::move(summary);
    return outcome;
}

/** A CPER begins with its signature, or has it behind four bytes that stand in front of it. In a
 *  record of JSON these four can only be what comes before the first member's name. */
bool looksLikeCper(const std::vector<std::uint8_t>& bytes) {
    constexpr std::string_view signature{"CPER"};
    const std::string_view head{reinterpret_cast<const char*>(bytes.data()),
                                std::min<std::size_t>(bytes.size(), 8)};
    return head.starts_with(signature) ||
           (head.size() == 8 && head.ends_with(signature) &&
            head.substr(0, 4).find_first_not_of(" \t\r\n{\"") != std::string_view::npos);
}

/** Adds what the record says of itself. Of an event record that is little and shown in any case. */
void addContent(Outcome& outcome, const Content& content, bool showLines) {
    outcome.headline = content.summary.sentence;
    outcome.lines = showLines ? content.lines : "";
    addMembers(outcome.details, content.members);
}

Outcome explainFile(const std::string& file, const std::string& kind, bool verbose) {
    const auto bytes = readInput(file);
    if (bytes.empty()) {
        return {Exit::failed, "refused: empty input"};
    }
    const bool isCper = kind.empty() ? looksLikeCper(bytes) : kind == "cper";
    auto outcome = isCper ? explainCper(bytes) : explainEvent(bytes);
    outcome.details["kind"] = isCper ? "cper" : "event";
    addContent(outcome, isCper ? contentOfCper(bytes) : contentOfEvent(bytes), verbose || !isCper);
    if (kind.empty() && outcome.sentence.starts_with("not reported: it is no JSON:")) {
        outcome.sentence += " (without a CPER's signature; --as=cper takes it for one)";
    }
    return outcome;
}

} // namespace

Exit explain(const Arguments& arguments) {
    const auto kind = arguments.value("as").value_or("");
    if (arguments.has("as") && kind != "event" && kind != "cper") {
        failUsage("--as takes event or cper, not '" + kind + "'");
    }
    // Nothing is sent, but options that every command takes are right or wrong with every one.
    targetOf(arguments, std::chrono::seconds{0});
    Report report{arguments};
    for (const auto& file : arguments.operands) {
        report.tellOfFile(file, [&] { return explainFile(file, kind, arguments.has("verbose")); });
    }
    return report.finish();
}

} // namespace tavrisk::tools
