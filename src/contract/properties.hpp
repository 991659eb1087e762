// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <variant>

/** The daemon's D-Bus properties. */
namespace tavrisk {

struct PropertyRow {
    std::string_view name; // A literal, for D-Bus: with a zero at its end.
    /** The value at every start of the daemon; its alternative is the property's type. */
    std::variant<std::string_view, std::uint8_t> start;
    /** Whether peers may write it. */
    bool writable;
    /** The range that the daemon uses of a number; it accepts and publishes any. */
    std::uint8_t least = 0;
    std::uint8_t greatest = 255;

    /** What the daemon takes a number for: out of its range it counts as the nearest one in it. */
    [[nodiscard]] constexpr std::uint8_t effective(std::uint8_t value) const {
        return std::clamp(value, least, greatest);
    }
};

inline constexpr PropertyRow systemLEDSetting{"SystemLEDSetting", "Disabled", true};
inline constexpr PropertyRow retentionSizeInMB{"RetentionSizeInMB", std::uint8_t{10}, true, 1, 100};
inline constexpr PropertyRow retentionIntervalInMinutes{"RetentionIntervalInMinutes",
                                                        std::uint8_t{10}, true, 1, 20};
inline constexpr PropertyRow wUXDataLocation{"WUXDataLocation", "/mmc1/hmc", false};
inline constexpr PropertyRow wUXDataCacheLocation{"WUXDataCacheLocation", "/var/run/hmc", false};

/** In the order in which the interface has them. */
inline constexpr std::array properties{systemLEDSetting, retentionSizeInMB,
                                       retentionIntervalInMinutes, wUXDataLocation,
                                       wUXDataCacheLocation};

/** The row of a property, or null when the interface has none of this name. */
constexpr const PropertyRow* findProperty(std::string_view name) {
    const auto* row = std::find_if(properties.begin(), properties.end(),
                                   [&](const PropertyRow& known) { return known.name == name; });
    return row == properties.end() ? nullptr : row;
}

} // namespace tavrisk
