// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sdbusplus/exception.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace sdbusplus::bus {

/** A reference to an sd-bus connection. */
class bus {
public:
    /** Takes a reference of its own (`sd_bus_ref`). */
    explicit bus(sd_bus* raw) : bus_{sd_bus_ref(raw)} {}

    [[nodiscard]] sd_bus* get() const noexcept { return bus_.get(); }

    // Not const, like those of the binding whose place this takes.
    // NOLINTBEGIN(readability-make-member-function-const)

    /** Claims a well-known name, from an owner that allows it too, and lets itself be replaced. */
    void request_name(const char* service) {
        details::check(
            sd_bus_request_name(get(), service,
                                SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT),
            "sd_bus_request_name");
    }

    /** Processes at most one message and discards it. */
    void process_discard() {
        details::check(sd_bus_process(get(), nullptr), "sd_bus_process discard");
    }

    /** Sleeps until there is something to process. */
    void wait() { details::check(sd_bus_wait(get(), UINT64_MAX), "sd_bus_wait"); }

    void emit_interfaces_added(const char* path, const std::vector<std::string>& interfaces) {
        details::check(sd_bus_emit_interfaces_added_strv(get(), path, pointers(interfaces).data()),
                       "sd_bus_emit_interfaces_added_strv");
    }

    void emit_interfaces_removed(const char* path, const std::vector<std::string>& interfaces) {
        details::check(
            sd_bus_emit_interfaces_removed_strv(get(), path, pointers(interfaces).data()),
            "sd_bus_emit_interfaces_removed_strv");
    }

    // NOLINTEND(readability-make-member-function-const)

private:
    // sd-bus takes string lists as char**, and does not write to them.
    static std::vector<char*> pointers(const std::vector<std::string>& strings) {
        std::vector<char*> list;
        list.reserve(strings.size() + 1);
        for (const auto& string : strings) {
            list.push_back(const_cast<char*>(string.c_str()));
        }
        list.push_back(nullptr);
        return list;
    }

    struct Unref {
        void operator()(sd_bus* raw) const noexcept { sd_bus_unref(raw); }
    };
    std::unique_ptr<sd_bus, Unref> bus_;
};

} // namespace sdbusplus::bus
