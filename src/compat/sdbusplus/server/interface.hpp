// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sdbusplus/bus.hpp"
#include "sdbusplus/vtable.hpp"

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace sdbusplus::server::interface {

/** One interface registered on one object path; the registration ends with the instance. */
class interface {
public:
    /** `vtable` must outlive the instance; `context` is handed to every callback. */
    interface(sdbusplus::bus::bus& bus, const char* path, const char* name,
              const sdbusplus::vtable::vtable_t* vtable, void* context)
        : bus_{bus.get()}, path_{path}, name_{name} {
        sd_bus_slot* slot = nullptr;
        details::check(sd_bus_add_object_vtable(bus_.get(), &slot, path, name, vtable, context),
                       "sd_bus_add_object_vtable");
        slot_.reset(slot);
    }

    void property_changed(const char* property) {
        // A null entry ends the list of names.
        details::check(sd_bus_emit_properties_changed(bus_.get(), path_.c_str(), name_.c_str(),
                                                      property, nullptr),
                       "sd_bus_emit_properties_changed");
    }

    /** Announces the interface, once in its life. */
    void emit_added() {
        if (!added_) {
            bus_.emit_interfaces_added(path_.c_str(), {name_});
            added_ = true;
        }
    }

private:
    struct Unref {
        void operator()(sd_bus_slot* raw) const noexcept { sd_bus_slot_unref(raw); }
    };

    sdbusplus::bus::bus bus_;
    std::string path_;
    std::string name_;
    std::unique_ptr<sd_bus_slot, Unref> slot_;
    bool added_ = false;
};

} // namespace sdbusplus::server::interface
