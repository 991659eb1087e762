// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>
#include <string>

namespace tavrisk::ctl {

struct Release {
    // Not flushed: every call waits for its reply, and a bus that does not read must not hang us.
    void operator()(sd_bus* bus) const noexcept { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
    void operator()(sd_bus_creds* creds) const noexcept { sd_bus_creds_unref(creds); }
};
using Bus = std::unique_ptr<sd_bus, Release>;
using Message = std::unique_ptr<sd_bus_message, Release>;
using Credentials = std::unique_ptr<sd_bus_creds, Release>;

/** Stands for no limit. */
constexpr std::chrono::microseconds forever{0};

/** Raises Failure for the negative result of a call that builds or reads a message. */
void check(int result);

/** Connects to "system", "session" or the bus at a D-Bus address. */
Bus connect(const std::string& where, std::chrono::microseconds timeout);

/** Sends a method call and waits for the reply. Raises Failure with what an error reply, the lack
 *  of a reply and the bus's own answers mean to a person. */
Message call(sd_bus* bus, sd_bus_message* request, std::chrono::microseconds timeout);

} // namespace tavrisk::ctl
