// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/names.hpp"
#include "tools/tavriskctl/connection.hpp"
#include "tools/tavriskctl/property.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrisk::ctl {

constexpr auto propertiesInterface = "org.freedesktop.DBus.Properties";

/** Who owns the bus name; members that could not be learnt are empty. */
struct Owner {
    std::string uniqueName;
    std::optional<int> processId;
    std::optional<unsigned> userId;
    std::string command;
};

/** The daemon as seen over the bus: one function per member of its interface. All raise Failure. */
class Daemon {
public:
    /** Connects to the bus; `timeout` is that of every call. */
    Daemon(std::string bus, std::chrono::microseconds timeout);

    /** Calls Log, CPERlog or Save; the reply. When the bus closes the connection on the message,
     *  a new one is made, so that the next call finds it. */
    std::int32_t submit(const char* method, const std::string& validationString,
                        std::span<const std::uint8_t> bytes);

    /** Calls SaveAndClearCache; the reply. */
    std::int32_t saveAndClearCache();

    std::vector<Property> properties();
    /** The call behind properties(), for whoever does not wait for its reply. */
    [[nodiscard]] Message newPropertiesCall() const;
    void set(const Property& property);

    /** Nothing when nobody owns the name. Asks the bus only: does not have the daemon started. */
    std::optional<Owner> owner();

    [[nodiscard]] sd_bus* bus() const noexcept { return bus_.get(); }

private:
    [[nodiscard]] Message newCall(const char* interface, const char* member) const;
    [[nodiscard]] std::int32_t callForReply(sd_bus_message* request) const;

    std::string where_;
    std::chrono::microseconds timeout_;
    Bus bus_;
};

} // namespace tavrisk::ctl
