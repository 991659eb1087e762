// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/redfish/collection.hpp"

#include "records/cper/record.hpp"
#include "text/ascii.hpp"
#include "text/utc_time.hpp"
#include "tools/common/content.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/redfish/registry.hpp"
#include "tools/zelctl/time_text.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <span>

namespace tavrisk::tools {
namespace {

using RecordBytes = std::span<const std::uint8_t>;

std::string base64(RecordBytes bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0'); // with the zero that is put behind it
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                    static_cast<int>(bytes.size()));
    text.pop_back();
    return text;
}

/** What is not known, since the clock was not set, is left out: a wrong time would be believed. */
void addTime(Json::Value& member, const LogEntry& entry) {
    const auto time = fromLogTime(entry.time);
    if (time && !isOfUnsetClock(entry)) {
        member["Created"] = std::string{text::UtcTime{*time}.text()};
    }
}

/** A message that the registry does not have is told in words, by its ID. */
void addMessage(Json::Value& member, const LogEntry& entry) {
    const auto* const message = findMessage(entry.messageId);
    auto& arguments = member["MessageArgs"] = toJson(entry.arguments);
    if (message == nullptr) {
        member["Message"] = entry.messageId + ": " + messageText(entry);
        return;
    }
    if (arguments.empty()) {
        arguments.append(""); // Each text of the registry has room for one.
    }
    member["Message"] = messageText(entry);
    member["MessageId"] = registryIdOf(*message);
    member["Resolution"] = registryMessageOf(*message).resolution;
}

/** Of bytes without a CPER's signature nothing is said, whatever was made of them. */
void addRecord(Json::Value& member, RecordBytes bytes) {
    const auto content = contentOfCper(bytes).members;
    if (content["header"]["signatureStart"] != "CPER") {
        return;
    }
    auto& types = member["CPER"];
    types["NotificationType"] = content["header"]["notificationType"];
    if (content["header"]["sectionCount"].asUInt() == 1 && content["sections"].size() == 1) {
        types["SectionType"] = content["sections"][0]["descriptor"]["sectionType"];
    }
    const auto record = bytes.subspan(content["leadingBytes"].asUInt());
    if (record.size() <= cper::mostBytes) {
        member["DiagnosticDataType"] = "CPER";
        member["DiagnosticData"] = base64(record);
    }
}

/** The record is the entry's where exactly one fits: each that is kept has other bytes. */
bool hasRecord(const RawFiles& files) {
    return files.paths.size() == 1 && !files.isGuess() && isCper(files.paths.front());
}

/** Whether it is a path of a URI as it stands, from its root to no directory. */
bool isUriPath(const std::string& path) {
    constexpr std::string_view others{"-._~!$&'()*+,;=:@/"}; // RFC 3986
    return path.starts_with('/') && !path.ends_with('/') && path.find("//") == std::string::npos &&
           std::all_of(path.begin(), path.end(), [others](char c) {
               return text::isAlphanumeric(c) || others.find(c) != std::string_view::npos;
           });
}

} // namespace

LogEntryCollection::LogEntryCollection(const Arguments& arguments)
    : path_{arguments.value("base").value_or("/redfish/v1/Managers/HMC/LogServices/ZEL/Entries")} {
    if (!isUriPath(path_)) {
        failUsage("--base takes a path of a URI, from '/' on and with no '/' at its end, not '" +
                  path_ + "'");
    }
}

void LogEntryCollection::begin() const {
    Json::Value head;
    head["@odata.id"] = path_;
    head["@odata.type"] = "#LogEntryCollection.LogEntryCollection";
    head["Name"] = "Event Log Entries";
    head["Description"] = "Entries of the platform event log (ZEL)";
    auto text = jsonLine(head);
    text.pop_back(); // It goes on.
    putLine(text + ",\"Members\":[");
}

void LogEntryCollection::put(const LogEntry& entry) {
    if (members_ == 0) {
        begin();
    }
    const auto id = std::to_string(entry.sequence);
    Json::Value member;
    member["@odata.id"] = path_ + "/" + id;
    member["@odata.type"] = "#LogEntry.v1_16_0.LogEntry";
    member["Id"] = id;
    member["Name"] = "Log Entry " + id;
    member["EntryType"] = "Event";
    member["Severity"] = redfishName(entry.severity());
    member["Resolved"] = entry.acknowledgement.has_value();
    addTime(member, entry);
    addMessage(member, entry);
    const auto files = index_.find(entry);
    if (hasRecord(files)) {
        addRecord(member, index_.bytesOf(files.paths.front()));
    }
    unreadable_ = unreadable_.empty() ? files.unreadable : unreadable_;
    putLine((members_++ == 0 ? "" : ",") + jsonLine(member));
}

void LogEntryCollection::end() {
    if (members_ == 0) {
        begin();
    }
    putLine("],\"Members@odata.count\":" + std::to_string(members_) + "}");
}

} // namespace tavrisk::tools
