// SPDX-License-Identifier: Apache-2.0
#include "tools/common/content.hpp"

#include "records/cper/printed.hpp"
#include "records/cper/record.hpp"
#include "tools/common/output.hpp"

#include <json/reader.h>

#include <exception>
#include <memory>

namespace tavrisk::tools {
namespace {

/** Null for bytes that are no JSON object. */
Json::Value parseObject(std::span<const std::uint8_t> bytes) {
    const auto* begin = reinterpret_cast<const char*>(bytes.data());
    const std::unique_ptr<Json::CharReader> reader{Json::CharReaderBuilder{}.newCharReader()};
    Json::Value value;
    try {
        const bool parsed = reader->parse(begin, begin + bytes.size(), &value, nullptr);
        return parsed && value.isObject() ? value : Json::Value{};
    } catch (const std::exception&) {
        // Nested too deeply for the reader.
        return {};
    }
}

/** A text as it is, a link's target, all else as JSON; empty for null. */
std::string textOf(const Json::Value& value) {
    if (value.isNull() || value.isString()) {
        return value.asString();
    }
    if (value.isObject() && value["@odata.id"].isString()) {
        return value["@odata.id"].asString();
    }
    return jsonLine(value);
}

/** Where it began: in a log entry that stands among its links. */
std::string originOf(const Json::Value& record) {
    const auto& links = record["Links"];
    const auto& origin = record["OriginOfCondition"];
    return textOf(origin.isNull() && links.isObject() ? links["OriginOfCondition"] : origin);
}

Summary summaryOf(const Json::Value& record) {
    return record.isNull() ? Summary{} : Summary{textOf(record["Message"]), originOf(record)};
}

Summary summaryOf(const cper::Node& record) {
    return {cper::sentence(record), cper::part(record)};
}

void add(Content& content, const char* label, const char* member, const std::string& text) {
    if (!text.empty()) {
        content.lines += std::string{label} + ": " + harmless(text) + "\n";
        content.members[member] = text;
    }
}

} // namespace

Summary summaryOfCper(std::span<const std::uint8_t> bytes) {
    return summaryOf(cper::decode(bytes));
}

Summary summaryOfEvent(std::span<const std::uint8_t> bytes) {
    return summaryOf(parseObject(bytes));
}

Content contentOfCper(std::span<const std::uint8_t> bytes) {
    const auto record = cper::decode(bytes);
    Content content{summaryOf(record), cper::toText(record), cper::toJson(record)};
    content.members["schemaVersion"] = Json::UInt64{cper::schemaVersion};
    content.members["sentence"] = content.summary.sentence;
    return content;
}

Content contentOfEvent(std::span<const std::uint8_t> bytes) {
    const auto record = parseObject(bytes);
    Content content{summaryOf(record)};
    if (record.isNull()) {
        return content;
    }
    if (!content.summary.sentence.empty()) {
        content.members["sentence"] = content.summary.sentence;
    }
    add(content, "Resolution", "resolution", textOf(record["Resolution"]));
    add(content, "Origin of condition", "originOfCondition", content.summary.part);
    return content;
}

} // namespace tavrisk::tools
