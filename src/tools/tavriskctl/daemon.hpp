// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/names.hpp"
#include "tools/common/command_line.hpp"
#include "tools/tavriskctl/property.hpp"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrisk::tools {

constexpr auto propertiesInterface = "org.freedesktop.DBus.Properties";

struct Release {
    // Not flushed: every call waits for its reply, and a bus that does not read must not hang us.
    void operator()(sd_bus* bus) const noexcept { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
    void operator()(sd_bus_creds* creds) const noexcept { sd_bus_creds_unref(creds); }
};
using Bus = std::unique_ptr<sd_bus, Release>;
using Message = std::unique_ptr<sd_bus_message, Release>;

/** Raises Failure for the negative result of a libsystemd call. */
void check(int result);

/** Where the daemon is, and how long its replies may take. */
struct Target {
    /** "system", "session" or a D-Bus address. */
    std::string bus;
    /** 0 for no limit. */
    std::chrono::microseconds timeout;
};

/** What the command line says of it. Raises Failure with Exit::usage. */
Target targetOf(const Arguments& arguments, std::chrono::seconds defaultTimeout);

/** Who owns the bus name; members that could not be learnt are empty. */
struct Owner {
    std::string uniqueName;
    std::optional<int> processId;
    std::optional<unsigned> userId;
    std::string command;
};

/** The daemon as seen over the bus: one function per member of its interface. All raise Failure
 *  with what an error reply, the lack of a reply and the bus's own answers mean to a person. */
class Daemon {
public:
    /** Connects to the bus. */
    explicit Daemon(Target target);

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
    /** Sends a call and waits for the reply. */
    Message call(const Message& request);
    std::int32_t callForNumber(const Message& request);

    Target target_;
    Bus bus_;
};

} // namespace tavrisk::tools
