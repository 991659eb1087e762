// SPDX-License-Identifier: Apache-2.0
#include "records/catalogue.hpp"
#include "records/classifier.hpp"
#include "records/cper_parser.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/content.hpp"
#include "tools/tavriskctl/input.hpp"
#include "tools/tavriskctl/report.hpp"

#include <json/writer.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace tavrisk::ctl {
namespace {

const char* severityWord(std::uint32_t severity) {
    return severity == severityCritical ? "critical" : "warning";
}

/** The message as a reader of the event log sees it. */
std::string fillIn(const char* text, const std::string& device) {
    std::string message{text};
    return message.replace(message.find("%s"), 2, device);
}

Outcome notReported(const std::string& reason) {
    Outcome outcome{Exit::accepted, "not reported: " + reason};
    outcome.details["reportable"] = false;
    outcome.details["reason"] = reason;
    return outcome;
}

/** What the daemon would do with an accepted event record. */
Outcome explainEvent(std::span<const std::uint8_t> record) {
    struct Free {
        void operator()(char* text) const noexcept { std::free(text); }
    };
    std::int32_t event = 0;
    char* deviceText = nullptr;
    std::uint32_t severity = severityOther;
    std::string reason;
    const int reportable = explainRedfishData(record, event, deviceText, severity, reason);
    const std::unique_ptr<char, Free> ownedDevice{deviceText};

    if (reportable == 0) {
        return notReported(reason);
    }
    const std::string device{deviceText != nullptr ? deviceText : ""};
    if (device.size() >= messageArgumentsCapacity) {
        return notReported("the event log takes no device name of more than " +
                           std::to_string(messageArgumentsCapacity - 1) + " bytes");
    }
    Outcome outcome;
    outcome.details["reportable"] = true;
    const auto* message = findMessage(event);
    const auto text = fillIn(message->text, device);
    outcome.sentence = std::string{"reported as "} + message->messageId + ", " +
                       severityWord(severity) + ", device \"" + device + "\": " + text;
    outcome.details["messageId"] = message->messageId;
    outcome.details["message"] = text;
    outcome.details["severity"] = severityWord(severity);
    outcome.details["device"] = device;
    return outcome;
}

/** What the daemon would do with an accepted CPER: its summary is classified as an event record. */
Outcome explainCper(const std::vector<std::uint8_t>& record) {
    Json::Value summary;
    if (nvCperParse(record, summary) != 0) {
        return {Exit::refused, "refused: it is too short for a CPER"};
    }
    const std::string json = Json::FastWriter{}.write(summary);
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
    outcome.headline = content.sentence;
    outcome.lines = showLines ? content.lines : "";
    for (const auto& member : content.members.getMemberNames()) {
        outcome.details[member] = content.members[member];
    }
}

Outcome explainFile(const std::string& file, const std::string& kind, bool verbose) {
    const auto bytes = readInput(file);
    if (bytes.empty()) {
        return {Exit::refused, "refused: empty input"};
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

Exit explain(const Options& options) {
    Report report{options};
    for (const auto& file : options.files) {
        Json::Value about;
        about["file"] = file;
        report.tell(displayName(file), about,
                    [&] { return explainFile(file, options.kind, options.verbose); });
    }
    return report.finish();
}

} // namespace tavrisk::ctl
