// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/property.hpp"

#include "contract/properties.hpp"
#include "tools/common/command_line.hpp"
#include "tools/tavriskctl/daemon.hpp"

#include <optional>
#include <string_view>

namespace tavrisk::tools {
namespace {

std::optional<PropertyValue> readVariant(sd_bus_message* message) {
    const char* contents = nullptr;
    check(sd_bus_message_peek_type(message, nullptr, &contents));
    const std::string_view type{contents != nullptr ? contents : ""};
    if (type == "s") {
        const char* text = nullptr;
        check(sd_bus_message_read(message, "v", "s", &text));
        return text;
    }
    if (type == "y") {
        std::uint8_t number = 0;
        check(sd_bus_message_read(message, "v", "y", &number));
        return number;
    }
    check(sd_bus_message_skip(message, "v"));
    return std::nullopt;
}

} // namespace

Property parseProperty(const std::string& name, const std::string& value) {
    const auto* row = findProperty(name);
    if (row == nullptr) {
        failUsage("there is no property '" + name + "'");
    }
    if (std::holds_alternative<std::uint8_t>(row->start)) {
        return {name, static_cast<std::uint8_t>(toNumber(name, value, 0, UINT8_MAX))};
    }
    return {name, value};
}

std::vector<Property> readProperties(sd_bus_message* message) {
    std::vector<Property> properties;
    check(sd_bus_message_enter_container(message, 'a', "{sv}"));
    for (;;) {
        const int entered = sd_bus_message_enter_container(message, 'e', "sv");
        check(entered);
        if (entered == 0) {
            break;
        }
        const char* name = nullptr;
        check(sd_bus_message_read_basic(message, 's', &name));
        if (auto value = readVariant(message)) {
            properties.emplace_back(name, std::move(*value));
        }
        check(sd_bus_message_exit_container(message));
    }
    check(sd_bus_message_exit_container(message));
    return properties;
}

std::string toText(const PropertyValue& value) {
    const auto* text = std::get_if<std::string>(&value);
    return text != nullptr ? *text : std::to_string(std::get<std::uint8_t>(value));
}

Json::Value toJson(const PropertyValue& value) {
    const auto* text = std::get_if<std::string>(&value);
    return text != nullptr ? Json::Value{*text} : Json::Value{std::get<std::uint8_t>(value)};
}

} // namespace tavrisk::tools
