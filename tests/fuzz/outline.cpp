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
#include <stdexcept>
#include <string>
#include <vector>

// Whatever jsoncpp makes of the bytes, the outline must say, and jsoncpp make of the outline's
// text, as far as is read.

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
    } catch (const std::runtime_error&) { // The outline's.
        return std::nullopt;
    }
}

/** What a text that is compared only may be equal to. */
template <typename Text>
std::string whatItEquals(const Text& text) {
    const auto* found = std::find_if(comparedWith.begin(), comparedWith.end(),
                                     [&](auto candidate) { return text == candidate; });
    return std::string{found != comparedWith.end() ? *found : "other"};
}

using Texts = std::vector<std::optional<std::string>>;

/** All that is read of a record. */
Texts whatIsRead(const Json::Value& root) {
    Texts all;
    for (const auto* name :
         {"EventType", "EntryType", "Severity", "MessageSeverity", "MessageId"}) {
        all.push_back(read([&] { return whatItEquals(root[name].asString()); }));
    }
    all.push_back(read([&] { return root["MessageArgs"][0].asString(); }));
    all.push_back(read([&] { return root["CPER"]["NotificationType"].asString(); }));
    return all;
}

Texts whatIsRead(const tavrisk::JsonOutline& outline) {
    using Outline = tavrisk::JsonOutline;
    Texts all;
    for (const auto member : {Outline::eventType, Outline::entryType, Outline::severity,
                              Outline::messageSeverity, Outline::messageId}) {
        all.push_back(read([&] { return whatItEquals(outline.name(member)); }));
    }
    all.push_back(read([&] { return outline.inside(Outline::messageArgs); }));
    all.push_back(read([&] { return outline.inside(Outline::cper); }));
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
    const bool isRecord = whole.root.isObject() || whole.root.isNull();
    if (outline.isRecord() != isRecord ||
        (isRecord && whatIsRead(outline) != whatIsRead(whole.root))) {
        std::abort();
    }
    return 0;
}
