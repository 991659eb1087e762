// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>

/** The rows of an interface's member table, as sd-bus takes them. */
namespace sdbusplus::vtable {

using vtable_t = sd_bus_vtable;

constexpr vtable_t start() {
    return SD_BUS_VTABLE_START(0);
}

constexpr vtable_t method(const char* member, const char* signature, const char* result,
                          sd_bus_message_handler_t handler, std::uint64_t flags = 0) {
    return SD_BUS_METHOD(member, signature, result, handler, flags);
}

constexpr vtable_t property(const char* member, const char* signature, sd_bus_property_get_t get,
                            std::uint64_t flags = 0) {
    return SD_BUS_PROPERTY(member, signature, get, 0, flags);
}

constexpr vtable_t property(const char* member, const char* signature, sd_bus_property_get_t get,
                            sd_bus_property_set_t set, std::uint64_t flags = 0) {
    return SD_BUS_WRITABLE_PROPERTY(member, signature, get, set, 0, flags);
}

constexpr vtable_t end() {
    return SD_BUS_VTABLE_END;
}

} // namespace sdbusplus::vtable

namespace sdbusplus::vtable::common_ {
constexpr std::uint64_t unprivileged = SD_BUS_VTABLE_UNPRIVILEGED;
} // namespace sdbusplus::vtable::common_

namespace sdbusplus::vtable::property_ {
constexpr std::uint64_t emits_change = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
} // namespace sdbusplus::vtable::property_
