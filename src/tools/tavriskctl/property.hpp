// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tavrisk::tools {

using PropertyValue = std::variant<std::string, std::uint8_t>;
using Property = std::pair<std::string, PropertyValue>;

/** Reads a property as the command line gives it. Raises Failure with Exit::usage for a name that
 *  the interface does not have and a value that the property cannot hold. */
Property parseProperty(const std::string& name, const std::string& value);

/** Reads a D-Bus dictionary of properties; those of other types than ours are passed over. */
std::vector<Property> readProperties(sd_bus_message* message);

std::string toText(const PropertyValue& value);
Json::Value toJson(const PropertyValue& value);

} // namespace tavrisk::tools
