// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sdbusplus/bus.hpp"

#include <systemd/sd-bus.h>

#include <string>

namespace sdbusplus::server::object {
namespace details {

/** Merges the interfaces of one object into one class. */
template <typename... Interfaces>
struct compose : public Interfaces... {
    compose(sdbusplus::bus::bus& bus, const char* path) : Interfaces(bus, path)... {}
};

} // namespace details

/** An object made of the given interfaces. Announces itself when it is created and says that it is
 *  gone when it is destroyed, unless told to send no signals. */
template <typename... Interfaces>
class object : public details::compose<Interfaces...> {
public:
    enum class action { emit_object_added, emit_no_signals };

    object(sdbusplus::bus::bus& bus, const char* path, action signals = action::emit_object_added)
        : details::compose<Interfaces...>(bus, path), bus_{bus.get()}, path_{path} {
        if (signals == action::emit_object_added) {
            sdbusplus::details::check(sd_bus_emit_object_added(bus_.get(), path),
                                      "sd_bus_emit_object_added");
            announced_ = true;
        }
    }

    ~object() override {
        if (announced_) {
            sd_bus_emit_object_removed(bus_.get(), path_.c_str());
        }
    }

    object(const object&) = delete;
    object& operator=(const object&) = delete;

private:
    sdbusplus::bus::bus bus_;
    std::string path_;
    bool announced_ = false;
};

} // namespace sdbusplus::server::object
