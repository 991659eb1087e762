// SPDX-License-Identifier: Apache-2.0
#include "records/json_outline.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Whatever jsoncpp makes of the bytes, it must make of their outline, as far as is read.

namespace {

constexpr std::array<std::string_view, 10> comparedWith{
    "Event",
    "Critical",
    "Warning",
    "Platform.1.0.PlatformError",
    "SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold",
    "SensorEvent.1.0.0.ReadingAboveUpperCriticalThreshold",
    "SensorEvent.1.0.0.ReadingBelowLowerCriticalThreshold",
    "SensorEvent.1.0.0.ReadingAboveUpperFatalThreshold",
    "SensorEvent.1.0.0.ReadingBelowLowerFatalThreshold",
    "ResourceEvent.1.0.ResourceWarningThresholdExceeded",
};

struct Parsed {
    bool good = false;
    Json::Value root;
};

Parsed parse(const char* begin, std::size_t size) {
    Parsed parsed;
    Json::Reader reader;
    try {
        parsed.good = reader.parse(begin, begin + size, parsed.root, false);
    } catch (const Json::RuntimeError&) { // Nested too deeply.
    }
    return parsed;
}

/** Nothing for a member of the wrong type. */
std::optional<std::string> read(const std::function<std::string()>& member) {
    try {
        return member();
    } catch (const Json::LogicError&) {
        return std::nullopt;
    }
}

/** All that is read of a record; of what is compared only, what it may be equal to. */
std::vector<std::optional<std::string>> whatIsRead(const Json::Value& root) {
    std::vector<std::optional<std::string>> all;
    for (const auto* name :
         {"EventType", "EntryType", "Severity", "MessageSeverity", "MessageId"}) {
        auto text = read([&] { return root[name].asString(); });
        if (text &&
            std::find(comparedWith.begin(), comparedWith.end(), *text) == comparedWith.end()) {
            text = "other";
        }
        all.push_back(text);
    }
    all.push_back(read([&] { return root["MessageArgs"][0].asString(); }));
    all.push_back(read([&] { return root["CPER"]["NotificationType"].asString(); }));
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const tavrisk::JsonOutline outline{std::span{data, size}};
    const auto whole = parse(reinterpret_cast<const char*>(data), size);
    if (whole.good != (outline.finding() == tavrisk::JsonOutline::Finding::json)) {
        std::abort();
    }
    const auto text = outline.text();
    const auto part = parse(text.data(), text.size());
    if (!whole.good) {
        return part.good ? std::abort(), 0 : 0;
    }
    if (!part.good || part.root.isNumeric() != whole.root.isNumeric() ||
        (part.root.type() != whole.root.type() && !whole.root.isNumeric()) ||
        whatIsRead(part.root) != whatIsRead(whole.root)) {
        std::abort();
    }
    return 0;
}
